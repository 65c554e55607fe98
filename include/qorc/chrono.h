/// @file
/// C_CHRONO (a stopwatch) and C_DELAY (a one-shot time-out) over the system's
/// 32-bit millisecond tick counter, which wraps after about 49.7 days.
#ifndef QORC_CHRONO_H
#define QORC_CHRONO_H

#include <qorc/export.h>
#include <qorc/types.h>

#include <chrono>

/// A stopwatch over the system's millisecond tick counter, with a speed factor.
class QORC_API C_CHRONO {
 public:
  /// Stopped, at 0, at normal speed.
  C_CHRONO() { Reset(); }
  /// Stops the stopwatch, clears it and forgets any speed factor.
  void Reset();
  /// Starts or resumes measuring.
  void Start();
  /// Stops measuring, keeping the time measured.
  void Stop();
  /// Milliseconds measured. The stopwatch only subtracts tick values, so one
  /// wrap of the counter during a run is harmless.
  unsigned int GetDuration() const;
  /// Continues from `ms` (running or not).
  void SetDuration(unsigned int ms);
  /// Later time counts `factor` times; a negative factor counts down to 0.
  /// Time already measured is kept.
  void SetFactor(double factor);
  /// The duration rounded to whole seconds.
  operator std::chrono::seconds() const;

 private:
  unsigned int CurrentTick() const;

  C_BOOL running_;
  unsigned int start_;
  unsigned int accumulated_;
  double factor_;
  C_BOOL scaled_;
  C_BOOL reversed_;
};

/// A one-shot time-out over the system's millisecond tick counter.
class QORC_API C_DELAY {
 public:
  /// A delay of no length, not armed.
  C_DELAY() : duration_(0), deadline_(0), over_(false), started_(false) {}
  /// Sets the length; does not arm the delay.
  void Init(int minutes, int seconds, int milliseconds);
  /// Arms the delay: it is over once its length has passed from now.
  void Start();
  /// Disarms the delay: IsOver is true until the next Start.
  void Stop();
  /// TRUE when the delay is not armed or has ended; once over it stays over
  /// until the next Start. A deadline beyond the counter's wrap ends at once.
  C_BOOL IsOver();
  /// Blocks for the delay's length, to within 100 milliseconds.
  void Wait();

 private:
  unsigned int duration_;
  unsigned int deadline_;
  C_BOOL over_;
  C_BOOL started_;
};

#endif
