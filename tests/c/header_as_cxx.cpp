// orvanta/orvanta.h included by a C++ host: it compiles as C++ (with warnings as errors, see
// CMakeLists.txt), its functions keep C linkage, and its types are the C ones.

#include <orvanta/orvanta.h>

#include <type_traits>

#include "sandbox_support.h"

static_assert(ORVANTA_C_ABI_VERSION == 0);
static_assert(std::is_same_v<decltype(&orvanta_configure), orvanta_status (*)(bool)>);
static_assert(std::is_same_v<decltype(&orvanta_flush), size_t (*)(uint32_t)>);
static_assert(sizeof(orvanta_status) == sizeof(int) && sizeof(orvanta_value_kind) == sizeof(int));

extern "C" bool test_header_compiles_as_cxx(void) {
  // Calls through the header from C++, as a C++ host would.
  return orvanta_abi_version() == ORVANTA_C_ABI_VERSION && orvanta_last_error() != nullptr;
}
