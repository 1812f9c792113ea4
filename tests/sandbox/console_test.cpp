// The control API the console page uses: the page and its files, last pushes and faults, sending a
// push, reading the lists from where the page left off, the change stream, and refusing other
// sites' pages; the request log's limit and the credentials file. The page itself is tested in a
// browser (tests/sandbox/browser).

#include <condition_variable>
#include <future>
#include <mutex>

#include "sandbox_client.hpp"
#include "testing/config_plist.hpp"
#include "testing/temporary_directory.hpp"

namespace orvanta::sandbox::testing {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

class ConsoleTest : public SandboxTest {
 protected:
  std::string origin() const { return "http://127.0.0.1:" + std::to_string(sandbox->port()); }

  HttpAnswer control(const std::string& method, const std::string& path,
                     const std::optional<std::string>& body = std::nullopt,
                     std::vector<std::string> headers = {"Content-Type: application/json"}) {
    return client.send(method, origin() + "/_sandbox/" + path, headers, body);
  }
};

TEST_F(ConsoleTest, ThePageAndItsFilesAreServedUnderATightPolicy) {
  EXPECT_EQ(sandbox->consoleUrl(), origin() + "/_sandbox/");
  const HttpAnswer page = control("GET", "");
  EXPECT_EQ(page.status, 200);
  EXPECT_EQ(page.header("content-type"), "text/html; charset=utf-8");
  EXPECT_NE(page.body.find("<script src=\"console.js\""), std::string::npos);
  EXPECT_NE(page.header("content-security-policy").find("default-src 'none'"), std::string::npos);
  EXPECT_EQ(page.header("cache-control"), "no-store");

  EXPECT_EQ(control("GET", "console.js").header("content-type"), "text/javascript; charset=utf-8");
  EXPECT_EQ(control("GET", "console.css").header("content-type"), "text/css; charset=utf-8");
  // A picture for pushes with an image.
  const HttpAnswer picture = control("GET", "sample.png");
  EXPECT_EQ(picture.header("content-type"), "image/png");
  EXPECT_EQ(picture.body.substr(0, 8), "\x89PNG\r\n\x1a\n");
  // The button titles come from the kit's own string table.
  EXPECT_EQ(control("GET", "strings.json").json()["loc_push_action_title_buy_now"], "Buy now");

  const HttpAnswer bare = client.send("GET", origin() + "/_sandbox", {});
  EXPECT_EQ(bare.status, 308);
  EXPECT_EQ(bare.header("location"), "/_sandbox/");
  EXPECT_EQ(control("GET", "nothing.js").status, 404);
  EXPECT_EQ(sandbox->requestCount(), 0U);  // the console is not service traffic
  EXPECT_TRUE(sandbox->violations().empty());
}

TEST_F(ConsoleTest, SendingSetsTheLastPushAndATokenOfAnotherTransportIsNotDelivered) {
  const json data = {{"id", "p-1"},
                     {"title", "Hi"},
                     {"action_buttons",
                      {{"category_id", "ORVANTA_PUSH_CATEGORY_ACCEPT"},
                       {"items", {{{"action", {{"id", "ORVANTA_PUSH_ACTION_ACCEPT"}}}}}}}}};
  const HttpAnswer sent =
      control("POST", "send/a1b2c3", json{{"aps", {{"alert", "Hi"}}}, {"data", data}}.dump());
  ASSERT_EQ(sent.status, 200);
  EXPECT_EQ(sent.json()["push_id"], "p-1");
  EXPECT_EQ(sent.json()["last_push"], true);
  EXPECT_EQ(sent.json()["delivery"]["outcome"], "not_available");
  EXPECT_EQ(client.send("GET", url("devices/a1b2c3/last_push"), pushHeaders(credentials())).json(),
            data);

  ASSERT_EQ(sandbox->sentPushes().size(), 1U);
  EXPECT_EQ(sandbox->sentPushes()[0].deviceToken, "a1b2c3");
  EXPECT_EQ(control("GET", "state").json()["sent"][0]["delivery"]["outcome"], "not_available");

  // A push the kit could not read is not sent.
  EXPECT_EQ(control("POST", "send/a1b2c3", R"({"data": {"title": "no id"}})").status, 400);
  EXPECT_EQ(control("POST", "send/a1b2c3", "[1]").status, 400);
  EXPECT_EQ(control("GET", "send/a1b2c3").status, 405);
  EXPECT_THROW(sandbox->send("a1b2c3", {{"id", 7}}), std::invalid_argument);
  EXPECT_EQ(sandbox->sentPushes().size(), 1U);
}

TEST_F(ConsoleTest, LastPushesAndFaultsAreSetOverHttp) {
  EXPECT_EQ(control("PUT", "last_push/a1b2c3", R"({"data": {"id": "p-1"}})").status, 204);
  EXPECT_EQ(client.send("GET", url("devices/a1b2c3/last_push"), pushHeaders(credentials())).json(),
            (json{{"id", "p-1"}}));
  EXPECT_EQ(control("DELETE", "last_push/a1b2c3").status, 204);
  EXPECT_EQ(client.send("GET", url("devices/a1b2c3/last_push"), pushHeaders(credentials())).status,
            404);
  EXPECT_EQ(control("PUT", "last_push/a1b2c3", "[1]").status, 400);

  EXPECT_EQ(control("POST", "faults/event", R"({"status": 503, "count": 1, "content_type": true})")
                .status,
            204);
  EXPECT_EQ(control("POST", "faults/*", R"({"drop": true})").status, 204);
  EXPECT_EQ(control("GET", "state").json()["faults"]["event"]["status"], 503);
  const HttpAnswer faulted = post("event", validEvent(credentials()));
  EXPECT_EQ(faulted.status, 503);
  EXPECT_EQ(faulted.header("content-type"), "application/json");
  EXPECT_EQ(post("event", validEvent(credentials())).error, CURLE_GOT_NOTHING);
  EXPECT_EQ(control("DELETE", "faults/*").status, 204);
  EXPECT_EQ(post("event", validEvent(credentials())).status, 201);

  EXPECT_EQ(control("POST", "faults/events", R"({"status": 500})").status, 404);
  for (const char* wrong : {R"({"status": 99})", R"({"delay": 5})", R"({"count": 0})"}) {
    EXPECT_EQ(control("POST", "faults/event", wrong).status, 400) << wrong;
  }
}

TEST_F(ConsoleTest, ListsAreReadFromASequenceNumberOnAndAResetEmptiesThem) {
  post("devices", validDevice(credentials(), "user-1"));
  for (int i = 0; i < 4; ++i) {
    post("event", validEvent(credentials(), i));
  }
  post("event", validEvent(credentials(), 3));                                  // delivered again
  client.send("POST", url("event"), {"Content-Type: application/json"}, "{}");  // refused

  json log = control("GET", "requests?since=4").json();
  ASSERT_EQ(log["requests"].size(), 3U);
  EXPECT_EQ(log["requests"][0]["seq"], 4);
  EXPECT_EQ(log["requests"][2]["reason"], "missing \"Authorization\"");
  EXPECT_EQ(log["next"], 7);
  const json first = control("GET", "requests?since=0&newest=7").json()["requests"][0];
  EXPECT_EQ(first["method"], "POST");
  EXPECT_EQ(first["path"], "/v1/devices");
  EXPECT_EQ(first["status"], 204);
  EXPECT_EQ(json::parse(first["body"].get<std::string>())["user_id"], "user-1");
  EXPECT_NE(first["headers"].dump().find("X-Orvanta-App-Secret"), std::string::npos);
  log = control("GET", "requests?since=1&newest=2").json();
  ASSERT_EQ(log["requests"].size(), 2U);
  EXPECT_EQ(log["requests"][0]["seq"], 5);
  EXPECT_EQ(control("GET", "requests?since=7").json()["requests"], json::array());
  EXPECT_EQ(control("GET", "requests?since=-1").status, 400);
  EXPECT_EQ(control("GET", "state?newest=x").status, 400);

  EXPECT_EQ(control("GET", "violations?since=0").json()[0]["seq"], 0);
  EXPECT_EQ(control("GET", "violations?since=1").json(), json::array());

  json state = control("GET", "state?newest=2").json();
  ASSERT_EQ(state["events"].size(), 2U);
  EXPECT_EQ(state["events"][1]["body"]["createdAt"], 3);
  EXPECT_EQ(state["events"][1]["deliveries"], 2);
  EXPECT_EQ(state["devices"][0]["registration_id"], "a1b2c3");
  EXPECT_EQ(state["event_count"], 4);
  EXPECT_EQ(state["in_flight"]["event"], (json{{"now", 0}, {"max", 1}}));
  EXPECT_EQ(state["epoch"], 0);

  sandbox->setLastPush("a1b2c3", {{"id", "p-1"}});
  EXPECT_EQ(control("POST", "reset").status, 204);
  state = control("GET", "state").json();
  EXPECT_EQ(state["epoch"], 1);
  EXPECT_EQ(state["devices"], json::array());
  EXPECT_EQ(state["events"], json::array());
  EXPECT_EQ(state["last_pushes"], json::object());
  EXPECT_EQ(state["in_flight"]["event"]["max"], 0);
  EXPECT_EQ(control("GET", "requests").json()["epoch"], 1);
  EXPECT_EQ(control("GET", "violations").json(), json::array());
  EXPECT_EQ(sandbox->requestCount(), 0U);
}

TEST_F(ConsoleTest, OtherSitesPagesCannotDriveTheSandbox) {
  sandbox->setLastPush("a1b2c3", {{"id", "p-1"}});
  const std::vector<std::string> foreign = {"Origin: http://example.com"};
  EXPECT_EQ(control("POST", "reset", std::nullopt, foreign).status, 403);
  EXPECT_EQ(control("DELETE", "last_push/a1b2c3", std::nullopt, foreign).status, 403);
  EXPECT_EQ(control("PUT", "faults/*", R"({"drop": true})", foreign).status, 403);
  EXPECT_EQ(control("GET", "state", std::nullopt, foreign).json()["last_pushes"].size(), 1U);
  EXPECT_EQ(control("GET", "state").json()["faults"], json::object());

  EXPECT_EQ(control("POST", "reset", std::nullopt, {"Origin: " + origin()}).status, 204);
  EXPECT_EQ(control("GET", "state").json()["last_pushes"], json::object());
}

// Reads /_sandbox/changes on a thread of its own until the sandbox ends the stream.
class ChangeReader {
 public:
  explicit ChangeReader(const std::string& url)
      : done_(std::async(std::launch::async, [this, url] { read(url); })) {}
  ~ChangeReader() { done_.wait(); }

