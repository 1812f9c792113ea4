#pragma once

#include <chrono>
#include <concepts>
#include <exception>
#include <memory>
#include <optional>
#include <ostream>
#include <source_location>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "orvanta/error.hpp"
#include "orvanta/port/clock.hpp"
#include "orvanta/port/log_sink.hpp"
#include "orvanta/port/preferences_store.hpp"

namespace orvanta {

namespace detail {

// Where a log call was made. Accepted for the callers' convenience and never printed, so a
// toolchain without std::source_location (clang 14 over libstdc++ 12) gets an empty stand-in.
#if defined(__cpp_lib_source_location)
using SourceLocation = std::source_location;
#else
struct SourceLocation {
  static constexpr SourceLocation current() noexcept { return {}; }
};
#endif

template <class T>
concept Streamable = requires(std::ostream& stream, const T& value) {
  stream << value;
};

template <class>
inline constexpr bool kAlwaysFalse = false;

}  // namespace detail

/// The kit's diagnostic channel: one line per call on the log sink of the platform in force
/// (standard output by default), printed only while the persisted `isLoggingEnabled` switch is on.
/// The switch is read again on every call. Every member may be called from any thread.
///
/// A message is anything `render` can print, or a function giving it, which is only called when
/// the line is printed: `OrvantaLogger::info([&] { return "costly " + text(); })` costs nothing
/// while logging is off.
///
/// A line reads "🚀 ORVANTA 🚀 " + date + " " + level tag + " " + message, the date in the local
/// time zone as "yyyy-MM-dd hh:mm:ssSSS": a 12-hour hour without AM/PM and the milliseconds written
/// straight after the seconds (14:05:09.042 prints as 02:05:09042). That is the kit's log format.
class OrvantaLogger {
 public:
  enum class LogLevel { verbose, debug, info, warning, error };

  /// Where lines go: the sink, the clock of their time stamps, and the preferences store that
  /// holds the logging switch.
  struct Output {
    std::shared_ptr<port::LogSink> sink;
    std::shared_ptr<port::Clock> clock;
    std::shared_ptr<port::PreferencesStore> preferences;
  };

  /// Sends every later line of the process to `output` (none: nothing is printed). The kit's
  /// entry point binds the platform in force. Any thread.
  static void bind(std::shared_ptr<const Output> output);

  /// The printed tag of a level ("ℹ️ INFO ℹ️"), in UTF-8.
  static std::string_view rawValue(LogLevel level);
  /// The level whose tag is `tag`; none for any other text.
  static std::optional<LogLevel> levelFromRawValue(std::string_view tag);

  // The location is accepted for the callers' convenience and not printed.
  template <class M>
  static void verbose(const M& message,
                      detail::SourceLocation location = detail::SourceLocation::current()) {
    log(LogLevel::verbose, message, location);
  }
  template <class M>
  static void debug(const M& message,
                    detail::SourceLocation location = detail::SourceLocation::current()) {
    log(LogLevel::debug, message, location);
  }
  template <class M>
  static void info(const M& message,
                   detail::SourceLocation location = detail::SourceLocation::current()) {
    log(LogLevel::info, message, location);
  }
  template <class M>
  static void warning(const M& message,
                      detail::SourceLocation location = detail::SourceLocation::current()) {
    log(LogLevel::warning, message, location);
  }
  template <class M>
  static void error(const M& message,
                    detail::SourceLocation location = detail::SourceLocation::current()) {
    log(LogLevel::error, message, location);
  }

  /// Text of a message: an `Error` as its localized description, text as it stands, an exception
  /// as its `what()`, anything else as `operator<<` writes it (Booleans as true/false).
  template <class M>
  static std::string render(const M& message) {
    if constexpr (std::is_invocable_v<const M&>) {
      return render(message());
    } else if constexpr (std::is_same_v<M, Error>) {
      return message.localizedDescription();
    } else if constexpr (std::is_convertible_v<const M&, std::string_view>) {
      return std::string(std::string_view(message));
    } else if constexpr (std::is_base_of_v<std::exception, M>) {
      return message.what();
    } else if constexpr (detail::Streamable<M>) {
      std::ostringstream stream;
      stream << std::boolalpha << message;
      return stream.str();
    } else {
      static_assert(detail::kAlwaysFalse<M>, "the logger cannot print this type");
    }
  }

  /// True when a line of `level` would be printed now (logging is on and a sink is bound).
  static bool isPrinting(LogLevel level) { return printingOutput(level) != nullptr; }

  /// The date as the log line shows it, in the local time zone.
  static std::string formatDate(std::chrono::system_clock::time_point time);
  /// A complete log line, newline included.
  static std::string formatLine(LogLevel level, std::chrono::system_clock::time_point time,
                                std::string_view message);

 private:
  template <class M>
  static void log(LogLevel level, const M& message, const detail::SourceLocation&) {
    try {
      auto output = printingOutput(level);
      if (!output) {
        return;
      }
      write(*output, level, render(message));
    } catch (...) {  // NOLINT(bugprone-empty-catch): the logger never fails its caller
    }
  }

  /// The bound output when a line of `level` is to be printed now; none otherwise.
  static std::shared_ptr<const Output> printingOutput(LogLevel level);
  static void write(const Output& output, LogLevel level, std::string_view message);
};

}  // namespace orvanta
