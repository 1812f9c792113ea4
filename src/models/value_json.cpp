#include "models/value_json.hpp"

#include <cmath>
#include <limits>

#include "core/json_coding.hpp"

namespace orvanta::detail {
namespace {

bool toJson(const Value& value, std::size_t depth, nlohmann::ordered_json& out) {
  switch (value.kind()) {
    case Value::Kind::null:
      out = nullptr;
      return true;
    case Value::Kind::boolean:
      out = *value.boolean();
      return true;
    case Value::Kind::integer:
      out = *value.integer();
      return true;
    case Value::Kind::floating: {
      const double number = *value.floating();
      if (!std::isfinite(number)) {
        return false;
      }
      out = number;
      return true;
    }
    case Value::Kind::boxed: {
      if (auto exact = value.exactInteger()) {
        out = *exact;
        return true;
      }
      const double number = *value.boxedNumber();
      if (!std::isfinite(number)) {
        return false;
      }
      out = number;
      return true;
    }
    case Value::Kind::string:
      if (!isValidUtf8(*value.string())) {
        return false;
      }
      out = *value.string();
      return true;
    case Value::Kind::date:
      return false;
    case Value::Kind::array: {
      if (depth >= kMaxJsonDepth) {
        return false;
      }
      out = nlohmann::ordered_json::array();
      for (const Value& element : *value.array()) {
        nlohmann::ordered_json converted;
        if (!toJson(element, depth + 1, converted)) {
          return false;
        }
        out.push_back(std::move(converted));
      }
      return true;
    }
    case Value::Kind::map: {
      if (depth >= kMaxJsonDepth) {
        return false;
      }
      out = nlohmann::ordered_json::object();
      for (const auto& [key, element] : *value.map()) {
        nlohmann::ordered_json converted;
        if (!isValidUtf8(key) || !toJson(element, depth + 1, converted)) {
          return false;
        }
        out[key] = std::move(converted);
      }
      return true;
    }
  }
  return false;
}

template <typename J>
Value fromJson(const J& json) {
  switch (json.type()) {
    case nlohmann::json::value_t::null:
    case nlohmann::json::value_t::discarded:
      return Value();
    case nlohmann::json::value_t::boolean:
      return Value(json.template get<bool>());
    case nlohmann::json::value_t::number_integer:
      return Value(json.template get<std::int64_t>());
    case nlohmann::json::value_t::number_unsigned:
      return Value(json.template get<std::uint64_t>());  // past int64: floating point
    case nlohmann::json::value_t::number_float:
      return Value(json.template get<double>());
    case nlohmann::json::value_t::string:
      return Value(json.template get<std::string>());
    case nlohmann::json::value_t::binary:
      return Value();
    case nlohmann::json::value_t::array: {
      ValueArray array;
      array.reserve(json.size());
      for (const auto& element : json) {
        array.push_back(fromJson(element));
      }
      return Value(std::move(array));
    }
    case nlohmann::json::value_t::object: {
      ValueMap map;
      for (const auto& [key, element] : json.items()) {
        map.insert_or_assign(key, fromJson(element));
      }
      return Value(std::move(map));
    }
  }
  return Value();
}

}  // namespace

std::optional<nlohmann::ordered_json> valueToJson(const Value& value) {
  nlohmann::ordered_json out;
  if (!toJson(value, 0, out)) {
    return std::nullopt;
  }
  return out;
}

Value valueFromJson(const nlohmann::json& json) {
  return fromJson(json);
}
Value valueFromJson(const nlohmann::ordered_json& json) {
  return fromJson(json);
}

}  // namespace orvanta::detail
