#pragma once

#include <memory>
#include <string>

#include "orvanta/port/bundle.hpp"

namespace orvanta {

/// The host's four credentials, read afresh on every call (nothing is cached). Any thread.
class CredentialsSource {
 public:
  virtual ~CredentialsSource() = default;
  virtual std::string token() const = 0;
  virtual std::string secret() const = 0;
  virtual std::string appId() const = 0;
  virtual std::string eventsToken() const = 0;
};

/// Reads the credentials from the resource "OrvantaConfig" of type "plist" in the host's bundle.
/// The file is read again on every access; a missing or unreadable file, a missing key or a value
/// that is not a string all give the empty string. Any thread.
class OrvantaConfigFileHelper final : public CredentialsSource {
 public:
  explicit OrvantaConfigFileHelper(std::shared_ptr<port::Bundle> bundle);

  std::string token() const override;
  std::string secret() const override;
  std::string appId() const override;
  std::string eventsToken() const override;

 private:
  std::string stringValue(const char* key) const;

  std::shared_ptr<port::Bundle> bundle_;
};

}  // namespace orvanta
