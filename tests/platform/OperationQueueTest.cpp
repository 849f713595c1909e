#include "velmor/OperationQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <limits>
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

// Tracks how many operations run at the same moment.
class ConcurrencyProbe final {
 public:
  void enter() {
    const int now = ++running_;
    int most = most_.load();
    while (now > most && !most_.compare_exchange_weak(most, now)) {
    }
    if (now >= 3) threeAtOnce_.increment();
  }
  void leave() { --running_; }
  int most() const { return most_.load(); }
  // Opens once three operations have been inside together.
  bool waitForThreeAtOnce() { return threeAtOnce_.waitFor(1); }

 private:
  std::atomic<int> running_{0};
  std::atomic<int> most_{0};
  WaitableCounter threeAtOnce_;
};

std::size_t threadCount() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry :
       std::filesystem::directory_iterator("/proc/self/task")) {
    ++count;
  }
  return count;
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

TEST(OperationQueueTest, SerialQueueStartsInAddOrderAndNeverTwoAtOnce) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(1);
  ConcurrencyProbe probe;
  std::mutex orderMutex;
  std::vector<int> order;
  for (int i = 0; i < 50; ++i) {
    queue.addOperationWithBlock([&, i] {
      probe.enter();
      {
        std::lock_guard<std::mutex> lock(orderMutex);
        order.push_back(i);
      }
      std::this_thread::yield();
      probe.leave();
    });
  }
  queue.waitUntilAllOperationsAreFinished();

  std::vector<int> expected(50);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(order, expected);
  EXPECT_EQ(probe.most(), 1);
}

TEST(OperationQueueTest, RunsUpToTheMaximumAtOnceAndNoMore) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(3);
  ConcurrencyProbe probe;
  for (int i = 0; i < 9; ++i) {
    queue.addOperationWithBlock([&] {
      probe.enter();
      probe.waitForThreeAtOnce();
      probe.leave();
    });
  }
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(probe.most(), 3);
}

TEST(OperationQueueTest, RaisingTheMaximumStartsWaitingOperations) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(1);
  ConcurrencyProbe probe;
  for (int i = 0; i < 3; ++i) {
    queue.addOperationWithBlock([&] {
      probe.enter();
      probe.waitForThreeAtOnce();
      probe.leave();
    });
  }
  queue.setMaxConcurrentOperationCount(3);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(probe.most(), 3);
}

TEST(OperationQueueTest, RejectsMaximumsBelowOne) {
  const struct {
    std::int64_t count;
    const char* reason;
  } cases[] = {
      {0, "-[OperationQueue setMaxConcurrentOperationCount:]: count (0) must be at least 1"},
      {-2, "-[OperationQueue setMaxConcurrentOperationCount:]: count (-2) must be at least 1"},
      {std::numeric_limits<std::int64_t>::min(),
       "-[OperationQueue setMaxConcurrentOperationCount:]: count (-9223372036854775808) must be "
       "at least 1"},
  };
  OperationQueue queue;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.count);
    try {
      queue.setMaxConcurrentOperationCount(c.count);
      ADD_FAILURE() << "no exception";
    } catch (const InvalidArgumentException& e) {
      EXPECT_EQ(e.reason(), c.reason);
    }
    EXPECT_EQ(queue.maxConcurrentOperationCount(),
              OperationQueue::kDefaultMaxConcurrentOperationCount);
  }
}

