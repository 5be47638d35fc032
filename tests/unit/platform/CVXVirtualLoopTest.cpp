// The virtual loop's fd watches and wake-ups, as backend tests drive them:
// readiness reported by hand with FireIO, wake-ups run by DispatchWakeups.
#include "platform/CVXVirtualLoop.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>

#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr int kFd = 7;  // never opened: a virtual watch only names its fd

TEST(VirtualLoop, FireIOReportsWhatEpollWouldForTheWatchMask) {
    struct SCase {
        const char* name;
        uint32_t mask, fired;
        bool called;
        uint32_t seen;
    };
    const SCase cases[] = {
        {"wanted", EPOLLIN, EPOLLIN, true, EPOLLIN},
        {"not wanted", EPOLLIN, EPOLLOUT, false, 0},
        {"masked down", EPOLLIN, EPOLLIN | EPOLLOUT, true, EPOLLIN},
        {"both wanted", EPOLLIN | EPOLLOUT, EPOLLIN | EPOLLOUT, true, EPOLLIN | EPOLLOUT},
        {"paused", 0, EPOLLIN, false, 0},
        {"hang-up while paused", 0, EPOLLHUP, true, EPOLLHUP},
        {"error with data", EPOLLOUT, EPOLLERR | EPOLLIN, true, EPOLLERR},
    };
    for (const SCase& c : cases) {
        SCOPED_TRACE(c.name);
        CVXVirtualLoop loop;
        std::vector<uint32_t> seen;
        ASSERT_NE(
            loop.AddIOWatch(kFd, c.mask, [&](uint32_t inRevents) { seen.push_back(inRevents); }),
            0u);
        EXPECT_EQ(loop.FireIO(kFd, c.fired), c.called);
        EXPECT_FALSE(loop.FireIO(kFd + 1, c.fired)) << "an fd nobody watches";
        EXPECT_EQ(seen, c.called ? std::vector<uint32_t>{c.seen} : std::vector<uint32_t>{});
    }
}

TEST(VirtualLoop, MaskChangesPauseAndResumeAWatchAndOneFdHasOneWatch) {
    CVXVirtualLoop loop;
    int calls = 0;
    CVXEventLoop::WatchId watch = loop.AddIOWatch(kFd, EPOLLIN, [&](uint32_t) { ++calls; });
    ASSERT_NE(watch, 0u);
    EXPECT_EQ(loop.AddIOWatch(kFd, EPOLLOUT, [](uint32_t) {}), 0u);
    EXPECT_EQ(loop.WatchedEvents(kFd), EPOLLIN);
    EXPECT_EQ(loop.WatchedEvents(kFd + 1), std::nullopt);

    EXPECT_TRUE(loop.SetIOWatchEvents(watch, 0));
    EXPECT_FALSE(loop.FireIO(kFd, EPOLLIN));
    EXPECT_TRUE(loop.SetIOWatchEvents(watch, EPOLLIN | EPOLLOUT));
    EXPECT_EQ(loop.WatchedEvents(kFd), EPOLLIN | EPOLLOUT);
    EXPECT_TRUE(loop.FireIO(kFd, EPOLLOUT));
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(loop.SetIOWatchEvents(watch + 100, EPOLLIN));

    loop.RemoveIOWatch(watch);
    loop.RemoveIOWatch(watch);  // twice is harmless
    EXPECT_FALSE(loop.SetIOWatchEvents(watch, EPOLLIN));
    EXPECT_FALSE(loop.FireIO(kFd, EPOLLIN));
    EXPECT_EQ(loop.PendingWatches(), 0u);
    EXPECT_NE(loop.AddIOWatch(kFd, EPOLLIN, [](uint32_t) {}), 0u) << "the fd is free again";
}

TEST(VirtualLoop, WatchRemovedFromItsOwnCallbackKeepsItsCapturesUntilItReturns) {
    CVXVirtualLoop loop;
    auto token = std::make_shared<int>(0);
    std::weak_ptr<int> alive = token;
    std::vector<bool> aliveAfterRemove;
    CVXEventLoop::WatchId watch = 0;
    watch = loop.AddIOWatch(kFd, EPOLLIN, [&, token](uint32_t) {
        loop.RemoveIOWatch(watch);
        EXPECT_FALSE(loop.SetIOWatchEvents(watch, EPOLLIN));
        EXPECT_EQ(loop.WatchedEvents(kFd), std::nullopt);
        aliveAfterRemove.push_back(!alive.expired());
    });
    token.reset();
    EXPECT_TRUE(loop.FireIO(kFd, EPOLLIN));
    EXPECT_FALSE(loop.FireIO(kFd, EPOLLIN));
    EXPECT_EQ(aliveAfterRemove, std::vector<bool>{true});
    EXPECT_TRUE(alive.expired());
    EXPECT_EQ(loop.PendingWatches(), 0u);
}

