#include <atomic>

#include "platform/store/lock_span_internal.h"

namespace platform::store {

namespace {

struct LockSpan {
  int depth = 0;
  bool rolledBack = false;
};

thread_local LockSpan t_span;
std::atomic<LockSpanListener> g_listener{nullptr};

}  // namespace

void lockSpanEnter() { ++t_span.depth; }

void lockSpanLeave(bool committed) {
  if (t_span.depth == 0) return;
  if (!committed) t_span.rolledBack = true;
  if (--t_span.depth > 0) return;
  bool allCommitted = !t_span.rolledBack;
  t_span.rolledBack = false;
  if (LockSpanListener listener = g_listener.load()) listener(allCommitted);
}

bool threadHoldsFileLock() { return t_span.depth > 0; }

void setLockSpanListener(LockSpanListener listener) { g_listener.store(listener); }

}  // namespace platform::store
