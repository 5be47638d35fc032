// The real sd-event loop: timers on the grid, release and cancellation from
// inside callbacks, exit codes, termination signals, fd watches and wake-ups
// from other threads. Runs are a few dozen milliseconds; no assertion depends
// on how fast the machine is.
#include "platform/VXDiagnostics.h"
#include "platform/loop/CVXSdEventLoop.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

// Runs the loop; -1000 means that a broken loop never reached the test's own
// exit within a second.
int RunGuarded(CVXSdEventLoop& loop) {
    loop.AddOneShotTimer(1000000, [&loop] { loop.Exit(-1000); });
    return loop.Run();
}

// One firing of a repeating timer: the grid point it fired for, the time its
// callback started and the time the callback was about to return.
struct SFiring {
    uint64_t due, at, done;
};

TEST(SdEventLoop, RepeatingTimerStaysOnItsGridAndSkipsMissedPoints) {
    constexpr uint64_t kPeriod = 2000;
    CVXSdEventLoop loop;
    ASSERT_TRUE(loop.Valid());
    std::vector<SFiring> firings;
    CVXEventLoop::TimerId timer = 0;
    const uint64_t before = loop.NowMicros();
    timer = loop.AddRepeatingTimer(kPeriod, [&] {
        const uint64_t due = loop.DueMicros(timer), at = loop.NowMicros();
        // Work every time, as a slow action would (timing from the callback
        // would leave the grid), and once a stall over two grid points
        // (catch-up would burst).
        std::this_thread::sleep_for(
            std::chrono::microseconds(firings.size() == 2 ? kPeriod * 5 / 2 : kPeriod / 4));
        if (firings.size() == 6) loop.Exit(0);
        firings.push_back({due, at, loop.NowMicros()});
    });
    const uint64_t after = loop.NowMicros();
    EXPECT_EQ(RunGuarded(loop), 0);
    ASSERT_EQ(firings.size(), 7u);
    // The grid starts when the timer was added; every firing is for a point on
    // it, never early, and for a point that lay ahead when the callback
    // before it returned.
    const uint64_t origin = firings[0].due - kPeriod;
    EXPECT_GE(origin, before);
    EXPECT_LE(origin, after);
    for (size_t i = 0; i < firings.size(); ++i) {
        EXPECT_EQ((firings[i].due - origin) % kPeriod, 0u) << i;
        EXPECT_GE(firings[i].at, firings[i].due) << i;
        EXPECT_TRUE(i == 0 || firings[i].due > firings[i - 1].done) << i;
    }
}

TEST(SdEventLoop, OneShotFiresOnceAndIsReleasedBeforeTheNextTimer) {
    CVXSdEventLoop loop;
    auto token = std::make_shared<int>(0);
    std::weak_ptr<int> watch = token;
    int fired = 0;
    loop.AddOneShotTimer(2000, [&fired, token] { ++fired; });
    token.reset();
    // Exits with 1 if the fired timer still holds its captures.
    loop.AddOneShotTimer(8000, [&] { loop.Exit(watch.expired() ? 0 : 1); });
    EXPECT_EQ(RunGuarded(loop), 0);
    EXPECT_EQ(fired, 1);
}

TEST(SdEventLoop, CallbacksCancelThemselvesAndEachOther) {
    CVXSdEventLoop loop;
    // A repeating timer that cancels itself on its third firing. The test
    // ends three periods later (timers fire in due order, so a fourth firing
    // would come first), with 1 if the cancelled timer still holds its captures.
    auto token = std::make_shared<int>(0);
    std::weak_ptr<int> selfToken = token;
    int selfCount = 0;
    CVXEventLoop::TimerId self = 0;
    self = loop.AddRepeatingTimer(1000, [&, token] {
        if (++selfCount != 3) return;
        loop.CancelTimer(self);
        loop.AddOneShotTimer(3000, [&] { loop.Exit(selfToken.expired() ? 0 : 1); });
    });
    token.reset();
    // Two one-shots due together, each cancelling the other: the first one
    // added runs, the other must not.
    std::vector<int> pair;
    CVXEventLoop::TimerId first = 0, second = 0;
    first = loop.AddOneShotTimer(2000, [&] {
        pair.push_back(1);
        loop.CancelTimer(second);
    });
    second = loop.AddOneShotTimer(2000, [&] {
        pair.push_back(2);
        loop.CancelTimer(first);
    });
    EXPECT_EQ(RunGuarded(loop), 0);
    EXPECT_EQ(selfCount, 3);
    EXPECT_EQ(pair, (std::vector<int>{1}));
}

