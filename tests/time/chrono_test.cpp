#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <chrono>
#include <thread>

#include "platform/clock.h"

namespace {

void Sleep(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Sleeps and returns the milliseconds that really passed: on a loaded machine
// a sleep may last much longer than asked, so upper bounds compare with this.
unsigned int SleepMeasured(int ms) {
  const auto start = std::chrono::steady_clock::now();
  Sleep(ms);
  return static_cast<unsigned int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count());
}

// Slack between the tick counter and the steady clock read around it.
constexpr unsigned int kSlack = 20;

// Moves the tick counter to `tick` for the life of the object.
class TickAt {
 public:
  explicit TickAt(unsigned int tick) {
    shift_ = static_cast<long long>(tick) - static_cast<long long>(qorc::platform::TickCount());
    qorc::platform::ShiftTickCount(shift_);
  }
  ~TickAt() { qorc::platform::ShiftTickCount(-shift_); }

 private:
  long long shift_;
};

constexpr unsigned int kWrap = 0xFFFFFFFFu;

TEST(Chrono, MeasuresRunningTimeOnly) {
  C_CHRONO chrono;
  EXPECT_EQ(chrono.GetDuration(), 0u);
  Sleep(50);
  EXPECT_EQ(chrono.GetDuration(), 0u);
  chrono.Start();
  const unsigned int slept = SleepMeasured(300);
  const unsigned int first = chrono.GetDuration();
  EXPECT_GE(first, 295u);
  EXPECT_LE(first, slept + kSlack);
  chrono.Stop();
  const unsigned int stopped = chrono.GetDuration();
  Sleep(100);
  EXPECT_EQ(chrono.GetDuration(), stopped);
  // A second Start continues from there; Start while running changes nothing.
  chrono.Start();
  Sleep(100);
  chrono.Start();
  EXPECT_GE(chrono.GetDuration(), stopped + 95);
  chrono.Reset();
  EXPECT_EQ(chrono.GetDuration(), 0u);
}

TEST(Chrono, FactorAppliesToLaterTimeOnly) {
  C_CHRONO chrono;
  chrono.Start();
  Sleep(200);
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
}

TEST(Chrono, NegativeFactorCountsDownToZero) {
  C_CHRONO chrono;
  chrono.SetDuration(60000);
  chrono.SetFactor(-1.0);
  chrono.Start();
  const unsigned int slept = SleepMeasured(100);
  const unsigned int left = chrono.GetDuration();
  EXPECT_LE(left, 59905u);
  EXPECT_GE(left + slept + kSlack, 60000u);

  C_CHRONO shortOne;
  shortOne.SetDuration(200);
  shortOne.SetFactor(-1.0);
  shortOne.Start();
  Sleep(300);
  EXPECT_EQ(shortOne.GetDuration(), 0u);
  shortOne.Stop();
  EXPECT_EQ(shortOne.GetDuration(), 0u);
}

TEST(Chrono, ConvertsToWholeSeconds) {
  C_CHRONO chrono;
  chrono.SetDuration(1499);
  EXPECT_EQ(static_cast<std::chrono::seconds>(chrono).count(), 1);
  chrono.SetDuration(1500);
  EXPECT_EQ(static_cast<std::chrono::seconds>(chrono).count(), 2);
  chrono.SetDuration(90061000);  // one day, one hour, one minute, one second
  EXPECT_EQ(static_cast<std::chrono::seconds>(chrono), std::chrono::hours(25) + std::chrono::seconds(61));
}

TEST(Chrono, SurvivesTheCounterWrap) {
  TickAt nearWrap(kWrap - 100);
  C_CHRONO chrono;
  chrono.Start();
  const unsigned int slept = SleepMeasured(300);
  EXPECT_LE(qorc::platform::TickCount(), slept + kSlack);  // the counter went round
  const unsigned int duration = chrono.GetDuration();
  EXPECT_GE(duration, 295u);
  EXPECT_LE(duration, slept + kSlack);
}

TEST(Delay, IsOverOnceItsTimeHasPassed) {
  C_DELAY delay;
  EXPECT_TRUE(delay.IsOver());
  delay.Init(0, 0, 200);
  // Initialised but not started: over.
  EXPECT_TRUE(delay.IsOver());
  delay.Start();
  EXPECT_FALSE(delay.IsOver());
  Sleep(250);
  EXPECT_TRUE(delay.IsOver());
  EXPECT_TRUE(delay.IsOver());
  delay.Start();
  EXPECT_FALSE(delay.IsOver());
  delay.Stop();
  EXPECT_TRUE(delay.IsOver());
}

TEST(Delay, LengthFromMinutesSecondsAndMilliseconds) {
  C_DELAY delay;
  delay.Init(1, 30, 250);
  {
    // A deadline just below the counter's limit is an ordinary one...
    TickAt tick(kWrap - 90250 - 2000);
    delay.Start();
    EXPECT_FALSE(delay.IsOver());
  }
  {
    // ...one just beyond it ends at once, a limitation kept as it is.
    TickAt tick(kWrap - 90250 + 2000);
    delay.Start();
    EXPECT_TRUE(delay.IsOver());
  }
}

TEST(Delay, WaitBlocksForTheLength) {
  C_DELAY delay;
  delay.Init(0, 0, 250);
  const auto start = std::chrono::steady_clock::now();
  delay.Wait();
  const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  EXPECT_GE(waited.count(), 245);
  // Waiting does not arm the delay.
  EXPECT_TRUE(delay.IsOver());
}

}  // namespace