TEST(OperationQueueTest, RejectsOperationsItCannotRun) {
  WaitableCounter gate;
  OperationQueue queue;
  const auto waiting = BlockOperation::blockOperationWithBlock([&] { gate.waitFor(1); });
  queue.addOperation(waiting);
  const auto finished = BlockOperation::blockOperationWithBlock([] {});
  finished->start();

  const struct {
    const char* name;
    std::shared_ptr<Operation> operation;
    const char* reason;
  } cases[] = {
      {"null", nullptr, "-[OperationQueue addOperation:]: operation is null"},
      {"added twice", waiting,
       "-[OperationQueue addOperation:]: operation is already enqueued on a queue"},
      {"finished", finished,
       "-[OperationQueue addOperation:]: operation is finished and cannot be enqueued"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      queue.addOperation(c.operation);
      ADD_FAILURE() << "no exception";
    } catch (const InvalidArgumentException& e) {
      EXPECT_EQ(e.reason(), c.reason);
    }
  }
  EXPECT_EQ(queue.operationCount(), 1u);
  EXPECT_THROW(queue.addOperationWithBlock(nullptr), InvalidArgumentException);
  gate.increment();
}

TEST(OperationQueueTest, CountsAnOperationFromAddUntilItsStartReturns) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(1);
  WaitableCounter gate;
  std::atomic<std::size_t> seenByFirst{0};
  std::atomic<std::size_t> seenByLast{0};
  queue.addOperationWithBlock([&] {
    gate.waitFor(1);
    seenByFirst = queue.operationCount();
  });
  queue.addOperationWithBlock([&] { seenByLast = queue.operationCount(); });
  EXPECT_EQ(queue.operationCount(), 2u);

  gate.increment();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(seenByFirst, 2u);
  EXPECT_EQ(seenByLast, 1u);
  EXPECT_EQ(queue.operationCount(), 0u);
}

TEST(OperationQueueTest, CancelledOperationsSkipMainButStillFinish) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(1);
  WaitableCounter started;
  WaitableCounter gate;
  std::atomic<bool> runningOneCompleted{false};
  std::atomic<int> skippedMains{0};
  const auto running = BlockOperation::blockOperationWithBlock([&] {
    started.increment();
    gate.waitFor(1);
    runningOneCompleted = true;
  });
  const auto queued1 = BlockOperation::blockOperationWithBlock([&] { ++skippedMains; });
  const auto queued2 = BlockOperation::blockOperationWithBlock([&] { ++skippedMains; });
  queue.addOperation(running);
  queue.addOperation(queued1);
  queue.addOperation(queued2);
  ASSERT_TRUE(started.waitFor(1));

  queue.cancelAllOperations();
  EXPECT_EQ(queue.operationCount(), 3u);
  gate.increment();
  queue.waitUntilAllOperationsAreFinished();

  EXPECT_TRUE(runningOneCompleted);
  EXPECT_EQ(skippedMains, 0);
  for (const auto& operation : {running, queued1, queued2}) {
    EXPECT_TRUE(operation->isCancelled());
    EXPECT_TRUE(operation->isFinished());
    EXPECT_FALSE(operation->isExecuting());
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

TEST(OperationQueueTest, ManyAddingThreadsLoseNothing) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(2);
  std::atomic<int> ran{0};
  std::vector<std::thread> adders;
  for (int t = 0; t < 4; ++t) {
    adders.emplace_back([&] {
      for (int i = 0; i < 250; ++i) queue.addOperationWithBlock([&] { ++ran; });
    });
  }
  for (std::thread& adder : adders) adder.join();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(ran, 1000);
  EXPECT_EQ(queue.operationCount(), 0u);
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

TEST(OperationQueueTest, IdleQueuesHoldNoThreads) {
  const std::size_t before = threadCount();
  std::vector<std::unique_ptr<OperationQueue>> queues;
  std::atomic<int> ran{0};
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    for (int q = 0; q < 100; ++q) {
      if (round == 0) queues.push_back(std::make_unique<OperationQueue>());
      for (int i = 0; i < 3; ++i) queues[q]->addOperationWithBlock([&] { ++ran; });
    }
    for (const auto& queue : queues) queue->waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(waitForThreadCountAtMost(before))
        << threadCount() << " threads, " << before << " before";
  }
  EXPECT_EQ(ran, 600);
}

