#pragma once

#include <type_traits>
#include <utility>

namespace orvanta::detail {

/// Runs `work` and drops whatever it throws: the kit's public entry points wrap their body in it,
/// so that no failure ever reaches the host. Failures worth reporting are logged inside `work`.
template <class Work>
void shielded(Work&& work) noexcept {
  try {
    std::forward<Work>(work)();
  } catch (...) {  // NOLINT(bugprone-empty-catch): no failure reaches the host
  }
}

/// The same for work that answers a value: `fallback` when it throws.
template <class Work, class Value = std::invoke_result_t<Work>>
Value shielded(Work&& work, Value fallback) noexcept {
  try {
    return std::forward<Work>(work)();
  } catch (...) {
    return fallback;
  }
}

}  // namespace orvanta::detail
