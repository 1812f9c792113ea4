#include "models/orvanta_user.hpp"

#include "core/json_coding.hpp"

namespace orvanta {
namespace {

// Members in the order they are written.
struct Field {
  std::optional<std::string> OrvantaUser::*member;
  const char* key;
};
constexpr Field kFields[] = {
    {&OrvantaUser::email, "email"},
    {&OrvantaUser::phone, "number"},
    {&OrvantaUser::firstName, "first_name"},
    {&OrvantaUser::lastName, "last_name"},
    {&OrvantaUser::companyName, "company_name"},
};

}  // namespace

nlohmann::ordered_json OrvantaUser::toJson() const {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  for (const Field& field : kFields) {
    if (const auto& value = this->*field.member) {
      json[field.key] = *value;
    }
  }
  return json;
}

OrvantaUser OrvantaUser::fromJson(const nlohmann::json& json) {
  detail::requireObject(json, "orvanta");
  OrvantaUser user;
  for (const Field& field : kFields) {
    user.*field.member = detail::optionalString(json, field.key);
  }
  return user;
}

}  // namespace orvanta
