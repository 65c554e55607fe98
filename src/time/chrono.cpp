// The stopwatch and the time-out, over the 32-bit millisecond tick counter.
#include <qorc/chrono.h>

#include "platform/clock.h"

namespace {

// The tick multiplied by the factor, truncated toward zero to 64 bits, of
// which the low 32 bits are kept. A product beyond the 64-bit range gives
// the processor's integer indefinite value, whose low 32 bits are 0.
unsigned int ScaledTick(unsigned int tick, double factor) {
  const double product = static_cast<double>(tick) * factor;
  if (!(product > -9223372036854775808.0 && product < 9223372036854775808.0)) return 0;
  return static_cast<unsigned int>(static_cast<unsigned long long>(static_cast<long long>(product)));
}

}  // namespace

unsigned int C_CHRONO::CurrentTick() const {
  const unsigned int tick = qorc::platform::TickCount();
  return scaled_ ? ScaledTick(tick, factor_) : tick;
}

void C_CHRONO::Reset() {
  running_ = false;
  start_ = 0;
  accumulated_ = 0;
  factor_ = 1.0;
  scaled_ = false;
  reversed_ = false;
}

void C_CHRONO::Start() {
  if (running_) return;
  start_ = CurrentTick();
  running_ = true;
}

void C_CHRONO::Stop() {
  if (!running_) return;
  accumulated_ = GetDuration();
  running_ = false;
}

// Unsigned 32-bit differences: one wrap of the counter during a run is harmless.
unsigned int C_CHRONO::GetDuration() const {
  if (!running_) return accumulated_;
  const unsigned int elapsed = CurrentTick() - start_;
  if (!scaled_ || !reversed_) return elapsed + accumulated_;
  // Counting down: stops at 0.
  return elapsed > accumulated_ ? 0 : accumulated_ - elapsed;
}

void C_CHRONO::SetDuration(unsigned int ms) {
  accumulated_ = ms;
  start_ = CurrentTick();
}

void C_CHRONO::SetFactor(double factor) {
  if (running_) accumulated_ = GetDuration();
  scaled_ = true;
  reversed_ = factor < 0;
  factor_ = factor < 0 ? -factor : factor;
  if (running_) start_ = CurrentTick();
}

C_CHRONO::operator std::chrono::seconds() const {
  return std::chrono::seconds(static_cast<long long>((static_cast<unsigned long long>(GetDuration()) + 500) / 1000));
}

void C_DELAY::Init(int minutes, int seconds, int milliseconds) {
  const long long total =
      (static_cast<long long>(seconds) + static_cast<long long>(minutes) * 60) * 1000 + milliseconds;
  duration_ = static_cast<unsigned int>(static_cast<unsigned long long>(total));
}

void C_DELAY::Start() {
  started_ = true;
  over_ = false;
  deadline_ = qorc::platform::TickCount() + duration_;
}

void C_DELAY::Stop() {
  started_ = false;
  over_ = false;
}

// The deadline is compared with the tick directly, without allowance for the
// counter's wrap: a deadline beyond the 32-bit limit ends at once. Kept so,
// as hosts have always seen it.
C_BOOL C_DELAY::IsOver() {
  if (!started_ || over_) return true;
  if (deadline_ <= qorc::platform::TickCount()) {
    over_ = true;
    started_ = false;
    return true;
  }
  return false;
}

void C_DELAY::Wait() {
  deadline_ = qorc::platform::TickCount() + duration_;
  while (qorc::platform::TickCount() < deadline_) qorc::platform::SleepMilliseconds(100);
}
