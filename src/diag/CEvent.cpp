#include "utility/CEvent.h"

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

namespace utility {
namespace {

// The moment at which a wait of `ms` milliseconds ends: always the begin of a second.
timespec deadline_after(int ms) noexcept {
  timespec deadline{};
  ::clock_gettime(CLOCK_REALTIME, &deadline);
  if (ms > 0) deadline.tv_sec += ms / 1000 + (ms % 1000 != 0 ? 1 : 0);
  deadline.tv_nsec = 0;
  return deadline;
}

}  // namespace

CEvent::CEvent() : m_cond(nullptr), m_lock(nullptr), m_signaled(0) {}

CEvent::~CEvent() { release(); }

bool CEvent::init() {
  if (is_valid()) return true;
  std::unique_ptr<pthread_cond_t> cond(new (std::nothrow) pthread_cond_t PTHREAD_COND_INITIALIZER);
  std::unique_ptr<pthread_mutex_t> lock(new (std::nothrow)
                                            pthread_mutex_t PTHREAD_MUTEX_INITIALIZER);
  if (cond == nullptr || lock == nullptr) return false;
  m_cond = cond.release();
  m_lock = lock.release();
  return true;
}

void CEvent::release() {
  if (!is_valid()) return;
  ::pthread_cond_destroy(m_cond);
  ::pthread_mutex_destroy(m_lock);
  delete std::exchange(m_cond, nullptr);
  delete std::exchange(m_lock, nullptr);
  m_signaled = 0;
}

bool CEvent::is_valid() const { return m_cond != nullptr; }

int CEvent::wait(int ms) {
  if (!is_valid()) return -1;
  const timespec deadline = deadline_after(ms);

  int error = ::pthread_mutex_lock(m_lock);
  if (error != 0) return -1;
  while (m_signaled == 0 && error == 0) {
    error = ms < 0 ? ::pthread_cond_wait(m_cond, m_lock)
                   : ::pthread_cond_timedwait(m_cond, m_lock, &deadline);
  }
  ::pthread_mutex_unlock(m_lock);

  if (error == ETIMEDOUT) return 1;
  return error == 0 ? 0 : -1;
}

void CEvent::signal() {
  if (!is_valid() || ::pthread_mutex_lock(m_lock) != 0) return;
  if (m_signaled == 0) {
    m_signaled = 1;
    ::pthread_cond_signal(m_cond);
  }
  // Woken before the unlock: a waiter that returns may release the event at once.
  ::pthread_mutex_unlock(m_lock);
}

}  // namespace utility
