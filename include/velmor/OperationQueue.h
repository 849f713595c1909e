// Runs operations on worker threads, or hands them to an application's own
// event loop.
#ifndef VELMOR_OPERATION_QUEUE_H_
#define VELMOR_OPERATION_QUEUE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "velmor/Export.h"
#include "velmor/Operation.h"

namespace velmor {

// A queue of operations, started in the order they were added.
//
// A queue made with the default constructor runs its operations on worker
// threads of its own: at most `maxConcurrentOperationCount` at a time (1
// makes the queue strictly serial). Threads are started when work arrives
// and end as soon as the queue is empty, so an idle queue holds no thread.
//
// A queue made from a post function hands each operation, as a task, to that
// function instead: that is how an application lets completions arrive on
// its own UI thread (the function posts the task to the toolkit's event
// loop). The function is called on the thread that adds the operation, and
// must eventually run every task it is given exactly once.
//
// An exception that escapes an operation's `main` is caught where the
// operation ran, written as one line at the error level through the shared
// VelmorAuthorizationLogger (a logger delegate that throws there is
// ignored), and otherwise ignored: the operation counts as finished and the
// queue goes on with the next one.
//
// All members may be called from any thread. The destructor of a queue with
// worker threads waits until every operation added to it has finished, so
// that nothing an operation uses is destroyed under it; called from one of
// the queue's own operations it cannot wait for itself and returns at once,
// the remaining operations still running. Worker threads are detached and
// keep only the queue's shared state alive, never the queue object.
// Operations handed to a post function keep what they need alive and may run
// after their queue is gone.
//
// Should the system refuse a new thread, the adding thread serves the queue
// itself before addOperation returns (and logs the refusal): slower, but no
// operation is left behind.
class VELMOR_EXPORT OperationQueue final {
 public:
  using Task = std::function<void()>;
  using PostFunction = std::function<void(Task)>;

  // The count a new worker-thread queue starts with: as many operations at
  // once as the machine has cores.
  static constexpr std::int64_t kDefaultMaxConcurrentOperationCount = -1;

  OperationQueue();
  explicit OperationQueue(PostFunction post);
  ~OperationQueue();

  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  // Queues `operation`; adding nullptr, an operation that was already added
  // somewhere, or one already started throws InvalidArgumentException.
  void addOperation(std::shared_ptr<Operation> operation);
  // Queues a BlockOperation running `block`; an empty block throws
  // InvalidArgumentException.
  void addOperationWithBlock(std::function<void()> block);

  // Operations added and not yet finished, running ones included: from the
  // moment addOperation returns until the operation's `start` has returned,
  // so an operation sees itself counted.
  std::size_t operationCount() const;

  // Cancels every operation the queue holds. Those not started never run
  // their `main`, but are still started and finished in turn, so counts and
  // waits stay right; running ones finish on their own.
  void cancelAllOperations();

  // Blocks until every operation added so far, and every one added while
  // waiting, has finished. Calling it from an operation of the same queue,
  // or on a post-function queue from the thread that must run its tasks,
  // never returns.
  void waitUntilAllOperationsAreFinished();

  // Whether the calling thread is one of this queue's workers, inside one of
  // its operations (also in a task another queue's post function runs there
  // inline): a wait for this queue from here would wait for itself. Always
  // false for a queue made from a post function.
  bool isCurrentQueue() const;

  // Ignored by a queue made from a post function; values below 1 other than
  // kDefaultMaxConcurrentOperationCount throw InvalidArgumentException.
  // Raising it starts waiting operations at once; lowering it lets running
  // ones finish.
  std::int64_t maxConcurrentOperationCount() const;
  void setMaxConcurrentOperationCount(std::int64_t count);

  // "<OperationQueue: 0x…>" with the object's address, for log lines.
  std::string description() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace velmor

#endif  // VELMOR_OPERATION_QUEUE_H_