TEST(VirtualLoop, WakesCoalesceAndRunInOrderWhenDispatched) {
    CVXVirtualLoop loop;
    std::vector<char> calls;
    CVXWakeup* a = nullptr;
    CVXWakeup* b = loop.AddWakeup([&] { calls.push_back('b'); });
    a = loop.AddWakeup([&] {
        calls.push_back('a');
        a->Wake();  // waits for the next dispatch, so that one always ends
    });
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(loop.DispatchWakeups(), 0u);

    for (int i = 0; i < 3; ++i) a->Wake();
    b->Wake();
    EXPECT_TRUE(calls.empty()) << "nothing runs before the test dispatches";
    EXPECT_EQ(loop.DispatchWakeups(), 2u);
    EXPECT_EQ(calls, (std::vector<char>{'b', 'a'}));  // the order they were added
    EXPECT_EQ(loop.Run(), 0);                         // Run() dispatches too
    EXPECT_EQ(calls, (std::vector<char>{'b', 'a', 'a'}));

    // Wakes from another thread land the same way.
    loop.RemoveWakeup(a);
    calls.clear();
    std::thread waker([b] {
        for (int i = 0; i < 100; ++i) b->Wake();
    });
    waker.join();
    EXPECT_EQ(loop.DispatchWakeups(), 1u);
    EXPECT_EQ(calls, std::vector<char>{'b'});
    EXPECT_EQ(loop.PendingWakeups(), 1u);
}

TEST(VirtualLoop, WakeupsRemovedDuringADispatchAreNotCalledAgain) {
    CVXVirtualLoop loop;
    auto token = std::make_shared<int>(0);
    std::weak_ptr<int> alive = token;
    std::vector<char> calls;
    CVXWakeup* self = nullptr;
    CVXWakeup* other = nullptr;
    self = loop.AddWakeup([&, token] {
        calls.push_back('s');
        loop.RemoveWakeup(self);
        loop.RemoveWakeup(other);  // woken too, but gone before its turn
    });
    token.reset();
    other = loop.AddWakeup([&] { calls.push_back('o'); });
    self->Wake();
    other->Wake();
    EXPECT_EQ(loop.DispatchWakeups(), 1u);
    EXPECT_EQ(calls, std::vector<char>{'s'});
    EXPECT_TRUE(alive.expired()) << "released once the dispatch ended";
    EXPECT_EQ(loop.PendingWakeups(), 0u);
    loop.RemoveWakeup(nullptr);  // ignored
}

// Captures that remove watches or cancel timers as they die (a backend's
// destructor does) must not find the loop half torn down; ASan would see it.
TEST(VirtualLoop, DestroyedWithCallbacksWhoseCapturesRemoveOthers) {
    struct SRemover {
        CVXVirtualLoop* loop;
        CVXEventLoop::WatchId watch;
        CVXEventLoop::TimerId timer;
        CVXWakeup* wakeup;
        ~SRemover() {
            loop->RemoveIOWatch(watch);
            loop->CancelTimer(timer);
            loop->RemoveWakeup(wakeup);
        }
    };
    auto loop = std::make_unique<CVXVirtualLoop>();
    auto remover = std::make_shared<SRemover>(SRemover{loop.get(), 0, 0, nullptr});
    remover->watch = loop->AddIOWatch(kFd, EPOLLIN, [](uint32_t) {});
    remover->timer = loop->AddOneShotTimer(1000, [] {});
    remover->wakeup = loop->AddWakeup([] {});
    loop->AddIOWatch(kFd + 1, EPOLLIN, [remover](uint32_t) {});
    loop->AddRepeatingTimer(1000, [remover] {});
    loop->AddWakeup([remover] {});
    remover.reset();
    EXPECT_EQ(loop->PendingWatches(), 2u);
    loop.reset();
}

}  // namespace
