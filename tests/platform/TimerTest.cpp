#include "platform/Timer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
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

TEST(TimerTest, DueTimersFireOnceOnTheOneTimerThread) {
  const double intervals[] = {0,
                              -1,
                              -86400,
                              -1e300,
                              -std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::quiet_NaN()};
  std::vector<std::unique_ptr<ActionRecord>> records;
  for (const double interval : intervals) {
    records.push_back(std::make_unique<ActionRecord>());
    // Nothing else keeps the timer: the scheduler must.
    Timer::scheduledTimerWithTimeInterval(interval, records.back()->action());
  }
  for (const auto& record : records) ASSERT_TRUE(record->runs.waitFor(1));
  waitForTimerThreadToCatchUp();
  for (const auto& record : records) {
    EXPECT_EQ(record->runs.value(), 1);
    EXPECT_NE(record->lastThread(), std::this_thread::get_id());
    EXPECT_EQ(record->lastThread(), records.front()->lastThread());
  }
}

TEST(TimerTest, ChangesMadeBeforeTheThreadGetsToATimer) {
  const struct {
    const char* name;
    double interval;
    std::function<void(Timer&)> change;
    bool fires;
    bool stillValid;
  } cases[] = {
      {"left alone", -10, [](Timer&) {}, true, false},
      {"invalidated", -10, [](Timer& t) { t.invalidate(); }, false, false},
      {"invalidated, then moved", -10,
       [](Timer& t) {
         t.invalidate();
         t.setFireDate(Timer::Clock::now() - seconds(5));
       },
       false, false},
      {"set to its own fire date", -10, [](Timer& t) { t.setFireDate(t.fireDate()); }, true, false},
      {"moved an hour ahead", -10, [](Timer& t) { t.setFireDate(Timer::Clock::now() + hours(1)); },
       false, true},
      {"moved from an hour ahead to the past", 3600,
       [](Timer& t) { t.setFireDate(Timer::Clock::now() - seconds(5)); }, true, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    // Keeps the timer thread busy while the case sets its timer up.
    auto entered = std::make_shared<WaitableCounter>();
    auto released = std::make_shared<WaitableCounter>();
    Timer::scheduledTimerWithTimeInterval(0, [entered, released](Timer&) {
      entered->increment();
      released->waitFor(1);
    });
    ASSERT_TRUE(entered->waitFor(1));
    auto runs = std::make_shared<int>(0);
    const auto timer =
        Timer::scheduledTimerWithTimeInterval(c.interval, [runs](Timer&) { ++*runs; });
    c.change(*timer);
    released->increment();

    waitForTimerThreadToCatchUp();
    EXPECT_EQ(*runs, c.fires ? 1 : 0);
    EXPECT_EQ(timer->isValid(), c.stillValid);
    // A spent timer lets go of its action and what it captured.
    EXPECT_EQ(runs.use_count(), c.stillValid ? 2 : 1);
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

TEST(TimerTest, FireRacingTheTimerThreadRunsTheActionOnce) {
  constexpr int kRounds = 100;
  std::vector<std::unique_ptr<ActionRecord>> records;
  for (int round = 0; round < kRounds; ++round) {
    records.push_back(std::make_unique<ActionRecord>());
    // An action that takes a moment widens the window a second run needs.
    const auto timer =
        Timer::scheduledTimerWithTimeInterval(3600, [record = records.back().get()](Timer& spent) {
          for (int i = 0; i < 100; ++i) std::this_thread::yield();
          record->action()(spent);
        });
    // Three threads fire it while a fourth makes it due to the timer thread,
    // all let go at once.
    std::atomic<bool> go{false};
    std::vector<std::thread> racers;
    for (int t = 0; t < 4; ++t) {
      racers.emplace_back([&, t] {
        while (!go) std::this_thread::yield();
        if (t == 0) {
          timer->setFireDate(Timer::Clock::now());
        } else {
          timer->fire();
        }
      });
    }
    go = true;
    for (std::thread& racer : racers) racer.join();
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

TEST(TimerTest, AnActionThatThrowsIsLoggedAndTheThreadGoesOn) {
  test::RecordingLoggerDelegate recorder;
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelError, &recorder);
  const auto throwing =
      Timer::scheduledTimerWithTimeInterval(0, [](Timer&) { throw std::runtime_error("late"); });
  waitForTimerThreadToCatchUp();
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{stringWithFormat(
                                     "ERROR\t<Timer: %p> action ended with an exception: late",
                                     static_cast<const void*>(throwing.get()))});
}

}  // namespace
}  // namespace velmor
