#pragma once

#include <sys/types.h>

#include <string>

namespace orvanta::testing {

/// A private X server (Xvfb) for tests that need a display. It picks a free display number by
/// itself and says which once it accepts connections; the constructor waits for that (with a
/// generous deadline) and throws std::runtime_error when the server cannot start. The destructor
/// stops the server and reaps it. Close every client connection first. One thread at a time.
class XvfbDisplay {
 public:
  /// `program`: path of Xvfb; `screen`: WIDTHxHEIGHTxDEPTH of screen 0.
  explicit XvfbDisplay(const std::string& program = "Xvfb",
                       const std::string& screen = "1280x800x24");
  ~XvfbDisplay();
  XvfbDisplay(const XvfbDisplay&) = delete;
  XvfbDisplay& operator=(const XvfbDisplay&) = delete;

  /// The display name to put in DISPLAY, e.g. ":3".
  const std::string& name() const { return name_; }

 private:
  pid_t pid_ = -1;
  std::string name_;
};

}  // namespace orvanta::testing
