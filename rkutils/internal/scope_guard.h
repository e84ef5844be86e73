// An action at the end of a scope.
#ifndef RKUTILS_INTERNAL_SCOPE_GUARD_H
#define RKUTILS_INTERNAL_SCOPE_GUARD_H

#include <type_traits>
#include <utility>

namespace rkutils::internal {

// Runs `action` when the scope ends, however it ends, unless dismissed: for clean-ups that no owner
// type covers. The action must not throw.
//
//     ScopeGuard remove_half_written([&] { unlink(path); });
//     ...
//     remove_half_written.dismiss();
template <typename Action>
class ScopeGuard {
 public:
  [[nodiscard]] explicit ScopeGuard(Action action) noexcept(
      std::is_nothrow_move_constructible_v<Action>)
      : action_(std::move(action)) {}
  ~ScopeGuard() {
    if (armed_) action_();
  }
  ScopeGuard(const ScopeGuard&) = delete;
  ScopeGuard& operator=(const ScopeGuard&) = delete;

  void dismiss() noexcept { armed_ = false; }

 private:
  Action action_;
  bool armed_ = true;
};

}  // namespace rkutils::internal

#endif
