#include "models/orvanta_custom_parameters.hpp"

#include "core/json_coding.hpp"
#include "models/typed_fields.hpp"

namespace orvanta {

ValueMap OrvantaCustomParameters::all() const {
  return detail::mergeTypedFields(boolenFields, integerFields, stringFields, dateFields);
}

void OrvantaCustomParameters::setAll(const ValueMap& parameters) {
  detail::sortIntoTypedFields(parameters, integerFields, stringFields, boolenFields, dateFields);
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
