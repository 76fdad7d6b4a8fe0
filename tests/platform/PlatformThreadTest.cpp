// Threads, the waiting queue and the locks: what a thread cancelled or woken leaves behind.
#include "CritSect.h"
#include "ElapsedTimeCounter.h"
#include "Guard.h"
#include "Mutex.h"
#include "Queue.h"
#include "SafeLock.h"
#include "Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <new>
#include <thread>

namespace {

// Runs `body` on a thread of its own; the test code starts, cancels and joins it.
class BodyThread : public osk::Thread {
public:
    explicit BodyThread(std::function<void()> body) : m_body(std::move(body)) {}
    ~BodyThread() override { join(); }

protected:
    void run() override { m_body(); }

private:
    std::function<void()> m_body;
};

// Starts `body` on a thread, waits until it is about to wait, lets it wait a moment, then does `wake`, cancelling
// the thread when `wake` is empty, and joins it. A lock left held or a waiter never woken hangs the test instead.
void waitThen(const std::function<void()>& body, const std::function<void()>& wake) {
    std::promise<void> waiting;
    BodyThread thread([&] {
        waiting.set_value();
        body();
    });
    ASSERT_TRUE(thread.start());
    waiting.get_future().wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (wake)
        wake();
    else
        EXPECT_TRUE(thread.cancel());
    EXPECT_TRUE(thread.join());
}

} // namespace

TEST(PlatformThread, RunsOnceAndJoinsOnce) {
    std::atomic<int> runs{0};
    std::thread::id runner;
    BodyThread thread([&] { runner = std::this_thread::get_id(), ++runs; });
    EXPECT_FALSE(thread.join()) << "not started";
    EXPECT_FALSE(thread.cancel()) << "not started";
    ASSERT_TRUE(thread.start());
    EXPECT_FALSE(thread.start());
    EXPECT_TRUE(thread.join());
    EXPECT_FALSE(thread.join());
    EXPECT_FALSE(thread.cancel()) << "already joined";
    EXPECT_EQ(1, runs.load());
    EXPECT_NE(std::this_thread::get_id(), runner);
}

TEST(PlatformQueue, ItemsComeOutInOrderUntilTheQueueIsDeactivated) {
    osk::Queue<int*> queue;
    int first = 1, second = 2;
    EXPECT_TRUE(queue.enqueue(&first));
    EXPECT_TRUE(queue.enqueue(&second));
    int* item = nullptr;
    EXPECT_EQ(0, queue.dequeue(item, 0, 0));
    EXPECT_EQ(&first, item);
    EXPECT_EQ(0, queue.dequeue(item, 5, 0));
    EXPECT_EQ(&second, item);

    item = nullptr;
    ElapsedTimeCounter counter;
    EXPECT_EQ(1, queue.dequeue(item, 0, 50000));
    long waited = counter.elapsed();
    EXPECT_GE(waited, 40000) << "a spurious wake-up may end the wait early, but not this early";
    EXPECT_EQ(nullptr, item);
    counter.start();
    EXPECT_LT(counter.elapsed(), waited) << "start() counts afresh";

    queue.enqueue(&first);
    EXPECT_TRUE(queue.isActive());
    queue.deactivate();
    EXPECT_FALSE(queue.isActive());
    EXPECT_EQ(2, queue.dequeue(item, 600, 0)) << "the item is dropped";
    EXPECT_EQ(nullptr, item);
    EXPECT_FALSE(queue.enqueue(&first));
}

TEST(PlatformQueue, WaitingThreadIsWokenByAnItemOrByDeactivation) {
    osk::Queue<int*> queue;
    int value = 7;
    int* taken = nullptr;
    int result = -1;
    waitThen([&] { result = queue.dequeue(taken, 600, 0); }, [&] { queue.enqueue(&value); });
    EXPECT_EQ(0, result);
    EXPECT_EQ(&value, taken);
    waitThen([&] { result = queue.dequeue(taken, 600, 0); }, [&] { queue.deactivate(); });
    EXPECT_EQ(2, result);
}

TEST(PlatformQueue, ThreadCancelledWhileWaitingLeavesTheQueueUsable) {
    osk::Queue<int*> queue;
    int value = 3;
    int* item = nullptr;
    waitThen([&] { for (;;) queue.dequeue(item, 600, 0); }, nullptr);
    EXPECT_TRUE(queue.enqueue(&value)) << "a mutex left held would hang here";
    EXPECT_EQ(0, queue.dequeue(item, 0, 0));
    EXPECT_EQ(&value, item);
}

// Each lock is held by a thread cancelled while it waits at a cancellation
// point. The point is pthread_testcancel(), not a blocking call: ThreadSanitizer
// loses the unlocks of a cancellation that unwinds out of a call it intercepts.
TEST(PlatformLocks, CancelledThreadLeavesNoMutexHeld) {
    auto spin = [] {
        for (;;) {
            pthread_testcancel();
            std::this_thread::yield();
        }
    };
    // One mutex is built over stale bytes, as on the stack or the heap: it must not rely on zeroed memory.
    alignas(osk::Mutex) unsigned char stale[sizeof(osk::Mutex)];
    std::memset(stale, 0xff, sizeof stale);
    osk::Mutex& safeLocked = *new (stale) osk::Mutex;
    osk::Mutex guarded;
    osk::CritSect section;
    waitThen([&] { osk::withCancelSafeLock(safeLocked, spin); }, nullptr);
    waitThen([&] { osk::Guard guard(guarded); spin(); }, nullptr);
    waitThen([&] { osk::Guard outer(section), inner(section); spin(); }, nullptr);
    for (pthread_mutex_t* mutex : {safeLocked.native(), guarded.native(), section.native()}) {
        EXPECT_EQ(0, pthread_mutex_trylock(mutex));
        pthread_mutex_unlock(mutex);
    }
    safeLocked.~Mutex();
}