TEST(SdEventLoop, ExitEndsRunWithItsCode) {
    CVXSdEventLoop loop;
    int later = 0;
    loop.AddOneShotTimer(1000, [&] { loop.Exit(42); });
    const auto laterTimer = loop.AddOneShotTimer(200000, [&] { ++later; });
    EXPECT_EQ(RunGuarded(loop), 42);
    EXPECT_EQ(later, 0);
    EXPECT_EQ(loop.Run(), 42);  // an sd-event loop runs once
    // What is torn down after the loop ends still cancels and re-arms its
    // timers and watches; that is not a failure worth a message.
    CVXDiagnosticCapture capture;
    loop.CancelTimer(laterTimer);
    loop.AddOneShotTimer(1000, [] {});
    EXPECT_EQ(capture.Text(), "");
}

TEST(SdEventLoop, TerminationSignalsEndRunWithZeroAndTheProcessLivesOn) {
    for (int signal : {SIGINT, SIGTERM}) {
        CVXSdEventLoop loop;
        loop.AddOneShotTimer(1000, [signal] { kill(getpid(), signal); });
        loop.AddOneShotTimer(300000, [&] { loop.Exit(99); });  // the signal was lost
        EXPECT_EQ(RunGuarded(loop), 0) << signal;
        sigset_t mask;
        sigprocmask(SIG_SETMASK, nullptr, &mask);
        EXPECT_FALSE(sigismember(&mask, signal)) << "the mask is restored after Run";
    }
}

TEST(SdEventLoop, IOWatchReportsReadinessUntilRemovedFromItsOwnCallback) {
    int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    ASSERT_GE(fd, 0);
    auto post = [fd](uint64_t v) { EXPECT_EQ(write(fd, &v, sizeof v), 8); };
    CVXSdEventLoop loop;
    std::vector<uint64_t> values;
    CVXSdEventLoop::WatchId watch = 0;
    watch = loop.AddIOWatch(fd, EPOLLIN, [&](uint32_t inRevents) {
        uint64_t value = 0;
        if ((inRevents & EPOLLIN) && read(fd, &value, sizeof value) == sizeof value)
            values.push_back(value);
        if (values.size() == 1) return post(5);
        loop.RemoveIOWatch(watch);  // the next value stays unread
        post(11);
        loop.AddOneShotTimer(5000, [&] { loop.Exit(0); });
    });
    ASSERT_NE(watch, 0u);
    loop.AddOneShotTimer(1000, [&] { post(3); });  // wakes the idle loop
    EXPECT_EQ(RunGuarded(loop), 0);
    EXPECT_EQ(values, (std::vector<uint64_t>{3, 5}));
    EXPECT_EQ(loop.PendingWatches(), 0u);
    uint64_t left = 0;
    EXPECT_EQ(read(fd, &left, sizeof left), 8);
    EXPECT_EQ(left, 11u);
    close(fd);
}

TEST(SdEventLoop, IOWatchMaskChangesStopAndResumeDispatch) {
    // An empty eventfd is always writable and never readable, so the mask
    // alone decides whether the watch is called.
    int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    ASSERT_GE(fd, 0);
    CVXSdEventLoop loop;
    std::vector<uint32_t> revents;
    CVXSdEventLoop::WatchId watch = 0;
    size_t whilePaused = 0;
    watch = loop.AddIOWatch(fd, EPOLLIN, [&](uint32_t inRevents) {
        revents.push_back(inRevents);
        if (revents.size() == 1) {
            // Still writable: level-triggered, it would be called again at
            // once unless the pause works. Each step is scheduled by the one
            // before it, so that a loaded machine cannot run two at once.
            EXPECT_TRUE(loop.SetIOWatchEvents(watch, 0));
            loop.AddOneShotTimer(5000, [&] {
                whilePaused = revents.size();
                EXPECT_TRUE(loop.SetIOWatchEvents(watch, EPOLLIN | EPOLLOUT));
            });
            return;
        }
        loop.RemoveIOWatch(watch);
        loop.Exit(0);
    });
    ASSERT_NE(watch, 0u);
    loop.AddOneShotTimer(2000, [&] {
        EXPECT_TRUE(revents.empty()) << "EPOLLIN on an empty eventfd";
        EXPECT_TRUE(loop.SetIOWatchEvents(watch, EPOLLOUT));
    });
    EXPECT_FALSE(loop.SetIOWatchEvents(watch + 100, EPOLLIN));
    EXPECT_EQ(RunGuarded(loop), 0);
    EXPECT_EQ(whilePaused, 1u);
    EXPECT_EQ(revents, (std::vector<uint32_t>{EPOLLOUT, EPOLLOUT}));
    EXPECT_FALSE(loop.SetIOWatchEvents(watch, EPOLLIN)) << "removed";
    close(fd);
}