  // Waits until `count` change notices have arrived.
  bool waitForNotices(std::size_t count) {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, 10s, [&] { return notices() >= count; });
  }
  std::future_status waitForEnd(std::chrono::seconds timeout) { return done_.wait_for(timeout); }

 private:
  std::size_t notices() const {
    std::size_t count = 0;
    for (auto at = text_.find("event: change"); at != std::string::npos;
         at = text_.find("event: change", at + 1)) {
      ++count;
    }
    return count;
  }

  void read(const std::string& url) {
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy(curl_easy_init(), &curl_easy_cleanup);
    curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy.get(), CURLOPT_TIMEOUT, 60L);
    curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, this);
    curl_easy_setopt(
        easy.get(), CURLOPT_WRITEFUNCTION,
        +[](char* data, std::size_t size, std::size_t count, void* user) {
          auto* self = static_cast<ChangeReader*>(user);
          {
            std::lock_guard lock(self->mutex_);
            self->text_.append(data, size * count);
          }
          self->arrived_.notify_all();
          return size * count;
        });
    curl_easy_perform(easy.get());
  }

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::string text_;
  std::future<void> done_;
};

TEST_F(ConsoleTest, TheChangeStreamAnnouncesChangesAndEndsWhenTheSandboxStops) {
  ChangeReader reader(origin() + "/_sandbox/changes");
  ASSERT_TRUE(reader.waitForNotices(1));  // one at once, so that a page reads the state it missed
  post("event", validEvent(credentials()));
  ASSERT_TRUE(reader.waitForNotices(2));
  sandbox->setFault(Endpoint::event, Fault{.status = 500});
  ASSERT_TRUE(reader.waitForNotices(3));

  const auto stopping = std::chrono::steady_clock::now();
  sandbox->stop();
  EXPECT_EQ(reader.waitForEnd(10s), std::future_status::ready);
  EXPECT_LT(std::chrono::steady_clock::now() - stopping, 10s);
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
  orvanta::testing::TemporaryDirectory folder;
  const auto entries = orvanta::testing::credentials("app-1", "t0ken", "s3cret", "ev-1");
  orvanta::testing::writeFile(folder.file("xml.plist"), orvanta::testing::configPlistXml(entries));
  orvanta::testing::writeFile(folder.file("binary.plist"),
                              orvanta::testing::configPlistBinary(entries));
  orvanta::testing::writeFile(folder.file("broken.plist"), "<plist><dict><key>AppId");
  for (const char* name : {"xml.plist", "binary.plist"}) {
    SCOPED_TRACE(name);
    const Credentials credentials = loadCredentials(folder.file(name));
    EXPECT_EQ(credentials.appId, "app-1");
    EXPECT_EQ(credentials.token, "t0ken");
    EXPECT_EQ(credentials.secret, "s3cret");
    EXPECT_EQ(credentials.eventsToken, "ev-1");
  }
  EXPECT_THROW(loadCredentials(folder.file("broken.plist")), std::runtime_error);
  EXPECT_THROW(loadCredentials(folder.file("missing.plist")), std::runtime_error);
}

}  // namespace
}  // namespace orvanta::sandbox::testing