// A queue of the application's own, drained by hand.
class PostedTasks final {
 public:
  OperationQueue::PostFunction postFunction() {
    return [this](OperationQueue::Task task) {
      postingThreads_.push_back(std::this_thread::get_id());
      tasks_.push_back(std::move(task));
    };
  }
  std::size_t size() const { return tasks_.size(); }
  OperationQueue::Task& front() { return tasks_.front(); }
  void runNext() {
    OperationQueue::Task task = std::move(tasks_.front());
    tasks_.pop_front();
    task();
  }
  void drain() {
    while (!tasks_.empty()) runNext();
  }
  const std::vector<std::thread::id>& postingThreads() const { return postingThreads_; }

 private:
  std::deque<OperationQueue::Task> tasks_;
  std::vector<std::thread::id> postingThreads_;
};

TEST(OperationQueueTest, PostFunctionQueueRunsOperationsAsTheApplicationsTasks) {
  PostedTasks tasks;
  OperationQueue queue(tasks.postFunction());
  std::vector<int> ran;
  for (int i = 0; i < 3; ++i) queue.addOperationWithBlock([&ran, i] { ran.push_back(i); });
  EXPECT_EQ(tasks.size(), 3u);
  EXPECT_TRUE(ran.empty());
  EXPECT_EQ(queue.operationCount(), 3u);
  EXPECT_EQ(tasks.postingThreads(), std::vector<std::thread::id>(3, std::this_thread::get_id()));

  tasks.runNext();
  EXPECT_EQ(ran, std::vector<int>{0});
  EXPECT_EQ(queue.operationCount(), 2u);

  queue.cancelAllOperations();
  tasks.drain();
  EXPECT_EQ(ran, std::vector<int>{0});
  EXPECT_EQ(queue.operationCount(), 0u);
  queue.waitUntilAllOperationsAreFinished();
}

TEST(OperationQueueTest, PostedTaskRunTwiceCountsOnce) {
  PostedTasks tasks;
  OperationQueue queue(tasks.postFunction());
  int runs = 0;
  queue.addOperationWithBlock([&] { ++runs; });
  queue.addOperationWithBlock([] {});
  const OperationQueue::Task copy = tasks.front();
  tasks.runNext();
  copy();
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(queue.operationCount(), 1u);
}

TEST(OperationQueueTest, PostedTasksOutliveTheirQueue) {
  PostedTasks tasks;
  int runs = 0;
  {
    OperationQueue queue(tasks.postFunction());
    queue.addOperationWithBlock([&] { ++runs; });
    queue.addOperationWithBlock([&] { ++runs; });
  }
  tasks.drain();
  EXPECT_EQ(runs, 2);
}

TEST(OperationQueueTest, PostFunctionThatThrowsTakesTheOperationBack) {
  OperationQueue queue([](OperationQueue::Task) { throw std::runtime_error("loop closed"); });
  EXPECT_THROW(queue.addOperationWithBlock([] {}), std::runtime_error);
  EXPECT_EQ(queue.operationCount(), 0u);
  queue.waitUntilAllOperationsAreFinished();
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

TEST(OperationQueueTest, ExceptionFromAPostedOperationStaysInsideTheTask) {
  test::RecordingLoggerDelegate recorder;
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelError, &recorder);
  PostedTasks tasks;
  OperationQueue queue(tasks.postFunction());
  queue.addOperationWithBlock([] { throw std::runtime_error("in the loop"); });
  EXPECT_NO_THROW(tasks.drain());
  EXPECT_EQ(queue.operationCount(), 0u);
  ASSERT_EQ(recorder.messages().size(), 1u);
  EXPECT_TRUE(recorder.messages()[0].ends_with(" ended with an exception: in the loop"));
}

TEST(OperationQueueTest, DescriptionShowsTheAddress) {
  OperationQueue queue;
  char expected[64];
  std::snprintf(expected, sizeof expected, "<OperationQueue: %p>", static_cast<void*>(&queue));
  EXPECT_EQ(queue.description(), expected);
}

}  // namespace
}  // namespace velmor
