#include "models/orvanta_device.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "models/json.hpp"
#include "records_test_platform.hpp"

namespace orvanta {
namespace {

using testing_records::RecordsTest;

class OrvantaDeviceTest : public RecordsTest {};

constexpr const char* kEmptyCustom =
    R"({"boolean_fields":{},"integer_fields":{},"string_fields":{},"date_fields":{}})";

TEST_F(OrvantaDeviceTest, NewRecordWritesTheRegistrationBody) {
  OrvantaDevice device = newDevice("U-1");
  EXPECT_EQ(jsonText(device),
            std::string(R"({"user_id":"U-1","orvanta":{},"type":"IOS","app_id":"app-1",)") +
                R"("custom":)" + kEmptyCustom +
                R"(,"mobile_agent":[{"phone_model":"x86_64","system_version":"12",)"
                R"("system_name":"Debian GNU/Linux","language":"en"}]})");

  device.deviceToken = "abcd";
  device.oldDeviceToken = "0123";
  device.user.phone = "+100";
  device.user.email = "a@b.c";
  device.customParameters.setAll({{"vip", true}});
  deviceInfo_->vendor = "0C0D5D5E-1111-4222-8333-444455556666";
  device.mobileAgent = {Constants::DeviceAnalytics::from(*deviceInfo_)};
  EXPECT_EQ(jsonText(device),
            std::string(R"({"user_id":"U-1","orvanta":{"email":"a@b.c","number":"+100"},)") +
                R"("type":"IOS","app_id":"app-1","registration_id":"abcd",)" +
                R"("oldDeviceToken":"0123","custom":{"boolean_fields":{"vip":true},)" +
                R"("integer_fields":{},"string_fields":{},"date_fields":{}},)" +
                R"("mobile_agent":[{"phone_model":"x86_64","system_version":"12",)" +
                R"("system_name":"Debian GNU/Linux",)" +
                R"("vendor_id":"0C0D5D5E-1111-4222-8333-444455556666","language":"en"}]})");
}

TEST_F(OrvantaDeviceTest, StoredRecordReadsBackIdentical) {
  OrvantaDevice device = newDevice("U-1");
  device.deviceToken = "abcd";
  device.user = {"a@b.c", "+100", "Ann", "Lee", "Acme"};
  device.customParameters.setAll({{"vip", true},
                                  {"age", 42},
                                  {"tier", "gold"},
                                  {"since", Date::sinceReferenceDate(764553600.123456789)}});
  auto text = jsonText(device);
  ASSERT_TRUE(text);
  auto decoded = OrvantaDevice::decode(*text);
  ASSERT_TRUE(decoded.isSuccess()) << decoded.error().localizedDescription();
  EXPECT_EQ(decoded.value(), device);
  EXPECT_EQ(decoded.value().user.companyName, "Acme");
  EXPECT_EQ(jsonText(decoded.value()), text);
}

TEST_F(OrvantaDeviceTest, StoredRecordMissingARequiredPartDoesNotDecode) {
  const auto valid = nlohmann::json::parse(*jsonText(newDevice("U-1")));
  ASSERT_TRUE(OrvantaDevice::decode(valid.dump()).isSuccess());
  for (const char* key : {"user_id", "orvanta", "type", "app_id", "custom", "mobile_agent"}) {
    auto without = valid;
    without.erase(key);
    auto decoded = OrvantaDevice::decode(without.dump());
    ASSERT_FALSE(decoded.isSuccess()) << key;
    EXPECT_EQ(decoded.error().domain(), Error::Domain::decoding);
    EXPECT_EQ(decoded.error().message(), "The data couldn\u2019t be read because it is missing.");

    auto wrongType = valid;
    wrongType[key] = 7;
    EXPECT_FALSE(OrvantaDevice::decode(wrongType.dump()).isSuccess()) << key;
  }
  for (const char* map : {"boolean_fields", "integer_fields", "string_fields", "date_fields"}) {
    auto without = valid;
    without["custom"].erase(map);
    EXPECT_FALSE(OrvantaDevice::decode(without.dump()).isSuccess()) << map;
  }
  auto badAgent = valid;
  badAgent["mobile_agent"][0].erase("system_name");
  EXPECT_FALSE(OrvantaDevice::decode(badAgent.dump()).isSuccess());
  auto badInteger = valid;
  badInteger["custom"]["integer_fields"]["n"] = 1.5;
  EXPECT_FALSE(OrvantaDevice::decode(badInteger.dump()).isSuccess());

  // JSON has no raw zero bytes: one does not end the text, and what follows is not ignored.
  EXPECT_FALSE(OrvantaDevice::decode(valid.dump() + std::string("\0 junk", 6)).isSuccess());

  // The tokens are optional; the profile may be empty.
  auto tokens = valid;
  tokens["registration_id"] = nullptr;
  EXPECT_TRUE(OrvantaDevice::decode(tokens.dump()).isSuccess());
}

TEST(OrvantaUserTest, WritesOnlyTheFieldsThatAreSet) {
  OrvantaUser user;
  user.phone = "+100";
  EXPECT_EQ(user.toJson().dump(), R"({"number":"+100"})");
  user = {"e", "n", "f", "l", "c"};
  EXPECT_EQ(user.toJson().dump(),
            R"({"email":"e","number":"n","first_name":"f","last_name":"l","company_name":"c"})");
}

TEST(OrvantaCustomParametersTest, AllSortsIntegerFirstAndDropsTheRest) {
  const Date tenPast = Date::sinceReferenceDate(10.0);
  OrvantaCustomParameters parameters;
  parameters.setAll({{"a", true},
                     {"b", 5},
                     {"c", "text"},
                     {"d", tenPast},
                     {"e", 1.5},
                     {"f", Value::boxed(true)},
                     {"g", Value::boxed(2.5)},
                     {"h", ValueArray{1}},
                     {"i", nullptr}});
  EXPECT_EQ(parameters.boolenFields, (std::map<std::string, bool>{{"a", true}}));
  EXPECT_EQ(parameters.integerFields, (std::map<std::string, std::int64_t>{{"b", 5}, {"f", 1}}));
  EXPECT_EQ(parameters.stringFields, (std::map<std::string, std::string>{{"c", "text"}}));
  EXPECT_EQ(parameters.dateFields, (std::map<std::string, Date>{{"d", tenPast}}));
  EXPECT_EQ(parameters.all().size(), 5u);
  EXPECT_EQ(parameters.toJson().dump(),
            R"({"boolean_fields":{"a":true},"integer_fields":{"b":5,"f":1},)"
            R"("string_fields":{"c":"text"},"date_fields":{"d":10.0}})");
}

TEST(OrvantaCustomParametersTest, AllAccumulatesAndReadsDateOverStringOverIntegerOverBoolean) {
  OrvantaCustomParameters parameters;
  parameters.setAll({{"k", false}});
  parameters.setAll({{"k", 1}});
  EXPECT_EQ(parameters.all().at("k"), Value(1));
  parameters.setAll({{"k", "text"}});
  parameters.setAll({});
  EXPECT_EQ(parameters.all().at("k"), Value("text"));
  EXPECT_EQ(parameters.toJson().dump(), R"({"boolean_fields":{"k":false},"integer_fields":{"k":1},)"
                                        R"("string_fields":{"k":"text"},"date_fields":{}})");
  parameters.setAll({{"k", Date::sinceReferenceDate(3)}});
  EXPECT_EQ(parameters.all().at("k"), Value(Date::sinceReferenceDate(3)));
  EXPECT_EQ(parameters.all().size(), 1u);
}

TEST_F(OrvantaDeviceTest, ModelIdentifierPrefersTheSimulatorAndTrimsTheMachineName) {
  deviceInfo_->machineName = std::string("\t arm64\0\0\0", 10);
  EXPECT_EQ(modelIdentifier(*deviceInfo_), " arm64");  // spaces are not control characters
  deviceInfo_->machineName = "caf\xC3\xA9";
  EXPECT_EQ(modelIdentifier(*deviceInfo_), "");
  deviceInfo_->simulatorModel = "iPhone15,2";
  EXPECT_EQ(modelIdentifier(*deviceInfo_), "iPhone15,2");

  deviceInfo_->language.reset();
  EXPECT_EQ(Constants::DeviceAnalytics::from(*deviceInfo_).toJson().dump(),
            R"({"phone_model":"iPhone15,2","system_version":"12",)"
            R"("system_name":"Debian GNU/Linux"})");
}

}  // namespace
}  // namespace orvanta
