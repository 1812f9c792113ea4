#pragma once

// The bodies of the record fuzz targets. The targets call them from LLVMFuzzerTestOneInput; the
// unit tests call them on the corpus and regressions so a fixed failure stays fixed even in
// builds without the fuzz targets. Each returns normally for any input and aborts when the code
// under test breaks one of its promises.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "core/json_coding.hpp"
#include "core/utf8.hpp"
#include "models/json.hpp"
#include "models/orvanta_device.hpp"
#include "models/orvanta_event.hpp"
#include "models/orvanta_notification_payload.hpp"
#include "models/value_json.hpp"
#include "push/remote_push_message.hpp"
#include "storage/database.hpp"

namespace orvanta::fuzzing {

[[noreturn]] inline void violated(const char* what) {
  std::fprintf(stderr, "fuzz check failed: %s\n", what);
  std::abort();
}

inline std::string_view asText(const std::uint8_t* data, std::size_t size) {
  return size == 0 ? std::string_view()
                   : std::string_view(reinterpret_cast<const char*>(data), size);
}

/// Bytes as the last-push answer: decodes or fails with a decoding error, nothing else.
inline void payloadFromJson(const std::uint8_t* data, std::size_t size) {
  auto decoded = OrvantaNotificationPayload::decode(asText(data, size));
  if (!decoded.isSuccess()) {
    if (decoded.error().domain() != Error::Domain::decoding) {
      violated("payload decoding failed outside the decoding domain");
    }
    return;
  }
  const auto& payload = decoded.value();
  if (!payload.userInfo.empty()) {
    violated("a payload decoded from JSON carries user info");
  }
  if (payload.image && payload.image->string().empty()) {
    violated("an empty image URL was accepted");
  }
}

namespace detail_fuzz {

// Rewrites a value from JSON into the shapes only a host dictionary has, steered by `mode`:
// numbers boxed (bit 0), strings "$date" turned into dates (bit 1), strings starting with "$bad"
// given an invalid UTF-8 byte (bit 2), integers turned into floating point (bit 3).
inline Value hostShaped(const Value& value, unsigned mode, int depth) {
  if (depth > 64) {
    return value;
  }
  switch (value.kind()) {
    case Value::Kind::integer:
      if (mode & 1U) {
        return Value::boxed(static_cast<double>(*value.integer()));
      }
      if (mode & 8U) {
        return Value(static_cast<double>(*value.integer()));
      }
      return value;
    case Value::Kind::floating:
      return (mode & 1U) ? Value::boxed(*value.floating()) : value;
    case Value::Kind::string: {
      const std::string& text = *value.string();
      if ((mode & 2U) && text == "$date") {
        return Value(Date::sinceReferenceDate(10.0));
      }
      if ((mode & 4U) && text.rfind("$bad", 0) == 0) {
        return Value(text + '\xff');
      }
      return value;
    }
    case Value::Kind::array: {
      ValueArray out;
      for (const auto& element : *value.array()) {
        out.push_back(hostShaped(element, mode, depth + 1));
      }
      return Value(std::move(out));
    }
    case Value::Kind::map: {
      ValueMap out;
      for (const auto& [key, element] : *value.map()) {
        out.emplace(key, hostShaped(element, mode, depth + 1));
      }
      return Value(std::move(out));
    }
    default:
      return value;
  }
}

}  // namespace detail_fuzz

/// First byte: how to shape the dictionary; the rest: JSON for it (a non-object is placed under
/// "data"). Checks that `fromUserInfo` keeps the dictionary it was given and agrees with decoding
/// the dictionary's JSON.
inline void payloadFromUserInfo(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return;
  }
  const unsigned mode = data[0];
  nlohmann::json parsed;
  try {
    parsed = orvanta::detail::parseJson(asText(data + 1, size - 1));
  } catch (const orvanta::detail::DecodingFailure&) {
    return;
  }
  Value shaped = detail_fuzz::hostShaped(orvanta::detail::valueFromJson(parsed), mode, 0);
  ValueMap userInfo;
  if (const ValueMap* map = shaped.map()) {
    userInfo = *map;
  } else {
    userInfo.emplace("data", std::move(shaped));
  }

  auto payload = OrvantaNotificationPayload::fromUserInfo(userInfo);
  auto json = orvanta::detail::valueToJson(Value(userInfo));
  if (!json) {
    if (payload) {
      violated("a dictionary JSON cannot carry gave a payload");
    }
    return;
  }
  auto decoded = OrvantaNotificationPayload::decode(json->dump());
  if (decoded.isSuccess() != payload.has_value()) {
    violated("fromUserInfo and decode disagree");
  }
  if (payload) {
    if (!(payload->userInfo == userInfo)) {
      violated("the payload does not keep the dictionary it was built from");
    }
    auto withoutUserInfo = *payload;
    withoutUserInfo.userInfo.clear();
    if (!(withoutUserInfo == decoded.value())) {
      violated("fromUserInfo and decode read different payloads");
    }
  }
}

