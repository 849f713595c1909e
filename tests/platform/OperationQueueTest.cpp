#include "velmor/OperationQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <iterator>
#include <memory>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "testing/RecordingLoggerDelegate.h"
#include "testing/WaitableCounter.h"
#include "velmor/BlockOperation.h"
#include "velmor/Exception.h"

namespace velmor {
namespace {

using test::WaitableCounter;

// Tracks how many operations run at once, and opens a gate once `target`
// of them have been inside together.
class ConcurrencyProbe final {
 public:
  explicit ConcurrencyProbe(int target) : target_(target) {}
  void enter() {
    const int now = ++running_;
    for (int most = most_.load(); now > most && !most_.compare_exchange_weak(most, now);) {
    }
    if (now >= target_) targetReached_.increment();
  }
  void leave() { --running_; }
  int most() const { return most_.load(); }
  void waitForTarget() { targetReached_.waitFor(1); }

 private:
  const int target_;
  std::atomic<int> running_{0};
  std::atomic<int> most_{0};
  WaitableCounter targetReached_;
};

std::size_t threadCount() {
  using std::filesystem::directory_iterator;
  return static_cast<std::size_t>(
      std::distance(directory_iterator("/proc/self/task"), directory_iterator()));
}

// Threads end on their own after the queue drains; give them time to go.
bool waitForThreadCountAtMost(std::size_t limit) {
  const auto deadline = std::chrono::steady_clock::now() + test::kGenerousTimeout;
  while (threadCount() > limit) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

TEST(OperationQueueTest, StartsInAddOrderAndRunsUpToTheMaximumAtOnce) {
  for (const int maximum : {1, 3}) {
    SCOPED_TRACE(maximum);
    OperationQueue queue;
    queue.setMaxConcurrentOperationCount(maximum);
    ConcurrencyProbe probe(maximum);
    WaitableCounter entered;
    WaitableCounter allAdded;
    std::mutex orderMutex;
    std::vector<int> order;
    for (int i = 0; i < 30; ++i) {
      queue.addOperationWithBlock([&, i] {
        probe.enter();
        {
          std::lock_guard<std::mutex> lock(orderMutex);
          order.push_back(i);
        }
        entered.increment();
        // Holds the first ones until the queue is full and running, so that
        // a queue ignoring its maximum would have started more of them.
        allAdded.waitFor(1);
        probe.waitForTarget();
        probe.leave();
      });
    }
    ASSERT_TRUE(entered.waitFor(maximum));
    allAdded.increment();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(probe.most(), maximum);
    if (maximum == 1) {
      std::vector<int> expected(30);
      std::iota(expected.begin(), expected.end(), 0);
      EXPECT_EQ(order, expected);
    }
  }
}

TEST(OperationQueueTest, CountsUntilStartReturnsAndCancelledOnesStillFinish) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(1);
  WaitableCounter started;
  WaitableCounter gate;
  std::atomic<std::size_t> seenByFirst{0};
  std::atomic<std::size_t> seenByLast{0};
  std::atomic<int> skippedMains{0};
  const auto first = BlockOperation::blockOperationWithBlock([&] {
    started.increment();
    gate.waitFor(1);
    seenByFirst = queue.operationCount();
  });
  const auto second = BlockOperation::blockOperationWithBlock([&] { ++skippedMains; });
  const auto third = BlockOperation::blockOperationWithBlock([&] { ++skippedMains; });
  for (const auto& operation : {first, second, third}) queue.addOperation(operation);
  ASSERT_TRUE(started.waitFor(1));
  queue.cancelAllOperations();
  queue.addOperationWithBlock([&] { seenByLast = queue.operationCount(); });
  EXPECT_THROW(queue.addOperation(second), InvalidArgumentException);
  EXPECT_EQ(queue.operationCount(), 4u);

  gate.increment();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(seenByFirst, 4u);
  EXPECT_EQ(seenByLast, 1u);
  EXPECT_EQ(skippedMains, 0);
  for (const auto& operation : {first, second, third}) {
    EXPECT_TRUE(operation->isCancelled());
    EXPECT_TRUE(operation->isFinished());
  }
  EXPECT_EQ(queue.operationCount(), 0u);
}

TEST(OperationQueueTest, WaitCoversOperationsAddedFromInsideAnOperation) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(1);
  std::atomic<bool> innerRan{false};
  queue.addOperationWithBlock([&] { queue.addOperationWithBlock([&] { innerRan = true; }); });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(innerRan);
}

TEST(OperationQueueTest, DestructorWaitsForEveryAddedOperation) {
  std::atomic<int> finished{0};
  WaitableCounter gate;
  std::thread opener;
  {
    OperationQueue queue;
    queue.setMaxConcurrentOperationCount(2);
    for (int i = 0; i < 10; ++i) {
      queue.addOperationWithBlock([&] {
        gate.waitFor(1);
        ++finished;
      });
    }
    opener = std::thread([&] { gate.increment(); });
  }
  EXPECT_EQ(finished, 10);
  opener.join();
}

TEST(OperationQueueTest, DroppingTheQueueInsideItsOwnOperationLetsTheRestRun) {
  auto queue = std::make_shared<OperationQueue>();
  queue->setMaxConcurrentOperationCount(1);
  WaitableCounter gate;
  WaitableCounter dropped;
  WaitableCounter laterRan;
  auto owner = std::make_shared<std::shared_ptr<OperationQueue>>(queue);
  queue->addOperationWithBlock([owner, &gate, &dropped] {
    gate.waitFor(1);
    owner->reset();
    dropped.increment();
  });
  queue->addOperationWithBlock([&laterRan] { laterRan.increment(); });
  queue.reset();
  owner.reset();
  gate.increment();
  EXPECT_TRUE(dropped.waitFor(1));
  EXPECT_TRUE(laterRan.waitFor(1));
}

TEST(OperationQueueTest, IdleQueuesHoldNoThreadsAndStartNewOnesForNewWork) {
  // A first thread makes ThreadSanitizer start its own helper thread; count
  // from after that.
  std::thread([] {}).join();
  const std::size_t before = threadCount();
  std::vector<std::unique_ptr<OperationQueue>> queues(100);
  for (auto& queue : queues) queue = std::make_unique<OperationQueue>();
  std::atomic<int> ran{0};
  for (int round = 0; round < 2; ++round) {
    for (auto& queue : queues) {
      for (int i = 0; i < 3; ++i) queue->addOperationWithBlock([&] { ++ran; });
    }
    for (auto& queue : queues) queue->waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(waitForThreadCountAtMost(before))
        << "round " << round << ": " << threadCount() << " threads, " << before << " before";
  }
  EXPECT_EQ(ran, 600);
}

// The application's own loop: a queue of tasks drained by hand.
struct ManuallyDrainedQueue {
  std::deque<OperationQueue::Task> tasks;
  std::vector<std::thread::id> postingThreads;

