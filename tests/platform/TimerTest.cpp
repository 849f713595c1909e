#include "platform/Timer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/Format.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/WaitableCounter.h"

namespace velmor {
namespace {

using std::chrono::hours;
using std::chrono::seconds;
using test::WaitableCounter;

// Counts an action's runs and remembers the thread of the last one.
struct ActionRecord {
  WaitableCounter runs;
  std::mutex mutex;
  std::thread::id thread;

  Timer::Action action() {
    return [this](Timer&) {
      {
        std::lock_guard<std::mutex> lock(mutex);
        thread = std::this_thread::get_id();
      }
      runs.increment();
    };
  }
  std::thread::id lastThread() {
    std::lock_guard<std::mutex> lock(mutex);
    return thread;
  }
};

// Returns once the timer thread has served every timer due before now: it
// serves in fire-date order, so a timer due now comes after them.
void waitForTimerThreadToCatchUp() {
  auto marker = std::make_shared<WaitableCounter>();
  Timer::scheduledTimerWithTimeInterval(0, [marker](Timer&) { marker->increment(); });
  ASSERT_TRUE(marker->waitFor(1));
}

// Keeps the timer thread inside an action until released, so that a test can
// arrange timers that are due before the thread looks at them.
class TimerThreadBlocker final {
 public:
  TimerThreadBlocker() {
    Timer::scheduledTimerWithTimeInterval(0, [entered = entered_, released = released_](Timer&) {
      entered->increment();
      released->waitFor(1);
    });
    EXPECT_TRUE(entered_->waitFor(1));
  }
  ~TimerThreadBlocker() { release(); }
  TimerThreadBlocker(const TimerThreadBlocker&) = delete;
  TimerThreadBlocker& operator=(const TimerThreadBlocker&) = delete;

  void release() { released_->increment(); }

