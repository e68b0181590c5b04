// The lock a session holds around each operation. Nearly always the thread
// that takes it is the only one using the session, so taking it is one
// atomic exchange; a thread that finds it held sleeps until it is let go.
// A thread that holds it may take it again.
#pragma once

#include <atomic>
#include <cstdint>

namespace platform::store {

class OperationLock {
 public:
  void lock() {
    const void *me = self();
    // Only this thread ever stores its own token here.
    if (owner_.load(std::memory_order_relaxed) == me) {
      ++depth_;
      return;
    }
    int state = kFree;
    if (!state_.compare_exchange_strong(state, kHeld, std::memory_order_acquire,
                                        std::memory_order_relaxed)) {
      waitFor(state);
    }
    owner_.store(me, std::memory_order_relaxed);
    depth_ = 1;
  }

  void unlock() {
    if (--depth_ > 0) return;
    owner_.store(nullptr, std::memory_order_relaxed);
    if (state_.exchange(kFree, std::memory_order_release) == kContended) state_.notify_one();
  }

 private:
  static constexpr int kFree = 0, kHeld = 1, kContended = 2;

  // Tells threads apart: the address of a variable each thread has its own.
  static const void *self() {
    [[gnu::tls_model("initial-exec")]] static thread_local char token;
    return &token;
  }

  // Marks the lock as waited for, so that its holder wakes a sleeper.
  [[gnu::noinline]] void waitFor(int state) {
    if (state != kContended) state = state_.exchange(kContended, std::memory_order_acquire);
    while (state != kFree) {
      state_.wait(kContended, std::memory_order_relaxed);
      state = state_.exchange(kContended, std::memory_order_acquire);
    }
  }

  std::atomic<int> state_{kFree};
  std::atomic<const void *> owner_{nullptr};
  std::uint32_t depth_ = 0;  // touched only by the holder
};

}  // namespace platform::store