  OperationQueue::PostFunction post() {
    return [this](OperationQueue::Task task) {
      postingThreads.push_back(std::this_thread::get_id());
      tasks.push_back(std::move(task));
    };
  }
  void runNext() {
    OperationQueue::Task task = std::move(tasks.front());
    tasks.pop_front();
    task();
  }
  void drain() {
    while (!tasks.empty()) runNext();
  }
};

TEST(OperationQueueTest, PostFunctionQueueRunsOperationsAsTheApplicationsTasks) {
  test::RecordingLoggerDelegate recorder;
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelError, &recorder);
  ManuallyDrainedQueue loop;
  auto queue = std::make_unique<OperationQueue>(loop.post());
  std::vector<int> ran;
  queue->addOperationWithBlock([] { throw std::runtime_error("in the loop"); });
  for (int i = 0; i < 3; ++i) queue->addOperationWithBlock([&ran, i] { ran.push_back(i); });
  EXPECT_EQ(loop.tasks.size(), 4u);
  EXPECT_TRUE(ran.empty());
  EXPECT_EQ(queue->operationCount(), 4u);
  EXPECT_EQ(loop.postingThreads, std::vector<std::thread::id>(4, std::this_thread::get_id()));

  EXPECT_NO_THROW(loop.runNext());
  loop.runNext();
  EXPECT_EQ(ran, std::vector<int>{0});
  EXPECT_EQ(queue->operationCount(), 2u);
  ASSERT_EQ(recorder.messages().size(), 1u);
  EXPECT_TRUE(recorder.messages()[0].ends_with(" ended with an exception: in the loop"));

  queue->cancelAllOperations();
  loop.drain();
  EXPECT_EQ(ran, std::vector<int>{0});
  EXPECT_EQ(queue->operationCount(), 0u);
  queue->waitUntilAllOperationsAreFinished();

  // Tasks still in the loop when their queue goes run all the same.
  queue->addOperationWithBlock([&ran] { ran.push_back(9); });
  queue.reset();
  loop.drain();
  EXPECT_EQ(ran, (std::vector<int>{0, 9}));
}

TEST(OperationQueueTest, ExceptionsFromMainAreLoggedAndTheQueueGoesOn) {
  test::RecordingLoggerDelegate recorder;
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelError, &recorder);
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(1);
  const std::shared_ptr<Operation> throwing[] = {
      BlockOperation::blockOperationWithBlock([] { throw std::runtime_error("boom"); }),
      BlockOperation::blockOperationWithBlock([] { throw RangeException("index 7 beyond 3"); }),
      BlockOperation::blockOperationWithBlock([] { throw 42; }),
  };
  for (const auto& operation : throwing) queue.addOperation(operation);
  std::atomic<bool> laterRan{false};
  queue.addOperationWithBlock([&] { laterRan = true; });
  queue.waitUntilAllOperationsAreFinished();

  EXPECT_TRUE(laterRan);
  const std::string prefix = "ERROR\t" + queue.description() + ": ";
  EXPECT_EQ(
      recorder.messages(),
      (std::vector<std::string>{
          prefix + throwing[0]->description() + " ended with an exception: boom",
          prefix + throwing[1]->description() + " ended with NSRangeException: index 7 beyond 3",
          prefix + throwing[2]->description() + " ended with an exception of unknown type",
      }));
  for (const auto& operation : throwing) EXPECT_TRUE(operation->isFinished());
}

}  // namespace
}  // namespace velmor
