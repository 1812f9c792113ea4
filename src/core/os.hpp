#pragma once

#include <cstddef>
#include <string_view>

/// The few things the portable core asks of the operating system, each behind one function so
/// that the rest of the core stays free of system headers.
namespace orvanta::os {

/// Names the calling thread, as debuggers and `top -H` show it (Linux keeps the first 15 bytes).
/// Does nothing where the system has no thread names.
void setCurrentThreadName(std::string_view name);

/// Fills `size` bytes at `buffer` from the system's cryptographic random source. False when the
/// source cannot be read (then the buffer's content is unspecified).
bool fillRandomBytes(void* buffer, std::size_t size);

}  // namespace orvanta::os