 private:
  std::shared_ptr<WaitableCounter> entered_ = std::make_shared<WaitableCounter>();
  std::shared_ptr<WaitableCounter> released_ = std::make_shared<WaitableCounter>();
};

TEST(TimerTest, FiresOnceOnTheOneTimerThread) {
  ActionRecord first;
  ActionRecord second;
  const auto firstTimer = Timer::scheduledTimerWithTimeInterval(0, first.action());
  const auto secondTimer = Timer::scheduledTimerWithTimeInterval(0, second.action());
  ASSERT_TRUE(first.runs.waitFor(1));
  ASSERT_TRUE(second.runs.waitFor(1));
  waitForTimerThreadToCatchUp();

  EXPECT_NE(first.lastThread(), std::this_thread::get_id());
  EXPECT_EQ(first.lastThread(), second.lastThread());
  EXPECT_EQ(first.runs.value(), 1);
  EXPECT_EQ(second.runs.value(), 1);
  EXPECT_FALSE(firstTimer->isValid());
  EXPECT_FALSE(secondTimer->isValid());
}

TEST(TimerTest, IntervalsThatAreDueFireAtOnce) {
  const double intervals[] = {0,
                              -1,
                              -86400,
                              -1e300,
                              -std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::quiet_NaN()};
  for (const double interval : intervals) {
    SCOPED_TRACE(interval);
    ActionRecord record;
    // Nothing else keeps the timer: the scheduler must.
    Timer::scheduledTimerWithTimeInterval(interval, record.action());
    EXPECT_TRUE(record.runs.waitFor(1));
  }
}

TEST(TimerTest, HugeIntervalsAreCutToAHundredYears) {
  const auto before = Timer::Clock::now();
  const auto timer =
      Timer::scheduledTimerWithTimeInterval(std::numeric_limits<double>::infinity(), [](Timer&) {});
  EXPECT_TRUE(timer->isValid());
  EXPECT_GT(timer->fireDate(), before + hours(24 * 365 * 99));
  EXPECT_LT(timer->fireDate(), before + hours(24 * 365 * 101));
  timer->invalidate();
}

TEST(TimerTest, WhatHappensToATimerThatCameDueWhileTheThreadWasBusy) {
  const struct {
    const char* name;
    std::function<void(Timer&)> change;
    int expectedRuns;
    bool expectedValid;
  } cases[] = {
      {"left alone", [](Timer&) {}, 1, false},
      {"invalidated", [](Timer& t) { t.invalidate(); }, 0, false},
      {"invalidated, then moved",
       [](Timer& t) {
         t.invalidate();
         t.setFireDate(Timer::Clock::now() - seconds(5));
       },
       0, false},
      {"set to its own fire date", [](Timer& t) { t.setFireDate(t.fireDate()); }, 1, false},
      {"moved an hour ahead", [](Timer& t) { t.setFireDate(Timer::Clock::now() + hours(1)); }, 0,
       true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ActionRecord record;
    std::shared_ptr<Timer> timer;
    {
      TimerThreadBlocker blocker;
      timer = Timer::scheduledTimerWithTimeInterval(-10, record.action());
      c.change(*timer);
    }
    waitForTimerThreadToCatchUp();
    EXPECT_EQ(record.runs.value(), c.expectedRuns);
    EXPECT_EQ(timer->isValid(), c.expectedValid);
    timer->invalidate();
  }
}

TEST(TimerTest, FireRunsTheActionOnTheCallerAndSpendsTheTimer) {
  ActionRecord record;
  const auto timer = Timer::scheduledTimerWithTimeInterval(3600, record.action());
  timer->fire();
  EXPECT_EQ(record.runs.value(), 1);
  EXPECT_EQ(record.lastThread(), std::this_thread::get_id());
  EXPECT_FALSE(timer->isValid());

  timer->fire();
  timer->setFireDate(Timer::Clock::now() - seconds(1));
  waitForTimerThreadToCatchUp();
  EXPECT_EQ(record.runs.value(), 1);
}

TEST(TimerTest, SettingAnEarlierFireDateFiresEarlier) {
  ActionRecord record;
  const auto timer = Timer::scheduledTimerWithTimeInterval(3600, record.action());
  const auto earlier = Timer::Clock::now() - seconds(1);
  timer->setFireDate(earlier);
  EXPECT_EQ(timer->fireDate(), earlier);
  EXPECT_TRUE(record.runs.waitFor(1));
}

TEST(TimerTest, FireRacingTheTimerThreadRunsTheActionOnce) {
  constexpr int kRounds = 100;
  constexpr int kFiringThreads = 4;
  std::vector<std::shared_ptr<ActionRecord>> records;
  for (int round = 0; round < kRounds; ++round) {
    auto record = std::make_shared<ActionRecord>();
    records.push_back(record);
    const auto timer = Timer::scheduledTimerWithTimeInterval(0, record->action());
    WaitableCounter go;
    std::vector<std::thread> firing;
    for (int t = 0; t < kFiringThreads; ++t) {
      firing.emplace_back([&] {
        go.waitFor(1);
        timer->fire();
      });
    }
    go.increment();
    for (std::thread& thread : firing) thread.join();
    EXPECT_FALSE(timer->isValid());
  }
  waitForTimerThreadToCatchUp();
  for (int round = 0; round < kRounds; ++round) {
    EXPECT_EQ(records[round]->runs.value(), 1) << "round " << round;
  }
}

TEST(TimerTest, AnActionMayUseItsOwnTimerAndScheduleAnother) {
  WaitableCounter done;
  std::atomic<bool> validInside{true};
  auto next = std::make_shared<WaitableCounter>();
  Timer::scheduledTimerWithTimeInterval(0, [&](Timer& timer) {
    validInside = timer.isValid();
    timer.setFireDate(timer.fireDate());
    timer.fire();
    timer.invalidate();
    Timer::scheduledTimerWithTimeInterval(0, [next](Timer&) { next->increment(); });
    done.increment();
  });
  ASSERT_TRUE(done.waitFor(1));
  EXPECT_FALSE(validInside);
  EXPECT_TRUE(next->waitFor(1));
}

TEST(TimerTest, TheActionIsReleasedOnceTheTimerIsSpent) {
  const struct {
    const char* name;
    std::function<void(Timer&)> spend;
  } cases[] = {
      {"fired by the caller", [](Timer& t) { t.fire(); }},
      {"invalidated", [](Timer& t) { t.invalidate(); }},
      {"fired by the thread", [](Timer& t) { t.setFireDate(Timer::Clock::now()); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto captured = std::make_shared<int>(0);
    const auto timer =
        Timer::scheduledTimerWithTimeInterval(3600, [captured](Timer&) { ++*captured; });
    c.spend(*timer);
    waitForTimerThreadToCatchUp();
    EXPECT_FALSE(timer->isValid());
    EXPECT_EQ(captured.use_count(), 1);
  }
}

TEST(TimerTest, AnActionThatThrowsIsLoggedAndTheThreadGoesOn) {
  test::RecordingLoggerDelegate recorder;
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelError, &recorder);
  const auto throwing =
      Timer::scheduledTimerWithTimeInterval(0, [](Timer&) { throw std::runtime_error("late"); });
  waitForTimerThreadToCatchUp();
  EXPECT_EQ(recorder.messages(),
            std::vector<std::string>{stringWithFormat("ERROR\t<Timer: %p> action ended with an "
                                                      "exception: late",
                                                      static_cast<const void*>(throwing.get()))});
}

}  // namespace
}  // namespace velmor
