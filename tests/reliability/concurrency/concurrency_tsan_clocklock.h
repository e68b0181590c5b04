// ThreadSanitizer (GCC 12's libtsan) does not intercept
// pthread_mutex_clocklock, which the named events use for timed waits: it
// misses those lock acquisitions and then reports their unlocks as unlocks
// of an unlocked mutex, and loses the ordering the mutex gives. In a
// ThreadSanitizer build this definition takes the library's calls and makes
// the same timed lock through pthread_mutex_timedlock, which it does see.
// Include it in exactly one file of a program.
#pragma once

#if defined(__SANITIZE_THREAD__)

#include <pthread.h>
#include <time.h>

extern "C" __attribute__((visibility("default"))) int pthread_mutex_clocklock(
    pthread_mutex_t *mutex, clockid_t clock, const struct timespec *deadline) {
  if (clock == CLOCK_REALTIME) return pthread_mutex_timedlock(mutex, deadline);
  // The same time left, measured on the wall clock.
  timespec now, wall;
  clock_gettime(clock, &now);
  clock_gettime(CLOCK_REALTIME, &wall);
  long long left =
      (deadline->tv_sec - now.tv_sec) * 1000000000LL + (deadline->tv_nsec - now.tv_nsec);
  if (left < 0) left = 0;
  long long at = wall.tv_sec * 1000000000LL + wall.tv_nsec + left;
  timespec until = {static_cast<time_t>(at / 1000000000LL), static_cast<long>(at % 1000000000LL)};
  return pthread_mutex_timedlock(mutex, &until);
}

#endif
