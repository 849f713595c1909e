// One unit of work for an OperationQueue.
#ifndef VELMOR_OPERATION_H_
#define VELMOR_OPERATION_H_

#include <atomic>
#include <string>

#include "velmor/Export.h"

namespace velmor {

// Subclasses put their work in `main`. An operation runs at most once: the
// queue it was added to calls `start` on one of its threads, and `start`
// runs `main` unless the operation was cancelled first. An operation may be
// added to one queue, once.
//
// Cancelling only raises a flag. Work already running is never interrupted;
// a long `main` tests `isCancelled` at the points where stopping is safe.
// The flags may be read and `cancel` called from any thread.
class VELMOR_EXPORT Operation {
 public:
  Operation() = default;
  virtual ~Operation() = default;

  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  // Runs `main` on the calling thread unless cancelled, then marks the
  // operation finished. A second call does nothing. Exceptions from `main`
  // pass to the caller after the operation is marked finished.
  void start();

  // The work.
  virtual void main() = 0;

  void cancel() { cancelled_.store(true); }
  bool isCancelled() const { return cancelled_.load(); }
  bool isExecuting() const { return executing_.load(); }
  bool isFinished() const { return finished_.load(); }

  // "<Operation: 0x…>" with the object's address, for log lines.
  std::string description() const;

 private:
  friend class OperationQueue;

  std::atomic<bool> started_{false};
  std::atomic<bool> enqueued_{false};
  std::atomic<bool> cancelled_{false};
  std::atomic<bool> executing_{false};
  std::atomic<bool> finished_{false};
};

}  // namespace velmor

#endif  // VELMOR_OPERATION_H_