/// Bytes as a stored device record: decodes or fails with a decoding error; a record that
/// decodes writes JSON that decodes back to the same record.
inline void deviceRecord(const std::uint8_t* data, std::size_t size) {
  auto decoded = OrvantaDevice::decode(asText(data, size));
  if (!decoded.isSuccess()) {
    if (decoded.error().domain() != Error::Domain::decoding) {
      violated("device decoding failed outside the decoding domain");
    }
    return;
  }
  auto text = jsonText(decoded.value());
  if (!text) {
    violated("a decoded device cannot be written");
  }
  auto again = OrvantaDevice::decode(*text);
  if (!again.isSuccess()) {
    violated("a written device does not decode");
  }
  if (!(again.value() == decoded.value())) {
    violated("a device changed on its way through JSON");
  }
  auto textAgain = jsonText(again.value());
  if (!textAgain || *textAgain != *text) {
    violated("a device is not written the same way twice");
  }
}

/// Bytes as a push transport delivers a push: read as a push's dictionary or dropped; nothing over
/// the size limit is read, and what is read goes back to JSON.
inline void pushMessage(const std::uint8_t* data, std::size_t size) {
  const auto userInfo = remotePushUserInfo(asText(data, size));
  if (userInfo && size > kMaxRemotePushBytes) {
    violated("a message over the limit was read");
  }
  if (userInfo && !detail::valueToJson(Value(*userInfo))) {
    violated("a push read from JSON does not go back to JSON");
  }
}

/// Bytes as a stored event row, damaged in any way: eight columns, each a kind byte (null,
/// integer, real, text) and its value (8 bytes for a number; for a text a length byte and that
/// many bytes, made valid UTF-8 as the database hands text out). The row reads back or fails with
/// a decoding error, nothing else; the quick check agrees with the full read; a row that reads
/// back writes its body and its row again, and that row reads back the same event.
inline void eventRow(const std::uint8_t* data, std::size_t size) {
  std::size_t at = 0;
  auto take = [&](std::size_t count) {
    std::string_view bytes = asText(data + at, std::min(count, size - at));
    at += bytes.size();
    return bytes;
  };
  detail::RowValues::Builder builder(8);
  for (int column = 0; column < 8; ++column) {
    const std::string_view kind = take(1);
    switch (kind.empty() ? 0 : static_cast<unsigned char>(kind[0]) % 4) {
      case 0:
        builder.null();
        break;
      case 1:
      case 2: {
        std::uint64_t bits = 0;
        for (char byte : take(8)) {
          bits = (bits << 8) | static_cast<unsigned char>(byte);
        }
        if (static_cast<unsigned char>(kind[0]) % 4 == 1) {
          builder.integer(static_cast<std::int64_t>(bits));
        } else {
          double real = 0;
          std::memcpy(&real, &bits, sizeof real);
          builder.real(real);
        }
        break;
      }
      default: {
        const std::string_view length = take(1);
        builder.text(
            repairedUtf8(take(length.empty() ? 0 : static_cast<unsigned char>(length[0]))));
        break;
      }
    }
  }
  const StoredRecord<OrvantaEvent> row(1, builder.finish());
  (void)OrvantaEvent::rowMayBeOversized(row.values());
  if (OrvantaEvent::canReadColumns(row.values()) !=
      OrvantaEvent::readColumns(row.values()).has_value()) {
    violated("the quick row check and the row reader disagree");
  }
  std::optional<OrvantaEvent> event;
  try {
    row.check();
    event = row.record();
  } catch (const Error& error) {
    if (error.domain() != Error::Domain::decoding) {
      violated("a row failed outside the decoding domain");
    }
    try {
      (void)row.record();
      violated("a row that fails its check reads back");
    } catch (const Error&) {
    }
    return;
  }
  std::string body;
  try {
    event->writeBody(body);
  } catch (...) {
    violated("a row that reads back cannot be posted");
  }
  if (!nlohmann::json::accept(body)) {
    violated("the body of a row that reads back is not JSON");
  }
  const StoredRecord<OrvantaEvent> again(2, event->toRow());
  if (!(again.record() == *event)) {
    violated("a row written again does not read back the same event");
  }
}

}  // namespace orvanta::fuzzing
