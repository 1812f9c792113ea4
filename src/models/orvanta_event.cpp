#include "models/orvanta_event.hpp"

#include "core/json_coding.hpp"
#include "core/uuid.hpp"
#include "models/typed_fields.hpp"

namespace orvanta {

OrvantaEvent::OrvantaEvent(const std::string& deviceToken, const std::string& appId,
                           std::string eventName, double creationTime, const ValueMap& values)
    : uuidId(makeUuidString()),
      pushId(deviceToken + "|||" + appId),
      name(std::move(eventName)),
      createdAt(creationTime) {
  setParameters(values);
}

ValueMap OrvantaEvent::parameters() const {
  return detail::mergeTypedFields(additionalStringFields, additionalNumericFields,
                                  additionalBoolFields, additionalDateFields);
}

void OrvantaEvent::setParameters(const ValueMap& parameters) {
  detail::sortIntoTypedFields(parameters, additionalNumericFields, additionalStringFields,
                              additionalBoolFields, additionalDateFields);
}

nlohmann::ordered_json OrvantaEvent::toJson() const {
  using namespace detail;
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  json["uuidId"] = uuidId;
  json["pushId"] = pushId;
  json["eventName"] = name;
  json["createdAt"] = encodeDouble(createdAt);
  json["additionalStringFields"] =
      encodeMap(additionalStringFields, [](const std::string& v) { return OrderedJson(v); });
  json["additionalNumericFields"] =
      encodeMap(additionalNumericFields, [](std::int64_t v) { return OrderedJson(v); });
  json["additionalBoolFields"] =
      encodeMap(additionalBoolFields, [](bool v) { return OrderedJson(v); });
  json["additionalDateFields"] = encodeMap(additionalDateFields, encodeDate);
  return json;
}

OrvantaEvent OrvantaEvent::fromJson(const nlohmann::json& json) {
  using namespace detail;
  requireObject(json, "event");
  OrvantaEvent event;
  event.uuidId = requiredString(json, "uuidId");
  event.pushId = requiredString(json, "pushId");
  event.name = requiredString(json, "eventName");
  event.createdAt = doubleFrom(requiredMember(json, "createdAt"), "createdAt");
  event.additionalStringFields = mapFrom<std::string>(
      requiredMember(json, "additionalStringFields"), "additionalStringFields", stringFrom);
  event.additionalNumericFields = mapFrom<std::int64_t>(
      requiredMember(json, "additionalNumericFields"), "additionalNumericFields", int64From);
  event.additionalBoolFields =
      mapFrom<bool>(requiredMember(json, "additionalBoolFields"), "additionalBoolFields", boolFrom);
  event.additionalDateFields =
      mapFrom<Date>(requiredMember(json, "additionalDateFields"), "additionalDateFields", dateFrom);
  return event;
}

Result<OrvantaEvent> OrvantaEvent::decode(std::string_view json) {
  try {
    return fromJson(detail::parseJson(json));
  } catch (const detail::DecodingFailure& failure) {
    return failure.toError();
  }
}

void OrvantaEvent::create(TableBuilder& builder) {
  builder.column("uuidId", SqlType::text, {.primaryKey = true, .notNull = true})
      .column("pushId", SqlType::text, {.notNull = true})
      .column("eventName", SqlType::text, {.notNull = true})
      .column("createdAt", SqlType::real, {.notNull = true})
      .column("additionalStringFields", SqlType::blob, {.notNull = true})
      .column("additionalNumericFields", SqlType::blob, {.notNull = true})
      .column("additionalBoolFields", SqlType::blob, {.notNull = true})
      .column("additionalDateFields", SqlType::blob, {.notNull = true});
}

}  // namespace orvanta
