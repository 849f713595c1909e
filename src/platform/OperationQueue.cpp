#include "velmor/OperationQueue.h"

#include <algorithm>
#include <deque>
#include <system_error>
#include <thread>
#include <unordered_set>
#include <utility>

#include "platform/CurrentException.h"
#include "platform/Mutex.h"
#include "support/Format.h"
#include "velmor/BlockOperation.h"
#include "velmor/Exception.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {

namespace {

void logError(const std::string& message) {
  // A worker must outlive a logger delegate that throws as well.
  try {
    VelmorAuthorizationLogger::sharedLogger().log(message, VelmorAuthorizationLogger::kLevelError);
  } catch (...) {
  }
}

}  // namespace

// Everything the queue's threads and posted tasks touch. Detached workers and
// tasks hold it by shared_ptr, so it outlives the OperationQueue object when
// they need it to.
struct OperationQueue::State {
  State(PostFunction postFunction, std::string queueDescription)
      : post(std::move(postFunction)), description(std::move(queueDescription)) {}

  // Empty for a queue with worker threads.
  const PostFunction post;
  // The queue's description, for log lines written after it is gone.
  const std::string description;

  Mutex mutex;
  // Signalled whenever `count` drops to 0.
  CondVar drained;
  // Added to a worker queue and not started yet, in order.
  std::deque<std::shared_ptr<Operation>> waiting GUARDED_BY(mutex);
  // Running on a worker, or posted and not yet run; whoever runs each one
  // holds the reference, so the pointers stay valid while they are here.
  std::unordered_set<Operation*> held GUARDED_BY(mutex);
  std::size_t count GUARDED_BY(mutex) = 0;
  // Worker threads alive, and how many of them are inside an operation.
  std::size_t workers GUARDED_BY(mutex) = 0;
  std::size_t running GUARDED_BY(mutex) = 0;
  std::int64_t maxConcurrent GUARDED_BY(mutex) = kDefaultMaxConcurrentOperationCount;

  std::size_t limit() const REQUIRES(mutex) {
    if (maxConcurrent != kDefaultMaxConcurrentOperationCount) {
      return static_cast<std::size_t>(maxConcurrent);
    }
    return std::max(1u, std::thread::hardware_concurrency());
  }

  // True when a waiting operation has no worker to pick it up and the limit
  // allows another. Workers that are not inside an operation are about to
  // take the next waiting one.
  bool needsWorker() const REQUIRES(mutex) {
    return workers < limit() && waiting.size() > workers - running;
  }

  void finishOne() REQUIRES(mutex) {
    if (--count == 0) drained.signalAll();
  }

  void run(Operation& operation) const;
  void runPosted(std::shared_ptr<Operation>& operation);
  static void startWorker(const std::shared_ptr<State>& state);
  static void serve(const std::shared_ptr<State>& state);
};

namespace {

// The queue whose worker loop runs on this thread, if any: its destructor
// must not wait for the operation it is called from.
thread_local const void* servedQueueState = nullptr;

}  // namespace

void OperationQueue::State::run(Operation& operation) const {
  // A worker must survive whatever an operation throws; the operation has
  // already been marked finished when the exception reaches here.
  try {
    operation.start();
  } catch (...) {
    logError(stringWithFormat("%@: %@ ended with %@", description, operation.description(),
                              currentExceptionDescription()));
  }
}

void OperationQueue::State::runPosted(std::shared_ptr<Operation>& operation) {
  // The application may run a copy of the task as well; only the first run
  // counts.
  if (!operation) return;
  run(*operation);
  bool wasHeld;
  {
    MutexLock lock(mutex);
    wasHeld = held.erase(operation.get()) == 1;
  }
  // Destroyed before the count drops, so that a waiter that then destroys
  // what the operation refers to does so after the operation is gone.
  operation.reset();
  if (wasHeld) {
    MutexLock lock(mutex);
    finishOne();
  }
}

void OperationQueue::State::startWorker(const std::shared_ptr<State>& state) {
  try {
    std::thread([state] { serve(state); }).detach();
  } catch (const std::system_error& e) {
    logError(
        stringWithFormat("%@: cannot start a worker thread: %s", state->description, e.what()));
    serve(state);
  }
}

