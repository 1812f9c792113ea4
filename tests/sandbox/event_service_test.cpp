#include <functional>

#include "sandbox_client.hpp"

namespace orvanta::sandbox::testing {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

class EventServiceTest : public SandboxTest {};

TEST_F(EventServiceTest, EventsAreCreatedAndTheSameBodyCountsAsOneEventDeliveredTwice) {
  const HttpAnswer answer = post("event", validEvent(credentials(), 1.7e9));
  EXPECT_EQ(answer.status, 201);
  EXPECT_EQ(answer.header("content-type"), "application/json");
  EXPECT_TRUE(answer.json().is_object());

  // The same event again, its members in another order and laid out differently.
  const std::string reordered =
      R"({ "additionalDateFields": {"when": 700000000.25}, "additionalBoolFields": {"gift": false},
           "additionalNumericFields": {"qty": 2}, "additionalStringFields": {"sku": "A-1"},
           "createdAt": 1700000000.0, "eventName": "purchase",
           "pushId": "a1b2c3|||)" +
      credentials().appId + R"(" })";
  EXPECT_EQ(client.send("POST", url("event"), eventHeaders(credentials()), reordered).status, 201);
  EXPECT_EQ(post("event", validEvent(credentials(), 1.7e9 + 0.5)).status, 201);

  ASSERT_TRUE(sandbox->waitForEventCount(2, 1s));
  const auto events = sandbox->events();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].deliveries, 2);
  EXPECT_EQ(events[0].body["eventName"], "purchase");
  EXPECT_EQ(events[1].deliveries, 1);
  EXPECT_TRUE(sandbox->violations().empty());
}

TEST_F(EventServiceTest, EventsThatBreakTheContractAreRefused) {
  struct Case {
    const char* expected;
    std::function<void(json&)> change;
  };
  const std::vector<Case> cases = {
      {"\"uuidId\" must not be sent",
       [](json& e) { e["uuidId"] = "6F9619FF-8B86-D011-B42D-00C04FC964FF"; }},
      {"\"pushId\" has no \"|||\"", [](json& e) { e["pushId"] = "a1b2c3"; }},
      {"does not end in this application's id", [](json& e) { e["pushId"] = "a1b2c3|||other"; }},
      {"no device token before \"|||\"",
       [](json& e) {
         const auto pushId = e["pushId"].get<std::string>();
         e["pushId"] = pushId.substr(pushId.find("|||"));
       }},
      {"missing \"eventName\"", [](json& e) { e.erase("eventName"); }},
      {"unexpected key \"name\"", [](json& e) { e["name"] = "purchase"; }},
      {"\"createdAt\" is not a number", [](json& e) { e["createdAt"] = "1700000000"; }},
      {"missing \"additionalDateFields\"", [](json& e) { e.erase("additionalDateFields"); }},
      {"\"additionalNumericFields.price\" is not an integer",
       [](json& e) { e["additionalNumericFields"]["price"] = 2.5; }},
      {"\"additionalBoolFields.gift\" is not a Boolean",
       [](json& e) { e["additionalBoolFields"]["gift"] = 0; }},
      {"\"additionalStringFields.sku\" is not a string",
       [](json& e) { e["additionalStringFields"]["sku"] = json::array(); }},
      {"\"additionalDateFields.when\" is not a number",
       [](json& e) { e["additionalDateFields"]["when"] = "2024-01-01T00:00:00Z"; }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    json body = validEvent(credentials());
    c.change(body);
    EXPECT_EQ(post("event", body).status, 400);
    EXPECT_NE(lastViolation().find(c.expected), std::string::npos) << lastViolation();
  }
  EXPECT_EQ(sandbox->eventCount(), 0U);

  // The service takes 64 KiB of event body, as the kit knows: padded to exactly that, and a byte
  // more.
  json padded = validEvent(credentials());
  padded["additionalStringFields"]["pad"] = "";
  const std::size_t base = padded.dump().size();
  padded["additionalStringFields"]["pad"] = std::string(64 * 1024 - base, 'p');
  EXPECT_EQ(client.send("POST", url("event"), eventHeaders(credentials()), padded.dump()).status,
            201);
  padded["additionalStringFields"]["pad"] = std::string(64 * 1024 - base + 1, 'p');
  EXPECT_EQ(client.send("POST", url("event"), eventHeaders(credentials()), padded.dump()).status,
            413);
}

}  // namespace
}  // namespace orvanta::sandbox::testing
