#include <cstddef>
#include <cstdint>

#include "fuzz/web_push_fuzzing.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvanta::fuzzing::webPushMessage(data, size);
  return 0;
}
