#include "models/orvanta_event.hpp"

#include <cmath>
#include <type_traits>

#include "core/json_coding.hpp"
#include "core/json_writer.hpp"
#include "core/utf8.hpp"
#include "core/uuid.hpp"
#include "models/typed_fields.hpp"

namespace orvanta {

OrvantaEvent::OrvantaEvent(const std::string& deviceToken, const std::string& appId,
                           std::string eventName, double creationTime, const ValueMap& values)
    : uuidId(makeUuidString()),
      pushId(repairedUtf8(deviceToken) + "|||" + repairedUtf8(appId)),
      name(std::move(eventName)),
      createdAt(creationTime) {
  repairUtf8(name);
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

namespace {

using detail::JsonWriter;

template <class Map, class Write>
void writeMap(JsonWriter& writer, const Map& map, Write write) {
  writer.beginObject();
  for (const auto& [key, value] : map) {
    writer.key(key);
    write(writer, value);
  }
  writer.endObject();
}

void writeStrings(JsonWriter& writer, const std::map<std::string, std::string>& map) {
  writeMap(writer, map, [](JsonWriter& w, const std::string& v) { w.value(std::string_view(v)); });
}
void writeIntegers(JsonWriter& writer, const std::map<std::string, std::int64_t>& map) {
  writeMap(writer, map, [](JsonWriter& w, std::int64_t v) { w.value(v); });
}
void writeBooleans(JsonWriter& writer, const std::map<std::string, bool>& map) {
  writeMap(writer, map, [](JsonWriter& w, bool v) { w.value(v); });
}
void writeDates(JsonWriter& writer, const std::map<std::string, Date>& map) {
  writeMap(writer, map,
           [](JsonWriter& w, Date v) { w.number(v.timeIntervalSinceReferenceDate()); });
}

/// A map as a member of the pretty-printed body (one level deep): "{}" when empty, otherwise
/// one member per line, indented by four spaces, the closing brace by two.
template <class Map, class Write>
void appendPrettyMap(std::string& out, const Map& map, Write write) {
  if (map.empty()) {
    out.append("{}");
    return;
  }
  const char* separator = "{\n    ";
  for (const auto& [key, value] : map) {
    out.append(separator);
    separator = ",\n    ";
    detail::appendJsonString(out, key);
    out.append(": ");
    write(out, value);
  }
  out.append("\n  }");
}

void appendNumber(std::string& out, double value) {
  JsonWriter(out).number(value);
}

}  // namespace

void OrvantaEvent::writeBody(std::string& out) const {
  // The members in wire order, spelled out: this runs once per post.
  out.append("{\n  \"pushId\": ");
  detail::appendJsonString(out, pushId);
  out.append(",\n  \"eventName\": ");
  detail::appendJsonString(out, name);
  out.append(",\n  \"createdAt\": ");
  appendNumber(out, createdAt);
  out.append(",\n  \"additionalStringFields\": ");
  appendPrettyMap(out, additionalStringFields,
                  [](std::string& o, const std::string& v) { detail::appendJsonString(o, v); });
  out.append(",\n  \"additionalNumericFields\": ");
  appendPrettyMap(out, additionalNumericFields,
                  [](std::string& o, std::int64_t v) { JsonWriter(o).value(v); });
  out.append(",\n  \"additionalBoolFields\": ");
  appendPrettyMap(out, additionalBoolFields,
                  [](std::string& o, bool v) { o.append(v ? "true" : "false"); });
  out.append(",\n  \"additionalDateFields\": ");
  appendPrettyMap(out, additionalDateFields, [](std::string& o, Date v) {
    appendNumber(o, v.timeIntervalSinceReferenceDate());
  });
  out.append("\n}");
}

std::optional<std::size_t> OrvantaEvent::oversizedBody() const {
  // An upper bound first: escaping makes a byte at most six ("\u001f"), and each member adds its
  // quotes, separator and indentation.
  std::size_t text = pushId.size() + name.size();
  std::size_t members = 0;
  auto count = [&](const auto& map, std::size_t valueBytes) {
    for (const auto& [key, value] : map) {
      text += key.size();
      if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::string>) {
        text += value.size();
      }
      text += valueBytes;
    }
    members += map.size();
  };
  count(additionalStringFields, 0);
  count(additionalNumericFields, 20);
  count(additionalBoolFields, 5);
  count(additionalDateFields, 24);
  if (6 * text + 16 * members + 256 <= kMaxEventBodyBytes) {
    return std::nullopt;
  }
  std::string body;
  writeBody(body);
  if (body.size() <= kMaxEventBodyBytes) {
    return std::nullopt;
  }
  return body.size();
}

bool OrvantaEvent::rowMayBeOversized(const detail::RowValues& row) {
  return 6 * row.footprint() + 256 > kMaxEventBodyBytes;
}

detail::RowValues OrvantaEvent::toRow() const {
  if (!std::isfinite(createdAt)) {
    throw detail::EncodingFailure("a non-finite number cannot be written as JSON");
  }
  // The four maps are written first, so that the row is made in one allocation of its size.
  std::string maps;
  maps.reserve(128);
  std::size_t ends[4] = {};
  const auto column = [&](std::size_t index, auto write, const auto& map) {
    JsonWriter writer(maps);
    write(writer, map);
    ends[index] = maps.size();
  };
  column(0, writeStrings, additionalStringFields);
  column(1, writeIntegers, additionalNumericFields);
  column(2, writeBooleans, additionalBoolFields);
  column(3, writeDates, additionalDateFields);
  detail::RowValues::Builder row(8, uuidId.size() + pushId.size() + name.size() + 8 + maps.size());
  row.text(uuidId);
  row.text(pushId);
  row.text(name);
  row.real(createdAt);
  std::size_t begin = 0;
  for (std::size_t end : ends) {
    row.text(std::string_view(maps).substr(begin, end - begin));
    begin = end;
  }
  return row.finish();
}

namespace {

/// Reads the columns into `event`, or only checks that they would read when `event` is null
/// (nothing is allocated then). False when they are not in the form `writeColumns` writes.
bool readEventColumns(const detail::RowValues& row, OrvantaEvent* event) {
  using Kind = detail::RowValues::Kind;
  using Scalar = detail::FlatScalar;
  if (row.size() != 8 || row.kind(0) != Kind::text || row.kind(1) != Kind::text ||
      row.kind(2) != Kind::text || row.kind(3) != Kind::real) {
    return false;
  }
  for (std::size_t column = 4; column < 8; ++column) {
    if (row.kind(column) != Kind::text) {
      return false;
    }
  }
  if (!std::isfinite(row.real(3))) {
    return false;
  }
  if (event != nullptr) {
    event->uuidId = row.text(0);
    event->pushId = row.text(1);
    event->name = row.text(2);
    event->createdAt = row.real(3);
  }
  // Each map: every member of the right kind, stored into the event when there is one.
  const auto map = [&](std::size_t column, auto* target, auto convert) {
    return detail::readFlatObject(row.text(column),
                                  [&](std::string_view key, const Scalar& scalar) {
                                    auto value = convert(scalar);
                                    if (!value) {
                                      return false;
                                    }
                                    if (target != nullptr) {
                                      target->insert_or_assign(std::string(key), std::move(*value));
                                    }
                                    return true;
                                  });
  };
  return map(4, event != nullptr ? &event->additionalStringFields : nullptr,
             [&](const Scalar& s) -> std::optional<std::string> {
               if (s.kind != Scalar::Kind::string) {
                 return std::nullopt;
               }
               return event != nullptr ? std::string(s.text) : std::string();
             }) &&
         map(5, event != nullptr ? &event->additionalNumericFields : nullptr,
             [](const Scalar& s) -> std::optional<std::int64_t> {
               if (s.kind != Scalar::Kind::number) {
                 return std::nullopt;
               }
               return detail::integerFromJsonNumber(s.text);
             }) &&
         map(6, event != nullptr ? &event->additionalBoolFields : nullptr,
             [](const Scalar& s) -> std::optional<bool> {
               if (s.kind != Scalar::Kind::boolean) {
                 return std::nullopt;
               }
               return s.text == "true";
             }) &&
         map(7, event != nullptr ? &event->additionalDateFields : nullptr,
             [](const Scalar& s) -> std::optional<Date> {
               if (s.kind != Scalar::Kind::number) {
                 return std::nullopt;
               }
               auto seconds = detail::doubleFromJsonNumber(s.text);
               if (!seconds) {
                 return std::nullopt;
               }
               return Date::sinceReferenceDate(*seconds);
             });
}

}  // namespace

std::optional<OrvantaEvent> OrvantaEvent::readColumns(const detail::RowValues& row) {
  OrvantaEvent event;
  if (!readEventColumns(row, &event)) {
    return std::nullopt;
  }
  return event;
}

bool OrvantaEvent::canReadColumns(const detail::RowValues& row) {
  return readEventColumns(row, nullptr);
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
