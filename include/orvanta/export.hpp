#pragma once

// Symbols of the kit are hidden by default; ORVANTA_API marks what a host may link against.
#if defined(ORVANTA_BUILDING_LIBRARY)
#define ORVANTA_API __attribute__((visibility("default")))
#else
#define ORVANTA_API
#endif
