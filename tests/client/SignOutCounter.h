// A client delegate that counts the sign-out notices it is sent.
#ifndef VELMOR_TESTS_CLIENT_SIGN_OUT_COUNTER_H_
#define VELMOR_TESTS_CLIENT_SIGN_OUT_COUNTER_H_

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "velmor/VelmorAuthorizationClient.h"

namespace velmor::test {

// Notices arrive on the timer thread or a waking thread; the test waits
// for the first with a generous bound.
class SignOutCounter final : public VelmorAuthorizationClientDelegate {
 public:
  void velmorAuthorizationClientDidSignOut(VelmorAuthorizationClient&) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      ++calls_;
    }
    called_.notify_all();
  }
  int calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
  }
  void reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_ = 0;
  }
  bool waitForCall() {
    std::unique_lock<std::mutex> lock(mutex_);
    return called_.wait_for(lock, std::chrono::seconds(30), [&] { return calls_ > 0; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable called_;
  int calls_ = 0;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_CLIENT_SIGN_OUT_COUNTER_H_
