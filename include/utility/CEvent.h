#pragma once

#include <pthread.h>

#include "utility/Export.h"

namespace utility {

/// A one-shot event by which one thread lets another go on.
///
/// Once signalled the event stays so: `wait` returns 0 at once from then on, until `release` and a
/// new `init`. A signal wakes exactly one of the threads that are waiting; the others sleep on to
/// their limit, and without a limit for good. Give each waiting thread its own event, or a limit.
///
/// `wait` and `signal` may run on any number of threads at once. `init` and `release` must have the
/// event to themselves: a `release` under a waiting thread does not return before that thread does.
class UTILITY_API CEvent {
 public:
  /// An event that must be initialised before use.
  CEvent();
  /// Releases the event.
  ~CEvent();
  CEvent(const CEvent&) = delete;
  CEvent& operator=(const CEvent&) = delete;

  /// Makes the event ready, not signalled.
  ///
  /// @return true, also for an event that is ready already, which stays as it is; false when memory
  ///         or another resource is lacking (nothing stays allocated, `init` may be tried again).
  bool init();

  /// Frees what `init` made; `init` may follow. Harmless for an event that is not ready.
  void release();

  /// True between a successful `init` and `release`.
  bool is_valid() const;

  /// Waits for the signal.
  ///
  /// The limit counts in whole seconds of the calendar clock: `ms` is rounded up to seconds, and
  /// waiting ends when the current second plus that many begins. So it can end up to one second
  /// before `ms` is over, and moves with the clock when that is set.
  ///
  /// @param ms  the limit in milliseconds; 0 only asks, below 0 there is no limit.
  /// @return 0 signalled; 1 the limit came first; -1 another error, such as an event that is not
  ///         ready. A thread that sleeps to its limit gets 1, also when the signal woke another.
  int wait(int ms);

  /// Sets the event and wakes one waiting thread. Does nothing when the event is set already or not
  /// ready.
  void signal();

 private:
  pthread_cond_t* m_cond;
  pthread_mutex_t* m_lock;
  int m_signaled;
};

}  // namespace utility
