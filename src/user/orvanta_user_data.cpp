#include <utility>

#include "core/guard.hpp"
#include "core/utf8.hpp"
#include "user/orvanta_user_data_impl.hpp"

namespace orvanta {

OrvantaUserData::Impl::Impl(Dependencies dependencies) : dependencies_(std::move(dependencies)) {}

OrvantaDevice& OrvantaUserData::Impl::loaded() const {
  if (!device_) {
    device_ = dependencies_.authData->device();
  }
  return *device_;
}

void OrvantaUserData::Impl::edit(const std::function<void(OrvantaDevice&)>& change) {
  std::lock_guard lock(mutex_);
  change(loaded());
}

void OrvantaUserData::Impl::saveUser() {
  OrvantaDevice device = read([](const OrvantaDevice& record) { return record; });
  dependencies_.authData->setDevice(device);
  dependencies_.authData->registerDevice(device, "Successfully updated user data");
}

OrvantaUserData::OrvantaUserData(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

OrvantaUserData::~OrvantaUserData() = default;

namespace {

using Field = std::optional<std::string> OrvantaUser::*;

std::optional<std::string> readField(const OrvantaUserData::Impl& impl, Field field) {
  return detail::shielded(
      [&] {
        return impl.read([field](const OrvantaDevice& device) { return device.user.*field; });
      },
      std::optional<std::string>());
}

void writeField(OrvantaUserData::Impl& impl, Field field, std::optional<std::string> value) {
  if (value) {
    repairUtf8(*value);  // host text, repaired where it enters
  }
  detail::shielded(
      [&] { impl.edit([&](OrvantaDevice& device) { device.user.*field = std::move(value); }); });
}

}  // namespace

std::optional<std::string> OrvantaUserData::email() const {
  return readField(*impl_, &OrvantaUser::email);
}
void OrvantaUserData::setEmail(std::optional<std::string> email) {
  writeField(*impl_, &OrvantaUser::email, std::move(email));
}
std::optional<std::string> OrvantaUserData::phone() const {
  return readField(*impl_, &OrvantaUser::phone);
}
void OrvantaUserData::setPhone(std::optional<std::string> phone) {
  writeField(*impl_, &OrvantaUser::phone, std::move(phone));
}
std::optional<std::string> OrvantaUserData::firstName() const {
  return readField(*impl_, &OrvantaUser::firstName);
}
void OrvantaUserData::setFirstName(std::optional<std::string> firstName) {
  writeField(*impl_, &OrvantaUser::firstName, std::move(firstName));
}
std::optional<std::string> OrvantaUserData::lastName() const {
  return readField(*impl_, &OrvantaUser::lastName);
}
void OrvantaUserData::setLastName(std::optional<std::string> lastName) {
  writeField(*impl_, &OrvantaUser::lastName, std::move(lastName));
}

ValueMap OrvantaUserData::customParameters() const {
  return detail::shielded(
      [&] {
        return impl_->read(
            [](const OrvantaDevice& device) { return device.customParameters.all(); });
      },
      ValueMap());
}

void OrvantaUserData::setCustomParameters(const ValueMap& customParameters) {
  detail::shielded([&] {
    impl_->edit([&](OrvantaDevice& device) { device.customParameters.setAll(customParameters); });
  });
}

void OrvantaUserData::saveUser() {
  detail::shielded([&] { impl_->saveUser(); });
}

void OrvantaUserData::removeUser() {
  detail::shielded([&] {
    setEmail(std::nullopt);
    setPhone(std::nullopt);
    setFirstName(std::nullopt);
    setLastName(std::nullopt);
    setCustomParameters({});
    saveUser();
  });
}

}  // namespace orvanta
