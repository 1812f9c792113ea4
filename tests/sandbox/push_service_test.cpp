#include <functional>

#include "sandbox_client.hpp"

namespace orvanta::sandbox::testing {
namespace {

using nlohmann::json;

class PushServiceTest : public SandboxTest {};

TEST_F(PushServiceTest, DeviceRegistrationIsKeptByUserIdAndAnsweredEmpty) {
  const HttpAnswer first = post("devices", validDevice(credentials(), "user-1"));
  EXPECT_EQ(first.status, 204);
  EXPECT_TRUE(first.body.empty());
  EXPECT_FALSE(first.hasHeader("content-type"));

  json changed = validDevice(credentials(), "user-1");
  changed["orvanta"] = {{"number", "+100"}};
  changed["oldDeviceToken"] = "a1b2c3";
  changed["registration_id"] = "d4e5f6";
  EXPECT_EQ(post("devices", changed).status, 204);
  EXPECT_EQ(post("devices", validDevice(credentials(), "user-2")).status, 204);

  const auto devices = sandbox->devices();
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(devices[0].userId, "user-1");
  EXPECT_EQ(devices[0].registrations, 2);
  EXPECT_EQ(devices[0].registrationId, "d4e5f6");
  EXPECT_EQ(devices[0].oldDeviceToken, "a1b2c3");
  EXPECT_EQ(devices[0].profile, (json{{"number", "+100"}}));
  EXPECT_EQ(devices[0].custom["integer_fields"]["visits"], 3);
  EXPECT_TRUE(sandbox->violations().empty());

  // devices/{id}: a body updates the record, no body marks the device.
  json updated = validDevice(credentials(), "user-2");
  updated["orvanta"] = json::object();
  EXPECT_EQ(post("devices/user-2", updated).status, 204);
  EXPECT_EQ(sandbox->device("user-2")->profile, json::object());
  EXPECT_EQ(client.send("POST", url("devices/d4e5f6"), pushHeaders(credentials())).status, 204);
  EXPECT_TRUE(sandbox->device("user-1")->unregistered);
  EXPECT_FALSE(sandbox->device("user-2")->unregistered);
}

TEST_F(PushServiceTest, DeviceBodiesThatBreakTheContractAreRefused) {
  struct Case {
    const char* expected;  // a fragment of the reason
    std::function<void(json&)> change;
  };
  const std::vector<Case> cases = {
      {"missing \"user_id\"", [](json& d) { d.erase("user_id"); }},
      {"\"user_id\" is not a string", [](json& d) { d["user_id"] = 7; }},
      {"unexpected key \"phone\"", [](json& d) { d["orvanta"]["phone"] = "+1"; }},
      {"\"type\" is not \"IOS\"", [](json& d) { d["type"] = "LINUX"; }},
      {"\"app_id\" is not this application's id", [](json& d) { d["app_id"] = "other"; }},
      {"missing \"date_fields\"", [](json& d) { d["custom"].erase("date_fields"); }},
      {"unexpected key \"boolen_fields\"",
       [](json& d) { d["custom"]["boolen_fields"] = json::object(); }},
      {"\"integer_fields.visits\" is not an integer",
       [](json& d) { d["custom"]["integer_fields"]["visits"] = 3.5; }},
      {"\"boolean_fields.vip\" is not a Boolean",
       [](json& d) { d["custom"]["boolean_fields"]["vip"] = 1; }},
      {"\"date_fields.since\" is not a number",
       [](json& d) { d["custom"]["date_fields"]["since"] = "2001-01-01"; }},
      {"\"mobile_agent\" is not an array", [](json& d) { d["mobile_agent"] = json::object(); }},
      {"\"mobile_agent\" holds 2 elements",
       [](json& d) { d["mobile_agent"].push_back(d["mobile_agent"][0]); }},
      {"missing \"system_name\"", [](json& d) { d["mobile_agent"][0].erase("system_name"); }},
      {"unexpected key \"deviceUUID\"", [](json& d) { d["deviceUUID"] = "x"; }},
      {"not a JSON object", [](json& d) { d = json::array(); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    json body = validDevice(credentials(), "user-1");
    c.change(body);
    const HttpAnswer answer = post("devices", body);
    EXPECT_EQ(answer.status, 400);
    EXPECT_NE(lastViolation().find(c.expected), std::string::npos) << lastViolation();
    EXPECT_NE(answer.json()["error"].get<std::string>().find(c.expected), std::string::npos);
  }
  EXPECT_TRUE(sandbox->devices().empty());
  EXPECT_EQ(sandbox->violations().size(), cases.size());
  EXPECT_EQ(sandbox->violations().front().kind, Violation::Kind::contract);
  EXPECT_EQ(client.send("POST", url("devices"), pushHeaders(credentials())).status, 400);
}

TEST_F(PushServiceTest, LastPushAnswersTheBareDataObjectOfTheDevicesPush) {
  const auto lastPush = [&] {
    return client.send("GET", url("devices/a1b2c3/last_push"), pushHeaders(credentials()));
  };
  EXPECT_EQ(lastPush().status, 404);

  const json data = {{"id", "p-17"}, {"title", "Hello"}};
  sandbox->setLastPush("a1b2c3", {{"aps", {{"alert", "Hello"}}}, {"data", data}});
  HttpAnswer answer = lastPush();
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.header("content-type"), "application/json");
  EXPECT_EQ(answer.json(), data);
  EXPECT_EQ(client.send("GET", url("devices/other/last_push"), pushHeaders(credentials())).status,
            404);

  sandbox->setLastPush("a1b2c3", {{"id", "p-18"}});
  EXPECT_EQ(lastPush().json(), (json{{"id", "p-18"}}));
  sandbox->clearLastPush("a1b2c3");
  EXPECT_EQ(lastPush().status, 404);
  EXPECT_TRUE(sandbox->violations().empty());
}

TEST_F(PushServiceTest, StatusReportsAreCountedByContent) {
  json clicked = validReport("p-17");
  clicked["details"] = "NOTIFICATION_CLICK_ACTION";
  json button = validReport("p-17");
  button["details"] = "DIALOG_DISMISS_ACTION";
  button["actionId"] = "b-1";

  const HttpAnswer answer = post("pushes/p-17/reports", clicked);
  EXPECT_EQ(answer.status, 204);
  EXPECT_FALSE(answer.hasHeader("content-type"));
  EXPECT_EQ(post("pushes/p-17/reports", clicked).status, 204);
  EXPECT_EQ(post("pushes/p-17/reports", button).status, 204);
  EXPECT_EQ(post("pushes/p-17/reports", validReport("p-17")).status, 204);

  const auto reports = sandbox->reports();
  ASSERT_EQ(reports.size(), 3U);
  EXPECT_EQ(reports[0].pushId, "p-17");
  EXPECT_EQ(reports[0].deliveries, 2);
  EXPECT_EQ(reports[1].body["actionId"], "b-1");
  EXPECT_EQ(reports[2].deliveries, 1);
  EXPECT_TRUE(sandbox->violations().empty());
}

TEST_F(PushServiceTest, StatusReportsThatBreakTheContractAreRefused) {
  struct Case {
    const char* expected;
    std::function<void(json&)> change;
  };
  const std::vector<Case> cases = {
      {"differs from the push id", [](json& r) { r["id"] = "p-18"; }},
      {"\"status\" is not the integer 0 or 1", [](json& r) { r["status"] = 2; }},
      {"\"status\" is not the integer 0 or 1", [](json& r) { r["status"] = true; }},
      {"\"type\" is not \"IOS\"", [](json& r) { r["type"] = "ios"; }},
      {"missing \"registration_id\"", [](json& r) { r.erase("registration_id"); }},
      {"unexpected key \"deviceToken\"", [](json& r) { r["deviceToken"] = "a1b2c3"; }},
      {"\"occurred_at\" is not an integer", [](json& r) { r["occurred_at"] = 1700000000.5; }},
      {"\"details\" is not a known details value", [](json& r) { r["details"] = "click"; }},
      {"unexpected key \"action_id\"", [](json& r) { r["action_id"] = "b-1"; }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    json body = validReport("p-17");
    c.change(body);
    EXPECT_EQ(post("pushes/p-17/reports", body).status, 400);
    EXPECT_NE(lastViolation().find(c.expected), std::string::npos) << lastViolation();
  }
  EXPECT_TRUE(sandbox->reports().empty());
}

}  // namespace
}  // namespace orvanta::sandbox::testing
