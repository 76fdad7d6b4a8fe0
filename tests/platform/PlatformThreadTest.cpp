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
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
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

// Starts `body`, waits until it reports that it holds its lock, cancels it
// while it waits at a cancellation point and joins it. The point is
// pthread_testcancel(), not a blocking call: ThreadSanitizer loses the
// unlocks of a cancellation that unwinds out of a call it intercepts.
void cancelInside(const std::function<void(const std::function<void()>&)>& body) {
    std::promise<void> inside;
    BodyThread thread([&] {
        body([&] {
            inside.set_value();
            for (;;) {
                pthread_testcancel();
                std::this_thread::yield();
            }
        });
    });
    ASSERT_TRUE(thread.start());
    inside.get_future().wait();
    EXPECT_TRUE(thread.cancel());
    EXPECT_TRUE(thread.join());
}

// True when `work` finishes within a generous bound; a lock left held would
// make it hang instead.
bool finishes(const std::function<void()>& work) {
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    std::thread([work, done] {
        work();
        done->set_value();
    }).detach();
    return finished.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
}

} // namespace

TEST(PlatformThread, RunsOnceAndJoinsOnce) {
    std::atomic<int> runs{0};
    std::thread::id runner;
    BodyThread thread([&] {
        runner = std::this_thread::get_id();
        ++runs;
    });
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

TEST(PlatformQueue, ItemsComeOutInOrderThenTheEmptyQueueTimesOut) {
    osk::Queue<int*> queue;
    int first = 1, second = 2;
    EXPECT_TRUE(queue.enqueue(&first));
    EXPECT_TRUE(queue.enqueue(&second));
    int* item = nullptr;
    EXPECT_EQ(0, queue.dequeue(item, 0, 0));
    EXPECT_EQ(&first, item);
    EXPECT_EQ(0, queue.dequeue(item, 5, 0));
    EXPECT_EQ(&second, item);

    // Empty now: the wait times out.
    item = nullptr;
    ElapsedTimeCounter counter;
    EXPECT_EQ(1, queue.dequeue(item, 0, 50000));
    EXPECT_GE(counter.elapsed(), 40000) << "a spurious wake-up may end the wait early, but not this early";
    EXPECT_EQ(nullptr, item);
    EXPECT_EQ(1, queue.dequeue(item, 0, 0));
}

TEST(PlatformQueue, DeactivatedQueueDropsItemsAndAnswersTwoAtOnce) {
    osk::Queue<int*> queue;
    int value = 1;
    queue.enqueue(&value);
    EXPECT_TRUE(queue.isActive());
    queue.deactivate();
    EXPECT_FALSE(queue.isActive());
    int* item = nullptr;
    EXPECT_EQ(2, queue.dequeue(item, 600, 0));
    EXPECT_EQ(nullptr, item);
    EXPECT_FALSE(queue.enqueue(&value));
    EXPECT_EQ(2, queue.dequeue(item, 600, 0));
}

TEST(PlatformQueue, DeactivateWakesAWaitingThreadPromptly) {
    osk::Queue<int*> queue;
    std::atomic<int> result{-1};
    std::atomic<long> waited{0};
    std::promise<void> waiting;
    BodyThread thread([&] {
        int* item = nullptr;
        ElapsedTimeCounter counter;
        waiting.set_value();
        result = queue.dequeue(item, 600, 0);
        waited = counter.elapsed();
    });
    ASSERT_TRUE(thread.start());
    waiting.get_future().wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    queue.deactivate();
    thread.join();
    EXPECT_EQ(2, result.load());
    EXPECT_LT(waited.load(), 60L * 1000 * 1000) << "woken long before the 600 s time-out";
}

TEST(PlatformQueue, EnqueueWakesAWaitingThread) {
    osk::Queue<int*> queue;
    int value = 7;
    int* taken = nullptr;
    std::atomic<int> result{-1};
    BodyThread thread([&] { result = queue.dequeue(taken, 600, 0); });
    ASSERT_TRUE(thread.start());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    queue.enqueue(&value);
    thread.join();
    EXPECT_EQ(0, result.load());
    EXPECT_EQ(&value, taken);
}

TEST(PlatformQueue, ThreadCancelledWhileWaitingLeavesTheQueueUsable) {
    osk::Queue<int*> queue;
    std::promise<void> waiting;
    BodyThread thread([&] {
        int* item = nullptr;
        waiting.set_value();
        for (;;)
            queue.dequeue(item, 600, 0);
    });
    ASSERT_TRUE(thread.start());
    waiting.get_future().wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_TRUE(thread.cancel());
    ASSERT_TRUE(thread.join());

    int value = 3;
    EXPECT_TRUE(finishes([&] {
        queue.enqueue(&value);
        int* item = nullptr;
        queue.dequeue(item, 0, 0);
        queue.deactivate();
    }));
}

TEST(PlatformLocks, CancelledThreadLeavesNoMutexHeld) {
    osk::Mutex safeLocked;
    cancelInside([&](const std::function<void()>& wait) { osk::withCancelSafeLock(safeLocked, wait); });
    EXPECT_TRUE(safeLocked.tryLock());
    safeLocked.unlock();

    osk::Mutex guarded;
    cancelInside([&](const std::function<void()>& wait) {
        osk::Guard guard(guarded);
        wait();
    });
    EXPECT_TRUE(guarded.tryLock());
    guarded.unlock();

    osk::CritSect section;
    cancelInside([&](const std::function<void()>& wait) {
        osk::Guard outer(section);
        osk::Guard inner(section);
        wait();
    });
    EXPECT_EQ(0, pthread_mutex_trylock(section.native()));
    pthread_mutex_unlock(section.native());
}

TEST(PlatformLocks, CritSectMayBeEnteredAgainByItsHolder) {
    osk::CritSect section;
    EXPECT_TRUE(finishes([&] {
        osk::Guard outer(section);
        osk::Guard inner(section);
    }));
    std::atomic<bool> entered{false};
    std::thread other;
    {
        osk::Guard held(section);
        other = std::thread([&] {
            osk::Guard guard(section);
            entered = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_FALSE(entered.load()) << "another thread waits while the section is held";
    }
    // Joined, not detached: the section must outlive the other thread's leave().
    other.join();
    EXPECT_TRUE(entered.load());
}

TEST(PlatformLocks, GuardDefersCancellationOnlyWhileHeld) {
    osk::Mutex mutex;
    int inside = -1;
    int after = -1;
    {
        int ignored;
        pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, &ignored);
        {
            osk::Guard guard(mutex);
            pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &inside);
            pthread_setcanceltype(inside, &ignored);
        }
        pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &after);
    }
    EXPECT_EQ(PTHREAD_CANCEL_DEFERRED, inside);
    EXPECT_EQ(PTHREAD_CANCEL_ASYNCHRONOUS, after);
}

TEST(PlatformElapsedTimeCounter, CountsMicrosecondsFromItsStart) {
    ElapsedTimeCounter counter;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    long first = counter.elapsed();
    EXPECT_GE(first, 20000);
    EXPECT_LT(first, 20L * 1000 * 1000);
    counter.start();
    EXPECT_LT(counter.elapsed(), first);
}
