// Child processes of the tests (servers, tools, vxd itself): a command with an
// environment of the test's choosing, its standard output and error into one
// file. No gtest here.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

extern char** environ;

// This process's environment less every variable whose "NAME=" is one of
// inDropped.
inline std::vector<std::string> EnvironmentWithout(
    std::initializer_list<std::string_view> inDropped) {
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) {
        const std::string_view entry = *e;
        bool dropped = false;
        for (std::string_view name : inDropped) dropped = dropped || entry.starts_with(name);
        if (!dropped) env.emplace_back(entry);
    }
    return env;
}

// Starts inCommand (looked up on PATH unless it names a path) with inEnv as
// its whole environment, its output and errors written to inOutput. The
// child's pid, or 0 when it could not be started.
inline pid_t SpawnProcess(const std::vector<std::string>& inCommand,
                          const std::vector<std::string>& inEnv, const std::string& inOutput) {
    std::vector<char*> argv, envp;
    for (const std::string& a : inCommand) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    for (const std::string& e : inEnv) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, inOutput.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t pid = 0;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) pid = 0;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}
