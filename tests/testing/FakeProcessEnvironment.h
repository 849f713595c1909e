// An in-memory ProcessEnvironment for tests: a debugger that can be
// attached at will and a console that records what is written to it.
#ifndef VELMOR_TESTING_FAKE_PROCESS_ENVIRONMENT_H_
#define VELMOR_TESTING_FAKE_PROCESS_ENVIRONMENT_H_

#include <cstddef>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/ProcessEnvironment.h"

namespace velmor::test {

// Thread-safe. Fault switches: a console that drops every write (as a closed
// standard error would) and services that throw, to check that callers
// contain them.
class FakeProcessEnvironment final : public ProcessEnvironment {
 public:
  bool isDebuggerAttached() override {
    std::lock_guard<std::mutex> lock(mutex_);
    ++debuggerQueries_;
    if (throwing_) throw std::runtime_error("debugger query failed");
    return debuggerAttached_;
  }

  void writeToConsole(std::string_view bytes) override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (throwing_) throw std::runtime_error("console write failed");
    if (consoleBroken_) {
      ++droppedWrites_;
      return;
    }
    console_.append(bytes);
  }

  void setDebuggerAttached(bool attached) {
    std::lock_guard<std::mutex> lock(mutex_);
    debuggerAttached_ = attached;
  }
  // Writes are dropped and counted instead of recorded.
  void setConsoleBroken(bool broken) {
    std::lock_guard<std::mutex> lock(mutex_);
    consoleBroken_ = broken;
  }
  // Every call throws std::runtime_error (after counting a debugger query).
  void setThrowing(bool throwing) {
    std::lock_guard<std::mutex> lock(mutex_);
    throwing_ = throwing;
  }

  // Everything written so far, as written.
  std::string console() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return console_;
  }
  std::size_t debuggerQueries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return debuggerQueries_;
  }
  std::size_t droppedWrites() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return droppedWrites_;
  }

 private:
  mutable std::mutex mutex_;
  bool debuggerAttached_ = false;
  bool consoleBroken_ = false;
  bool throwing_ = false;
  std::string console_;
  std::size_t debuggerQueries_ = 0;
  std::size_t droppedWrites_ = 0;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_FAKE_PROCESS_ENVIRONMENT_H_