TEST(SdEventLoop, PipeHangUpReachesAWatchThatRemovesItselfAndReleasesItsCaptures) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_NONBLOCK | O_CLOEXEC), 0);
    CVXSdEventLoop loop;
    auto token = std::make_shared<int>(0);
    std::weak_ptr<int> alive = token;
    std::string received;
    CVXSdEventLoop::WatchId watch = 0;
    watch = loop.AddIOWatch(fds[0], EPOLLIN, [&, token](uint32_t inRevents) {
        char buffer[16];
        ssize_t n = 0;
        while ((n = read(fds[0], buffer, sizeof buffer)) > 0)
            received.append(buffer, static_cast<size_t>(n));
        if (!(inRevents & EPOLLHUP)) return;
        loop.RemoveIOWatch(watch);
        // One more pass: a second call would come first, and the captures
        // must be gone by then.
        loop.AddOneShotTimer(5000, [&] { loop.Exit(alive.expired() ? 0 : 1); });
    });
    token.reset();
    ASSERT_NE(watch, 0u);
    loop.AddOneShotTimer(1000, [&] { EXPECT_EQ(write(fds[1], "fader", 5), 5); });
    loop.AddOneShotTimer(3000, [&] { close(fds[1]); });
    EXPECT_EQ(RunGuarded(loop), 0);
    EXPECT_EQ(received, "fader");
    EXPECT_EQ(loop.PendingWatches(), 0u);
    close(fds[0]);
}

TEST(SdEventLoop, WakesFromAnotherThreadDuringTheCallbackGiveOneMoreCallOnTheLoopThread) {
    // The first call holds the loop until the other thread has woken it a
    // hundred times more: those wakes land while a call runs, and must give
    // exactly one more call after it. A loop that emptied the eventfd after
    // the call would lose them, and the guard's -1000 would end the run.
    CVXSdEventLoop loop;
    const std::thread::id loopThread = std::this_thread::get_id();
    std::atomic<bool> inFirstCall{false}, wakerDone{false};
    int calls = 0;
    bool onLoopThread = true;
    CVXWakeup* wakeup = loop.AddWakeup([&] {
        ++calls;
        onLoopThread = onLoopThread && std::this_thread::get_id() == loopThread;
        if (calls > 1) return loop.Exit(0);
        inFirstCall.store(true);
        while (!wakerDone.load()) std::this_thread::yield();
    });
    ASSERT_NE(wakeup, nullptr);
    std::thread waker;
    loop.AddOneShotTimer(1000, [&] {
        waker = std::thread([&] {
            wakeup->Wake();
            while (!inFirstCall.load()) std::this_thread::yield();
            for (int i = 0; i < 100; ++i) wakeup->Wake();
            wakerDone.store(true);
        });
    });
    EXPECT_EQ(RunGuarded(loop), 0);
    waker.join();
    EXPECT_TRUE(onLoopThread);
    EXPECT_EQ(calls, 2);
    loop.RemoveWakeup(wakeup);
    EXPECT_EQ(loop.PendingWakeups(), 0u);
    EXPECT_EQ(loop.PendingWatches(), 0u);
}

TEST(SdEventLoop, WakesBeforeTheLoopRunsGiveOneCallThatMayRemoveItsWakeup) {
    CVXSdEventLoop loop;
    auto token = std::make_shared<int>(0);
    std::weak_ptr<int> alive = token;
    int calls = 0;
    CVXWakeup* wakeup = nullptr;
    wakeup = loop.AddWakeup([&, token] {
        ++calls;
        loop.RemoveWakeup(wakeup);
        loop.AddOneShotTimer(5000, [&] { loop.Exit(alive.expired() ? 0 : 1); });
    });
    token.reset();
    ASSERT_NE(wakeup, nullptr);
    std::thread([wakeup] {
        for (int i = 0; i < 5; ++i) wakeup->Wake();
    }).join();
    EXPECT_EQ(calls, 0) << "only the loop thread runs it";
    EXPECT_EQ(RunGuarded(loop), 0);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(loop.PendingWakeups(), 0u);
    EXPECT_EQ(loop.PendingWatches(), 0u);
}

// Objects captured by pending callbacks may cancel other timers as they die
// (a delay action's destructor does): tearing the loop down must cope, and
// ASan would see a freed record otherwise.
TEST(SdEventLoop, DestroyedWithPendingCallbacksWhoseCapturesCancelTimers) {
    struct SCanceller {
        CVXSdEventLoop* loop;
        CVXEventLoop::TimerId other;
        ~SCanceller() { loop->CancelTimer(other); }
    };
    auto loop = std::make_unique<CVXSdEventLoop>();
    CVXEventLoop::TimerId first = loop->AddOneShotTimer(1000000, [] {});
    std::shared_ptr<SCanceller> canceller(new SCanceller{loop.get(), first});
    loop->AddRepeatingTimer(1000000, [canceller] {});
    canceller.reset();
    EXPECT_EQ(loop->PendingTimers(), 2u);
    loop.reset();
}

}  // namespace
