#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "entry/components.hpp"
#include "testing/sandbox_test.hpp"
#include "user/orvanta_user_data_impl.hpp"

namespace orvanta {
namespace {

using testing::awaitLinesContaining;

/// A host's own user-data object that watches the kit's use of its setters.
class WatchedUserData : public OrvantaUserData {
 public:
  using OrvantaUserData::OrvantaUserData;
  void setEmail(std::optional<std::string> email) override {
    calls.push_back("email");
    OrvantaUserData::setEmail(std::move(email));
  }
  void setPhone(std::optional<std::string> phone) override {
    calls.push_back("phone");
    OrvantaUserData::setPhone(std::move(phone));
  }
  void setFirstName(std::optional<std::string> name) override {
    calls.push_back("firstName");
    OrvantaUserData::setFirstName(std::move(name));
  }
  void setLastName(std::optional<std::string> name) override {
    calls.push_back("lastName");
    OrvantaUserData::setLastName(std::move(name));
  }
  void setCustomParameters(const ValueMap& parameters) override {
    calls.push_back("customParameters");
    OrvantaUserData::setCustomParameters(parameters);
  }
  std::vector<std::string> calls;
};

class UserDataTest : public testing::SandboxTest {
 protected:
  /// The facade of a launch over `platform` (this test's, or a later launch's).
  std::unique_ptr<WatchedUserData> launch(std::shared_ptr<Platform> over) {
    contexts_.push_back(std::make_shared<detail::KitContext>(std::move(over)));
    return std::make_unique<WatchedUserData>(std::make_shared<OrvantaUserData::Impl>(
        OrvantaUserData::Impl::Dependencies{contexts_.back()->authData()}));
  }

  /// The body the sandbox received with the `count`th successful update.
  nlohmann::json saved(std::size_t count) {
    EXPECT_EQ(awaitLinesContaining(logSink(), "Successfully updated user data", count).size(),
              count);
    auto devices = sandbox().devices();
    EXPECT_EQ(devices.size(), 1u);
    return devices.empty() ? nlohmann::json() : devices.front().body;
  }

  std::vector<std::shared_ptr<detail::KitContext>> contexts_;
};

TEST_F(UserDataTest, EditsStayInMemoryUntilSavedAndTheProfileTravelsAsTheServiceNamesIt) {
  auto user = launch(platform());
  EXPECT_EQ(user->email(), std::nullopt);
  user->setEmail("ann@example.com");
  EXPECT_EQ(user->email(), "ann@example.com");
  EXPECT_EQ(sandbox().requestCount(), 0u);  // setters send nothing

  // A later launch without saveUser reads what was stored: nothing.
  EXPECT_EQ(launch(testPlatform().relaunch())->email(), std::nullopt);

  // Nothing else set: the record goes out with the one field; the phone travels as "number".
  user->setPhone("+1 555 0100");
  user->setFirstName("");
  user->setCustomParameters({{"vip", true}, {"age", 42}, {"tier", "gold"}, {"ratio", 0.5}});
  user->saveUser();
  auto body = saved(1);
  EXPECT_EQ(body["orvanta"],
            (nlohmann::json{
                {"email", "ann@example.com"}, {"number", "+1 555 0100"}, {"first_name", ""}}));
  EXPECT_EQ(body["custom"], (nlohmann::json{{"boolean_fields", {{"vip", true}}},
                                            {"integer_fields", {{"age", 42}}},
                                            {"string_fields", {{"tier", "gold"}}},
                                            {"date_fields", nlohmann::json::object()}}));
  EXPECT_EQ(launch(testPlatform().relaunch())->email(), "ann@example.com");
  EXPECT_TRUE(sandbox().violations().empty()) << sandbox().violationsJson().dump();
}

TEST_F(UserDataTest, RemovingTheUserClearsTheProfileThroughTheSettersAndKeepsTheParameters) {
  auto user = launch(platform());
  user->setEmail("ann@example.com");
  user->setLastName("Lee");
  user->setCustomParameters({{"tier", "gold"}});
  user->saveUser();
  const auto before = saved(1);
  user->calls.clear();

  user->removeUser();
  EXPECT_EQ(user->calls, (std::vector<std::string>{"email", "phone", "firstName", "lastName",
                                                   "customParameters"}));
  auto after = saved(2);
  EXPECT_EQ(after["orvanta"], nlohmann::json::object());
  EXPECT_EQ(after["custom"], before["custom"]);
  EXPECT_EQ(sandbox().devices().front().registrations, 2);
}

TEST_F(UserDataTest, IllFormedHostTextIsRepairedWhereItEntersSoTheProfileIsStillSent) {
  auto user = launch(platform());
  user->setEmail("ann\xFF@example.com");
  user->setLastName("Lee\xE2\x82");  // a character cut short
  user->setCustomParameters({{"tier\xC0", "gold\xFE"}});
  EXPECT_EQ(user->email(), "ann\uFFFD@example.com");
  user->saveUser();
  auto body = saved(1);
  EXPECT_EQ(body["orvanta"],
            (nlohmann::json{{"email", "ann\uFFFD@example.com"}, {"last_name", "Lee\uFFFD"}}));
  EXPECT_EQ(body["custom"]["string_fields"], (nlohmann::json{{"tier\uFFFD", "gold\uFFFD"}}));
}

TEST_F(UserDataTest, SavingAnUntouchedUserSendsTheDeviceRecordWithAnEmptyProfile) {
  auto user = launch(platform());
  user->saveUser();
  auto body = saved(1);
  EXPECT_EQ(body["orvanta"], nlohmann::json::object());
  EXPECT_EQ(body["type"], "IOS");
  EXPECT_EQ(body["user_id"], contexts_.front()->authData()->device().deviceUUID);
}

}  // namespace
}  // namespace orvanta
