#pragma once

// The edge between the C interface (include/orvanta/orvanta.h) and the kit: every C entry point
// runs its body through `guarded`, so that no C++ exception crosses into C, and a failure becomes
// an `orvanta_status` plus one line in the calling thread's last error.

#include <cstddef>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <string_view>

#include "orvanta/orvanta.h"
#include "orvanta/value.hpp"

namespace orvanta::c_api {

/// The longest text argument taken (1 MiB), and the longest path, identifier or URL (4096 bytes).
inline constexpr std::size_t kMaxText = 1024 * 1024;
inline constexpr std::size_t kMaxName = 4096;

/// A failure to report to the C caller, thrown inside `guarded`.
struct Failure {
  orvanta_status status;
  std::string message;
};

[[noreturn]] void fail(orvanta_status status, std::string message);

/// Keeps `function + ": " + message` as the calling thread's last error; answers `status`.
orvanta_status setLastError(orvanta_status status, const char* function,
                            std::string_view message) noexcept;

/// Runs `work`; ORVANTA_OK when it returns, otherwise the status of what it threw, with the reason
/// kept as the thread's last error.
template <class Work>
orvanta_status guarded(const char* function, Work&& work) noexcept {
  try {
    work();
    return ORVANTA_OK;
  } catch (const Failure& failure) {
    return setLastError(failure.status, function, failure.message);
  } catch (const std::bad_alloc&) {
    return setLastError(ORVANTA_ERROR_OUT_OF_MEMORY, function, "out of memory");
  } catch (const std::exception& error) {
    return setLastError(ORVANTA_ERROR_INTERNAL, function, error.what());
  } catch (...) {
    return setLastError(ORVANTA_ERROR_INTERNAL, function, "an unexpected failure");
  }
}

/// The number a C caller passed for an enumeration. C lets any int through, while reading a value
/// outside the enumerators' range as the C++ enumeration type is undefined, so it is read as the
/// int it is.
template <class Enum>
int enumValue(const Enum& value) {
  static_assert(sizeof(Enum) == sizeof(int));
  int number = 0;
  std::memcpy(&number, &value, sizeof number);
  return number;
}

/// `value` as text of at most `limit` bytes; refuses NULL and longer text (INVALID_ARGUMENT,
/// naming `what`).
std::string_view text(const char* value, const char* what, std::size_t limit = kMaxText);

/// A copy of `value` that the C caller owns and frees with `orvanta_string_free`.
char* ownedCopy(std::string_view value);

/// `json` (at most 64 KiB, nested at most 512 deep) as the JSON object it must be; refuses
/// anything else (REFUSED, naming `what`).
ValueMap jsonObject(std::string_view json, const char* what);

/// `userInfo` as compact JSON text, for a callback.
std::string userInfoJson(const ValueMap& userInfo);

}  // namespace orvanta::c_api
