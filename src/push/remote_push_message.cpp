#include "push/remote_push_message.hpp"

#include <string>

#include "core/health.hpp"
#include "core/json_coding.hpp"
#include "core/logger.hpp"
#include "models/value_json.hpp"

namespace orvanta {
namespace {

std::optional<ValueMap> drop(const std::string& why) {
  dropRemotePushMessage(why);
  return std::nullopt;
}

}  // namespace

void dropRemotePushMessage(const std::string& why) {
  health::count(health::Counter::pushesReceived);
  health::count(health::Counter::pushesDroppedInvalid);
  OrvantaLogger::error("Dropped a push message: " + why);
}

std::optional<ValueMap> remotePushUserInfo(std::string_view bytes) {
  if (bytes.size() > kMaxRemotePushBytes) {
    return drop(std::to_string(bytes.size()) + " bytes, more than the " +
                std::to_string(kMaxRemotePushBytes) + " a push may have");
  }
  try {
    const detail::Json json = detail::parseJson(bytes);
    if (!json.is_object()) {
      return drop(std::string("a JSON ") + json.type_name() + ", not an object");
    }
    Value value = detail::valueFromJson(json);
    if (const ValueMap* map = value.map()) {
      return *map;
    }
    return drop("not an object");
  } catch (const std::exception&) {
    return drop("not JSON");
  }
}

}  // namespace orvanta
