#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace orvanta {

/// The user profile sent with the device record (under "orvanta"). Every field is optional and
/// written only when set.
struct OrvantaUser {
  std::optional<std::string> email;        ///< "email"
  std::optional<std::string> phone;        ///< "number"
  std::optional<std::string> firstName;    ///< "first_name"
  std::optional<std::string> lastName;     ///< "last_name"
  std::optional<std::string> companyName;  ///< "company_name"; only ever read from a stored record

  nlohmann::ordered_json toJson() const;
  /// Throws `detail::DecodingFailure`.
  static OrvantaUser fromJson(const nlohmann::json& json);

  friend bool operator==(const OrvantaUser&, const OrvantaUser&) = default;
};

}  // namespace orvanta
