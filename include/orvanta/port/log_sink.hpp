#pragma once

#include <string_view>

#include "orvanta/export.hpp"

namespace orvanta::port {

/// Where log lines go (standard output by default). `write` receives one complete line, with its
/// trailing newline; it may be called from any thread.
class ORVANTA_API LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void write(std::string_view line) = 0;
};

}  // namespace orvanta::port