void OperationQueue::State::serve(const std::shared_ptr<State>& state) {
  const void* const outerQueueState = servedQueueState;
  servedQueueState = state.get();
  state->mutex.lock();
  while (!state->waiting.empty() && state->running < state->limit()) {
    std::shared_ptr<Operation> operation = std::move(state->waiting.front());
    state->waiting.pop_front();
    state->held.insert(operation.get());
    ++state->running;
    state->mutex.unlock();

    state->run(*operation);

    state->mutex.lock();
    state->held.erase(operation.get());
    state->mutex.unlock();
    // See runPosted: the operation goes before its count does.
    operation.reset();
    state->mutex.lock();
    --state->running;
    state->finishOne();
  }
  // Nothing left that this thread may start: end it, so that an idle queue
  // holds no thread. A later addOperation starts a new one.
  --state->workers;
  state->mutex.unlock();
  servedQueueState = outerQueueState;
}

OperationQueue::OperationQueue() : OperationQueue(PostFunction()) {}

OperationQueue::OperationQueue(PostFunction post)
    : state_(std::make_shared<State>(std::move(post), description())) {}

OperationQueue::~OperationQueue() {
  if (state_->post || servedQueueState == state_.get()) return;
  waitUntilAllOperationsAreFinished();
}

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
  if (!operation) {
    throw InvalidArgumentException("-[OperationQueue addOperation:]: operation is null");
  }
  if (operation->isFinished()) {
    throw InvalidArgumentException(
        "-[OperationQueue addOperation:]: operation is finished and cannot be enqueued");
  }
  if (operation->started_.load()) {
    throw InvalidArgumentException(
        "-[OperationQueue addOperation:]: operation is executing and cannot be enqueued");
  }
  if (operation->enqueued_.exchange(true)) {
    throw InvalidArgumentException(
        "-[OperationQueue addOperation:]: operation is already enqueued on a queue");
  }

  if (state_->post) {
    {
      MutexLock lock(state_->mutex);
      state_->held.insert(operation.get());
      ++state_->count;
    }
    Operation* const posted = operation.get();
    try {
      state_->post([state = state_, operation = std::move(operation)]() mutable {
        state->runPosted(operation);
      });
    } catch (...) {
      // The task never reached the application: take it back.
      MutexLock lock(state_->mutex);
      if (state_->held.erase(posted) == 1) state_->finishOne();
      throw;
    }
    return;
  }

  bool startWorker;
  {
    MutexLock lock(state_->mutex);
    state_->waiting.push_back(std::move(operation));
    ++state_->count;
    startWorker = state_->needsWorker();
    if (startWorker) ++state_->workers;
  }
  if (startWorker) State::startWorker(state_);
}

void OperationQueue::addOperationWithBlock(std::function<void()> block) {
  addOperation(BlockOperation::blockOperationWithBlock(std::move(block)));
}

std::size_t OperationQueue::operationCount() const {
  MutexLock lock(state_->mutex);
  return state_->count;
}

void OperationQueue::cancelAllOperations() {
  MutexLock lock(state_->mutex);
  for (const std::shared_ptr<Operation>& operation : state_->waiting) operation->cancel();
  for (Operation* operation : state_->held) operation->cancel();
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
  MutexLock lock(state_->mutex);
  while (state_->count > 0) state_->drained.wait(state_->mutex);
}

bool OperationQueue::isCurrentQueue() const { return servedQueueState == state_.get(); }

std::int64_t OperationQueue::maxConcurrentOperationCount() const {
  MutexLock lock(state_->mutex);
  return state_->maxConcurrent;
}

void OperationQueue::setMaxConcurrentOperationCount(std::int64_t count) {
  if (count < 1 && count != kDefaultMaxConcurrentOperationCount) {
    throw InvalidArgumentException(stringWithFormat(
        "-[OperationQueue setMaxConcurrentOperationCount:]: count (%ld) must be at least 1",
        count));
  }
  std::size_t toStart = 0;
  {
    MutexLock lock(state_->mutex);
    state_->maxConcurrent = count;
    if (state_->post) return;
    while (state_->needsWorker()) {
      ++state_->workers;
      ++toStart;
    }
  }
  for (; toStart > 0; --toStart) State::startWorker(state_);
}

std::string OperationQueue::description() const {
  return stringWithFormat("<OperationQueue: %p>", static_cast<const void*>(this));
}

}  // namespace velmor
