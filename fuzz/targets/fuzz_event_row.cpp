#include <cstddef>
#include <cstdint>

#include "fuzz/record_fuzzing.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvanta::fuzzing::eventRow(data, size);
  return 0;
}
