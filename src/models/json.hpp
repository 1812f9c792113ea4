#pragma once

// `json(record)`: a record as the string-keyed JSON object the router sends as a request body.

#include <concepts>
#include <exception>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace orvanta {

/// A wire record that can write itself as JSON.
template <typename T>
concept JsonEncodable = requires(const T& record) {
  { record.toJson() } -> std::same_as<nlohmann::ordered_json>;
};

/// The record as a JSON object with its keys in wire order, or none when it cannot be written (a
/// non-finite number, text that is not UTF-8) or is not an object. Reports nothing.
template <JsonEncodable T>
std::optional<nlohmann::ordered_json> json(const T& record) {
  try {
    nlohmann::ordered_json object = record.toJson();
    if (!object.is_object()) {
      return std::nullopt;
    }
    (void)object.dump();  // refuses text that is not UTF-8
    return object;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

/// The record as compact JSON text, or none as for `json`.
template <JsonEncodable T>
std::optional<std::string> jsonText(const T& record) {
  try {
    nlohmann::ordered_json object = record.toJson();
    if (!object.is_object()) {
      return std::nullopt;
    }
    return object.dump();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace orvanta
