// The C interface's typed parameters: a builder whose every setter makes exactly the value the
// C++ interface makes for the same C++ type, so that an event tracked from C is the event tracked
// from C++.

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "c_api/parameters.hpp"
#include "c_api/status.hpp"

using orvanta::c_api::fail;
using orvanta::c_api::guarded;
using orvanta::c_api::text;

namespace orvanta::c_api {
namespace {

constexpr std::size_t kMaxEntries = 10'000;

/// Sets `key` to `value`; throws a `Failure` for the C caller.
void put(orvanta_parameters* parameters, const char* key, Value value) {
  if (parameters == nullptr) {
    fail(ORVANTA_ERROR_INVALID_ARGUMENT, "parameters is NULL");
  }
  std::string name(text(key, "key", kMaxName));
  auto& values = parameters->values;
  if (auto found = values.find(name); found != values.end()) {
    found->second = std::move(value);
  } else {
    if (values.size() >= kMaxEntries) {
      fail(ORVANTA_ERROR_INVALID_ARGUMENT,
           "more than " + std::to_string(kMaxEntries) + " parameters");
    }
    values.emplace(std::move(name), std::move(value));
  }
  parameters->entries.clear();
}

double finite(double value, const char* what) {
  if (!std::isfinite(value)) {
    fail(ORVANTA_ERROR_INVALID_ARGUMENT, std::string(what) + " is not a finite number");
  }
  return value;
}

/// The entry at `index`, or none (also when the index can't be made: out of memory).
const ValueMap::value_type* entry(const orvanta_parameters* parameters,
                                  std::size_t index) noexcept {
  if (parameters == nullptr || index >= parameters->values.size()) {
    return nullptr;
  }
  if (parameters->entries.size() != parameters->values.size()) {
    try {
      parameters->entries.clear();
      for (const auto& item : parameters->values) {
        parameters->entries.push_back(&item);
      }
    } catch (const std::bad_alloc&) {
      parameters->entries.clear();
      setLastError(ORVANTA_ERROR_OUT_OF_MEMORY, "reading parameters", "out of memory");
      return nullptr;
    }
  }
  return parameters->entries[index];
}

}  // namespace

orvanta_parameters* newParameters(ValueMap values) {
  auto* parameters = new orvanta_parameters();
  parameters->values = std::move(values);
  return parameters;
}

}  // namespace orvanta::c_api

extern "C" {

orvanta_parameters* orvanta_parameters_new(void) {
  orvanta_parameters* parameters = nullptr;
  guarded(__func__, [&] { parameters = orvanta::c_api::newParameters({}); });
  return parameters;
}

void orvanta_parameters_free(orvanta_parameters* parameters) {
  delete parameters;
}

orvanta_status orvanta_parameters_set_string(orvanta_parameters* parameters, const char* key,
                                             const char* value) {
  return guarded(__func__,
                 [&] { orvanta::c_api::put(parameters, key, std::string(text(value, "value"))); });
}

orvanta_status orvanta_parameters_set_integer(orvanta_parameters* parameters, const char* key,
                                              int64_t value) {
  return guarded(__func__, [&] { orvanta::c_api::put(parameters, key, value); });
}

orvanta_status orvanta_parameters_set_double(orvanta_parameters* parameters, const char* key,
                                             double value) {
  return guarded(__func__, [&] {
    orvanta::c_api::put(parameters, key, orvanta::c_api::finite(value, "value"));
  });
}

orvanta_status orvanta_parameters_set_boolean(orvanta_parameters* parameters, const char* key,
                                              bool value) {
  return guarded(__func__, [&] { orvanta::c_api::put(parameters, key, value); });
}

orvanta_status orvanta_parameters_set_date(orvanta_parameters* parameters, const char* key,
                                           double seconds_since_1970) {
  return guarded(__func__, [&] {
    const double seconds = orvanta::c_api::finite(seconds_since_1970, "seconds_since_1970");
    orvanta::c_api::put(parameters, key, orvanta::Date::since1970(seconds));
  });
}

size_t orvanta_parameters_count(const orvanta_parameters* parameters) {
  return parameters != nullptr ? parameters->values.size() : 0;
}

const char* orvanta_parameters_key(const orvanta_parameters* parameters, size_t index) {
  const auto* item = orvanta::c_api::entry(parameters, index);
  return item != nullptr ? item->first.c_str() : nullptr;
}

orvanta_value_kind orvanta_parameters_kind(const orvanta_parameters* parameters, size_t index) {
  const auto* item = orvanta::c_api::entry(parameters, index);
  if (item == nullptr) {
    return ORVANTA_VALUE_NONE;
  }
  using Kind = orvanta::Value::Kind;
  switch (item->second.kind()) {
    case Kind::string:
      return ORVANTA_VALUE_STRING;
    case Kind::integer:
      return ORVANTA_VALUE_INTEGER;
    case Kind::floating:
      return ORVANTA_VALUE_DOUBLE;
    case Kind::boolean:
      return ORVANTA_VALUE_BOOLEAN;
    case Kind::date:
      return ORVANTA_VALUE_DATE;
    default:
      return ORVANTA_VALUE_NONE;
  }
}

const char* orvanta_parameters_string(const orvanta_parameters* parameters, size_t index) {
  const auto* item = orvanta::c_api::entry(parameters, index);
  const std::string* value = item != nullptr ? item->second.string() : nullptr;
  return value != nullptr ? value->c_str() : nullptr;
}

int64_t orvanta_parameters_integer(const orvanta_parameters* parameters, size_t index) {
  const auto* item = orvanta::c_api::entry(parameters, index);
  return item != nullptr ? item->second.integer().value_or(0) : 0;
}

double orvanta_parameters_double(const orvanta_parameters* parameters, size_t index) {
  const auto* item = orvanta::c_api::entry(parameters, index);
  return item != nullptr ? item->second.floating().value_or(0.0) : 0.0;
}

bool orvanta_parameters_boolean(const orvanta_parameters* parameters, size_t index) {
  const auto* item = orvanta::c_api::entry(parameters, index);
  return item != nullptr && item->second.boolean().value_or(false);
}

double orvanta_parameters_date(const orvanta_parameters* parameters, size_t index) {
  const auto* item = orvanta::c_api::entry(parameters, index);
  auto date = item != nullptr ? item->second.date() : std::nullopt;
  return date ? date->timeIntervalSince1970() : 0.0;
}

}  // extern "C"
