#pragma once

#include <memory>
#include <optional>
#include <string>

#include "orvanta/export.hpp"
#include "orvanta/value.hpp"

namespace orvanta {

/// The user of this installation as the service knows them, reached as `Orvanta::user()`: profile
/// fields and typed custom parameters. The properties read and edit the kit's copy of the device
/// record, loaded on first use; edits are kept in memory and sent only by `saveUser`, which also
/// keeps them for later launches.
///
/// Every member may be called from any thread: each call reads or edits the record as a whole.
/// Edits from several threads interleave call by call, so a host that builds one profile from
/// several threads orders them itself. Never throws, and no failure reaches the host (the outcome
/// of `saveUser` is logged and told to the push facade's registration observer).
class ORVANTA_API OrvantaUserData {
 public:
  virtual ~OrvantaUserData();
  OrvantaUserData(const OrvantaUserData&) = delete;
  OrvantaUserData& operator=(const OrvantaUserData&) = delete;

  virtual std::optional<std::string> email() const;
  /// Stored as given (no value clears it); nothing is sent.
  virtual void setEmail(std::optional<std::string> email);
  /// Sent as "number".
  virtual std::optional<std::string> phone() const;
  virtual void setPhone(std::optional<std::string> phone);
  virtual std::optional<std::string> firstName() const;
  virtual void setFirstName(std::optional<std::string> firstName);
  virtual std::optional<std::string> lastName() const;
  virtual void setLastName(std::optional<std::string> lastName);

  /// Every custom parameter, merged from the typed maps (a date over a string over an integer
  /// over a Boolean of the same name).
  virtual ValueMap customParameters() const;
  /// Sorts each entry into a typed map (integer, string, Boolean, date; anything else is dropped)
  /// and adds it: nothing is removed, so an empty map changes nothing.
  virtual void setCustomParameters(const ValueMap& customParameters);

  /// Keeps the record and sends it to the service ("Successfully updated user data" once it is
  /// accepted; retried every 60 seconds otherwise). Returns at once.
  virtual void saveUser();
  /// Clears the four profile fields through the setters above (so an override sees each change),
  /// sets the custom parameters to an empty map (which keeps them), then saves.
  virtual void removeUser();

  class Impl;  ///< internal
  explicit OrvantaUserData(std::shared_ptr<Impl> impl);
  const std::shared_ptr<Impl>& impl() const { return impl_; }

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace orvanta
