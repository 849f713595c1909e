// A mutex, a scoped lock and a condition variable that clang's thread-safety
// analysis understands.
#ifndef VELMOR_PLATFORM_MUTEX_H_
#define VELMOR_PLATFORM_MUTEX_H_

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/ThreadAnnotations.h"

namespace velmor {

// A non-recursive exclusive lock. Name it in GUARDED_BY on the data it
// protects; prefer MutexLock to calling lock and unlock by hand.
class CAPABILITY("mutex") Mutex final {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  friend class CondVar;
  std::mutex mutex_;
};

// Holds `mutex` from construction to destruction.
class SCOPED_CAPABILITY MutexLock final {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }

  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

// A condition variable for waiters holding a Mutex. Waits may wake without a
// signal, so waiters test their condition in a loop.
class CondVar final {
 public:
  CondVar() = default;
  CondVar(const CondVar&) = delete;
  CondVar& operator=(const CondVar&) = delete;

  // Releases `mutex`, sleeps until signalled and takes `mutex` again.
  void wait(Mutex& mutex) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    condition_.wait(lock);
    lock.release();
  }

  // As wait, but gives up at `deadline` (a wall-clock time, so time the
  // machine spent asleep counts). False when the deadline passed.
  bool waitUntil(Mutex& mutex, std::chrono::system_clock::time_point deadline) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    const bool signalled = condition_.wait_until(lock, deadline) == std::cv_status::no_timeout;
    lock.release();
    return signalled;
  }

  void signal() { condition_.notify_one(); }
  void signalAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_MUTEX_H_
