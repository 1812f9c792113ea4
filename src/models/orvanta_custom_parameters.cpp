#include "models/orvanta_custom_parameters.hpp"

#include "models/json_coding.hpp"

namespace orvanta {

ValueMap OrvantaCustomParameters::all() const {
  ValueMap result;
  for (const auto& [key, value] : boolenFields) {
    result.insert_or_assign(key, Value(value));
  }
  for (const auto& [key, value] : integerFields) {
    result.insert_or_assign(key, Value(value));
  }
  for (const auto& [key, value] : stringFields) {
    result.insert_or_assign(key, Value(value));
  }
  for (const auto& [key, value] : dateFields) {
    result.insert_or_assign(key, Value(value));
  }
  return result;
}

void OrvantaCustomParameters::setAll(const ValueMap& parameters) {
  for (const auto& [key, value] : parameters) {
    if (auto integer = value.exactInteger()) {
      integerFields.insert_or_assign(key, *integer);
    } else if (const std::string* text = value.string()) {
      stringFields.insert_or_assign(key, *text);
    } else if (auto flag = value.boolean()) {
      boolenFields.insert_or_assign(key, *flag);
    } else if (auto date = value.date()) {
      dateFields.insert_or_assign(key, *date);
    }
  }
}

nlohmann::ordered_json OrvantaCustomParameters::toJson() const {
  using namespace detail;
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  json["boolean_fields"] = encodeMap(boolenFields, [](bool v) { return OrderedJson(v); });
  json["integer_fields"] = encodeMap(integerFields, [](std::int64_t v) { return OrderedJson(v); });
  json["string_fields"] =
      encodeMap(stringFields, [](const std::string& v) { return OrderedJson(v); });
  json["date_fields"] = encodeMap(dateFields, encodeDate);
  return json;
}

OrvantaCustomParameters OrvantaCustomParameters::fromJson(const nlohmann::json& json) {
  using namespace detail;
  requireObject(json, "custom");
  OrvantaCustomParameters parameters;
  parameters.boolenFields =
      mapFrom<bool>(requiredMember(json, "boolean_fields"), "boolean_fields", boolFrom);
  parameters.integerFields =
      mapFrom<std::int64_t>(requiredMember(json, "integer_fields"), "integer_fields", int64From);
  parameters.stringFields =
      mapFrom<std::string>(requiredMember(json, "string_fields"), "string_fields", stringFrom);
  parameters.dateFields =
      mapFrom<Date>(requiredMember(json, "date_fields"), "date_fields", dateFrom);
  return parameters;
}

}  // namespace orvanta
