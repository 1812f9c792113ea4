#pragma once

// The console's web page and the files it loads, compiled into the sandbox from
// tools/sandbox/console/ (see tools/sandbox/cmake/embed_console.cmake).

#include <string_view>

namespace orvanta::sandbox::console {

struct Asset {
  std::string_view path;  // under /_sandbox/; "" is the page itself
  std::string_view contentType;
  std::string_view bytes;
};

// The asset served at /_sandbox/<path>, or nullptr.
const Asset* findAsset(std::string_view path);

}  // namespace orvanta::sandbox::console
