#include <plist/plist.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "sandbox_client.hpp"

namespace orvanta::sandbox::testing {
namespace {

using nlohmann::json;

class ControlApiTest : public SandboxTest {
 protected:
  HttpAnswer control(const std::string& method, const std::string& path,
                     const std::optional<std::string>& body = std::nullopt) {
    return client.send(method,
                       "http://127.0.0.1:" + std::to_string(sandbox->port()) + "/_sandbox/" + path,
                       {"Content-Type: application/json"}, body);
  }
};

TEST_F(ControlApiTest, LastPushesAndFaultsAreSetOverHttp) {
  EXPECT_EQ(control("PUT", "last_push/a1b2c3", R"({"data": {"id": "p-1"}})").status, 204);
  HttpAnswer answer =
      client.send("GET", url("devices/a1b2c3/last_push"), pushHeaders(credentials()));
  EXPECT_EQ(answer.json(), (json{{"id", "p-1"}}));
  EXPECT_EQ(control("DELETE", "last_push/a1b2c3").status, 204);
  EXPECT_EQ(client.send("GET", url("devices/a1b2c3/last_push"), pushHeaders(credentials())).status,
            404);
  EXPECT_EQ(control("PUT", "last_push/a1b2c3", "[1]").status, 400);

  EXPECT_EQ(control("POST", "faults/event", R"({"status": 503, "count": 1, "content_type": true})")
                .status,
            204);
  EXPECT_EQ(control("POST", "faults/*", R"({"drop": true})").status, 204);
  const json faults = control("GET", "state").json()["faults"];
  EXPECT_EQ(faults["event"]["status"], 503);
  EXPECT_EQ(faults["*"]["drop"], true);
  answer = post("event", validEvent(credentials()));
  EXPECT_EQ(answer.status, 503);
  EXPECT_EQ(answer.header("content-type"), "application/json");
  EXPECT_EQ(post("event", validEvent(credentials())).error, CURLE_GOT_NOTHING);
  EXPECT_EQ(control("DELETE", "faults/*").status, 204);
  EXPECT_EQ(post("event", validEvent(credentials())).status, 201);

  EXPECT_EQ(control("POST", "faults/events", R"({"status": 500})").status, 404);
  EXPECT_EQ(control("POST", "faults/event", R"({"status": 99})").status, 400);
  EXPECT_EQ(control("POST", "faults/event", R"({"delay": 5})").status, 400);
  EXPECT_EQ(control("POST", "faults/event", R"({"count": 0})").status, 400);
  EXPECT_EQ(control("GET", "nothing").status, 404);
}

TEST_F(ControlApiTest, StateRequestsAndViolationsAreReadableAndReset) {
  post("devices", validDevice(credentials(), "user-1"));
  post("event", validEvent(credentials()));
  post("event", validEvent(credentials()));
  post("pushes/p-1/reports", validReport("p-2"));

  const json state = control("GET", "state").json();
  EXPECT_EQ(state["devices"][0]["user_id"], "user-1");
  EXPECT_EQ(state["devices"][0]["registration_id"], "a1b2c3");
  EXPECT_EQ(state["events"][0]["deliveries"], 2);
  EXPECT_EQ(state["events"][0]["body"]["eventName"], "purchase");
  EXPECT_EQ(state["reports"], json::array());
  EXPECT_EQ(state["in_flight"]["event"], (json{{"now", 0}, {"max", 1}}));
  EXPECT_EQ(state["request_count"], 4);

  const json requests = control("GET", "requests").json();
  ASSERT_EQ(requests["requests"].size(), 4U);  // control requests are not logged
  const json& first = requests["requests"][0];
  EXPECT_EQ(first["method"], "POST");
  EXPECT_EQ(first["path"], "/v1/devices");
  EXPECT_EQ(first["status"], 204);
  EXPECT_EQ(json::parse(first["body"].get<std::string>())["user_id"], "user-1");
  EXPECT_NE(first["headers"].dump().find("X-Orvanta-App-Secret"), std::string::npos);
  EXPECT_EQ(sandbox->requests()[0].header("x-orvanta-app-token"), credentials().token);

  const json violations = control("GET", "violations").json();
  ASSERT_EQ(violations.size(), 1U);
  EXPECT_EQ(violations[0]["kind"], "contract");
  EXPECT_EQ(violations[0]["path"], "/v1/pushes/p-1/reports");

  sandbox->setLastPush("a1b2c3", {{"id", "p-1"}});
  EXPECT_EQ(control("POST", "reset").status, 204);
  const json empty = control("GET", "state").json();
  EXPECT_EQ(empty["devices"], json::array());
  EXPECT_EQ(empty["events"], json::array());
  EXPECT_EQ(empty["last_pushes"], json::object());
  EXPECT_EQ(empty["in_flight"]["event"]["max"], 0);
  EXPECT_EQ(control("GET", "violations").json(), json::array());
  EXPECT_EQ(sandbox->requestCount(), 0U);
}

TEST(SandboxRequestLog, KeepsTheNewestEntriesAndCountsTheDroppedOnes) {
  auto sandbox = Sandbox::start({.requestLogLimit = 3});
  SandboxClient client;
  for (int i = 0; i < 5; ++i) {
    client.send("POST", sandbox->baseUrl() + "event", eventHeaders(sandbox->credentials()),
                validEvent(sandbox->credentials(), i).dump());
  }
  const auto requests = sandbox->requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(json::parse(requests[0].body)["createdAt"], 2);
  EXPECT_EQ(sandbox->droppedRequests(), 2U);
  EXPECT_EQ(sandbox->requestCount(), 5U);
  EXPECT_EQ(sandbox->eventCount(), 5U);
}

TEST(SandboxCredentialsFile, ReadsXmlAndBinaryConfigurationFiles) {
  const auto folder = std::filesystem::temp_directory_path() /
                      ("orvanta-sandbox-test-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);

  plist_t root = plist_new_dict();
  plist_dict_set_item(root, "AppId", plist_new_string("app-1"));
  plist_dict_set_item(root, "Token", plist_new_uint(42));  // not a string: reads as ""
  plist_dict_set_item(root, "Secret", plist_new_string("s3cret"));
  plist_dict_set_item(root, "EventsToken", plist_new_string("ev-1"));
  char* xml = nullptr;
  char* binary = nullptr;
  std::uint32_t xmlSize = 0;
  std::uint32_t binarySize = 0;
  plist_to_xml(root, &xml, &xmlSize);
  plist_to_bin(root, &binary, &binarySize);
  std::ofstream(folder / "xml.plist", std::ios::binary).write(xml, xmlSize);
  std::ofstream(folder / "binary.plist", std::ios::binary).write(binary, binarySize);
  std::ofstream(folder / "broken.plist") << "<plist><dict><key>AppId";
  std::free(xml);
  std::free(binary);
  plist_free(root);

  for (const char* name : {"xml.plist", "binary.plist"}) {
    SCOPED_TRACE(name);
    const Credentials credentials = loadCredentials((folder / name).string());
    EXPECT_EQ(credentials.appId, "app-1");
    EXPECT_EQ(credentials.token, "");
    EXPECT_EQ(credentials.secret, "s3cret");
    EXPECT_EQ(credentials.eventsToken, "ev-1");
  }
  EXPECT_THROW(loadCredentials((folder / "broken.plist").string()), std::runtime_error);
  EXPECT_THROW(loadCredentials((folder / "missing.plist").string()), std::runtime_error);
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace orvanta::sandbox::testing
