#pragma once
// A request to end long work early (the user's Stop, a closing window). Whoever starts the work
// owns one and passes it in; the work looks at it between entries and ends at the next one.
// Lock-free, so any thread, and a signal handler, may ask or look.

#include <atomic>

namespace ql {

class Stop {
 public:
  // The numbers are what the error report prints as the stop word.
  enum class State : int { Running = 0, Stopping = 3 };

  void request() noexcept {
    state_.store(static_cast<int>(State::Stopping), std::memory_order_relaxed);
  }
  void reset() noexcept {
    state_.store(static_cast<int>(State::Running), std::memory_order_relaxed);
  }
  bool requested() const noexcept {
    return state_.load(std::memory_order_relaxed) == static_cast<int>(State::Stopping);
  }
  State state() const noexcept {
    return static_cast<State>(state_.load(std::memory_order_relaxed));
  }
  // Takes over another stop's state (a walk's own stop starts as its owner's).
  void copyFrom(const Stop& other) noexcept {
    state_.store(other.state_.load(std::memory_order_relaxed), std::memory_order_relaxed);
  }

 private:
  std::atomic<int> state_{0};
};
static_assert(std::atomic<int>::is_always_lock_free);

}  // namespace ql
