#pragma once

#include <vector>

#include "orvanta/orvanta.h"
#include "orvanta/value.hpp"

/// Typed parameters built by a C host: the values as the C++ interface takes them, and an index
/// of the entries for reading them by number (made on the first read after a change).
struct orvanta_parameters {
  orvanta::ValueMap values;
  mutable std::vector<const orvanta::ValueMap::value_type*> entries;
};

namespace orvanta::c_api {

/// New parameters holding `values`, for the C caller to free.
orvanta_parameters* newParameters(ValueMap values);

}  // namespace orvanta::c_api
