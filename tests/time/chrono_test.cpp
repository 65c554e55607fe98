#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <chrono>
#include <thread>

#include "platform/clock.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Sleeps and returns the milliseconds that really passed: on a loaded machine
// a sleep may last much longer than asked, so upper bounds compare with this.
unsigned int SleepMeasured(int ms) {
  const auto start = steady_clock::now();
  std::this_thread::sleep_for(milliseconds(ms));
  return static_cast<unsigned int>(std::chrono::duration_cast<milliseconds>(steady_clock::now() - start).count());
}

// Slack between the tick counter and the steady clock read around it.
constexpr unsigned int kSlack = 20;
constexpr unsigned int kWrap = 0xFFFFFFFFu;

// Moves the tick counter to `tick` for the life of the object.
struct TickAt {
  explicit TickAt(unsigned int tick) : shift(static_cast<long long>(tick) - qorc::platform::TickCount()) {
    qorc::platform::ShiftTickCount(shift);
  }
  ~TickAt() { qorc::platform::ShiftTickCount(-shift); }
  long long shift;
};

TEST(Chrono, RunningTimeFactorAndDelayAcrossTheWrap) {
  C_CHRONO chrono;
  SleepMeasured(50);
  EXPECT_EQ(chrono.GetDuration(), 0u);
  {
    TickAt nearWrap(kWrap - 100);
    chrono.Start();
    const unsigned int slept = SleepMeasured(300);
    EXPECT_LE(qorc::platform::TickCount(), slept + kSlack);  // the counter went round
    const unsigned int first = chrono.GetDuration();
    EXPECT_GE(first, 295u);
    EXPECT_LE(first, slept + kSlack);
    chrono.Stop();
  }
  const unsigned int stopped = chrono.GetDuration();
  SleepMeasured(100);
  EXPECT_EQ(chrono.GetDuration(), stopped);
  // A second Start continues from there; Start while running changes nothing.
  chrono.Start();
  SleepMeasured(100);
  chrono.Start();
  EXPECT_GE(chrono.GetDuration(), stopped + 95);
  chrono.Reset();
  EXPECT_EQ(chrono.GetDuration(), 0u);

  // Whole seconds, rounded.
  const std::pair<unsigned int, long> rounded[] = {{1499, 1}, {1500, 2}, {90061000, 25 * 3600 + 61}};
  for (const auto& [ms, seconds] : rounded) {
    chrono.SetDuration(ms);
    EXPECT_EQ(static_cast<std::chrono::seconds>(chrono).count(), seconds);
  }

  // A factor applies to later time only.
  chrono.Reset();
  chrono.Start();
  SleepMeasured(200);
  chrono.SetFactor(2.0);
  const unsigned int before = chrono.GetDuration();
  EXPECT_GE(before, 195u);
  const unsigned int doubled = SleepMeasured(200);
  const unsigned int after = chrono.GetDuration();
  EXPECT_GE(after, before + 390);
  EXPECT_LE(after, before + 2 * (doubled + kSlack));
  // Reset forgets the factor.
  chrono.Reset();
  chrono.Start();
  const unsigned int plain = SleepMeasured(100);
  EXPECT_LE(chrono.GetDuration(), plain + kSlack);

  // A negative factor counts down, to zero and no further.
  chrono.Reset();
  chrono.SetDuration(60000);
  chrono.SetFactor(-1.0);
  chrono.Start();
  const unsigned int down = SleepMeasured(100);
  const unsigned int left = chrono.GetDuration();
  EXPECT_LE(left, 59905u);
  EXPECT_GE(left + down + kSlack, 60000u);
  chrono.SetDuration(200);
  SleepMeasured(300);
  EXPECT_EQ(chrono.GetDuration(), 0u);
  chrono.Stop();
  EXPECT_EQ(chrono.GetDuration(), 0u);

  // A delay is over once its time has passed.
  C_DELAY delay;
  EXPECT_TRUE(delay.IsOver());
  delay.Init(0, 0, 200);
  EXPECT_TRUE(delay.IsOver());  // initialised but not started
  delay.Start();
  EXPECT_FALSE(delay.IsOver());
  SleepMeasured(250);
  EXPECT_TRUE(delay.IsOver());
  delay.Start();
  EXPECT_FALSE(delay.IsOver());
  delay.Stop();
  EXPECT_TRUE(delay.IsOver());

  // Wait blocks for the length without arming the delay.
  const auto start = steady_clock::now();
  delay.Wait();
  EXPECT_GE(steady_clock::now() - start, milliseconds(195));
  EXPECT_TRUE(delay.IsOver());

  // 1 min 30 s 250 ms: a deadline just below the counter's limit is an
  // ordinary one; one just beyond it ends at once, a limitation kept as it is.
  delay.Init(1, 30, 250);
  for (const auto& [tick, over] : {std::pair{kWrap - 90250 - 2000, false}, std::pair{kWrap - 90250 + 2000, true}}) {
    TickAt at(tick);
    delay.Start();
    EXPECT_EQ(delay.IsOver(), over);
  }
}

}  // namespace
