#include "client/RefreshTokenExpiryTimer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "client/BusyTimerThread.h"
#include "platform/Timer.h"

namespace velmor {
namespace {

using namespace std::chrono_literals;

constexpr auto kBound = 30s;

using test::BusyTimerThread;

TEST(RefreshTokenExpiryTimerTest, StopWaitsForAnActionRunningElsewhere) {
  std::promise<void> entered;
  std::promise<void> release;
  std::atomic<bool> finished{false};
  RefreshTokenExpiryTimer timer([&] {
    entered.set_value();
    release.get_future().wait();
    finished = true;
  });
  timer.rearm(0);
  ASSERT_EQ(entered.get_future().wait_for(kBound), std::future_status::ready);
  std::atomic<bool> finishedWhenStopped{false};
  std::thread stopper([&] {
    timer.stop();
    finishedWhenStopped = finished.load();
  });
  release.set_value();
  stopper.join();
  EXPECT_TRUE(finishedWhenStopped);
}

TEST(RefreshTokenExpiryTimerTest, AStoppedTimerNeverRunsItsAction) {
  std::atomic<int> runs{0};
  std::promise<void> stoppedInside;
  std::unique_ptr<RefreshTokenExpiryTimer> timer;
  timer = std::make_unique<RefreshTokenExpiryTimer>([&] {
    ++runs;
    // An owner destroyed by its own delegate stops from inside the action.
    timer->stop();
    stoppedInside.set_value();
  });
  timer->rearm(0);
  ASSERT_EQ(stoppedInside.get_future().wait_for(kBound), std::future_status::ready);
  {
    BusyTimerThread busy;
    timer->rearm(-1);
    timer->applicationDidBecomeActive();
  }
  std::promise<void> later;
  auto sentinel = Timer::scheduledTimerWithTimeInterval(0.01, [&](Timer&) { later.set_value(); });
  ASSERT_EQ(later.get_future().wait_for(kBound), std::future_status::ready);
  EXPECT_EQ(runs.load(), 1);
}

}  // namespace
}  // namespace velmor
