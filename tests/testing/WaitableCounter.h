// A counter that threads can wait on, with a generous deadline so that a
// loaded machine never fails a test by timing alone.
#ifndef VELMOR_TESTS_TESTING_WAITABLE_COUNTER_H_
#define VELMOR_TESTS_TESTING_WAITABLE_COUNTER_H_

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace velmor::test {

// Long enough for anything a test waits on; only a broken test reaches it.
inline constexpr std::chrono::seconds kGenerousTimeout{30};

// Counts events; a count of 1 serves as a one-shot event or an open gate.
class WaitableCounter final {
 public:
  void increment() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++value_;
    changed_.notify_all();
  }

  int value() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return value_;
  }

  // True once the count has reached `target`, false after `timeout`.
  bool waitFor(int target, std::chrono::steady_clock::duration timeout = kGenerousTimeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return value_ >= target; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  int value_ = 0;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TESTING_WAITABLE_COUNTER_H_
