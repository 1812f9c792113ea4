// orvanta-doctor run as a program against a real application's files: a host on the kit's
// public API (orvanta_doctor_host) registers over a private session bus, with the recording
// notification server and the development distributor, against the sandbox, and tracks events the
// sandbox refuses. Then each link is broken in turn and the doctor must name it, with a fix and
// a failing exit status; healthy, it passes everything and changes nothing.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "linux/file_secure_store.hpp"
#include "orvanta_distributor/distributor.hpp"
#include "orvanta_sandbox/sandbox.hpp"
#include "testing/child_process.hpp"
#include "testing/config_plist.hpp"
#include "testing/dbus/fake_notification_server.hpp"
#include "testing/dbus/private_session_bus.hpp"
#include "testing/loopback_http_server.hpp"
#include "testing/temporary_directory.hpp"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using testing::FakeNotificationServer;

constexpr const char* kApplicationId = "io.orvanta.DoctorTest";
constexpr auto kPatience = std::chrono::seconds(120);
constexpr std::size_t kWaitingEvents = 3;

/// What the doctor printed, by check.
struct DoctorRun {
  int status = -1;
  std::string output;
  std::string errors;

  /// The line of the check titled `title`; empty when there is none.
  std::string line(const std::string& title) const {
    std::istringstream lines(output);
    for (std::string text; std::getline(lines, text);) {
      for (const char* mark : {"✔ ", "✗ "}) {
        if (text.rfind(std::string(mark) + title + " ", 0) == 0) {
          return text;
        }
      }
    }
    return {};
  }

  /// The titles of the checks that failed.
  std::set<std::string> failed() const {
    std::set<std::string> titles;
    std::istringstream lines(output);
    for (std::string text; std::getline(lines, text);) {
      if (text.rfind("✗ ", 0) == 0) {
        const std::string rest = text.substr(std::string("✗ ").size());
        titles.insert(rest.substr(0, rest.find("  ")));
      }
    }
    return titles;
  }
};

/// Every file under `folder`: its bytes, mode and modification time, to tell any change.
std::map<std::string, std::string> snapshot(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    struct stat info {};
    ::stat(entry.path().c_str(), &info);
    std::string state = std::to_string(info.st_mode) + " " + std::to_string(info.st_mtim.tv_sec) +
                        "." + std::to_string(info.st_mtim.tv_nsec);
    if (entry.is_regular_file()) {
      state += " " + testing::readFile(entry.path().string());
    }
    files[entry.path().string()] = state;
  }
  return files;
}

class DoctorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(bus_.started()) << bus_.failure();
    sandbox_ = sandbox::Sandbox::start();
    const auto& credentials = sandbox_->credentials();
    testing::writeConfigPlist(
        bundle(), testing::credentials(credentials.appId, credentials.token, credentials.secret,
                                       credentials.eventsToken));
    startServer({"actions", "body", "body-images"});
    distributor_ = distributor::Distributor::start(
        {.busAddress = bus_.address(), .name = "orvanta_doctor_test"});

    // The application registers and tracks events that the service refuses, so they wait.
    sandbox::Fault refused;
    refused.status = 503;
    sandbox_->setFault(sandbox::Endpoint::event, refused);
    const auto host = testing::runProgram(
        {ORVANTA_DOCTOR_HOST, "--bundle", bundle(), "--data", data(), "--preferences",
         preferences(), "--app-id", kApplicationId, "--service", sandbox_->baseUrl(), "--events",
         std::to_string(kWaitingEvents)},
        {"DBUS_SESSION_BUS_ADDRESS=" + bus_.address(), "ORVANTA_PUSH_DISTRIBUTOR"}, kPatience);
    ASSERT_EQ(host.exitStatus, 0) << host.output << host.errors;
    ASSERT_EQ(sandbox_->devices().size(), 1u);
    // The refusal stays: a post the host left in flight is refused whenever it arrives.
  }

  void startServer(std::vector<std::string> capabilities) {
    server_.reset();
    server_ = std::make_unique<FakeNotificationServer>(bus_.address(), std::move(capabilities));
    ASSERT_TRUE(server_->started()) << server_->failure();
  }

  std::string bundle() const { return application_.file("bundle"); }
  std::string data() const { return application_.file("data"); }
  std::string preferences() const { return application_.file("config/preferences.json"); }
  std::string keystoreItem(const std::string& account) const {
    return data() + "/keystore/" + account + ".item";
  }

  /// Runs the doctor on the application, with `extra` arguments after the usual ones (a later
  /// option wins) and the environment changed by `environment`. No check here waits for its
  /// time-out, which is long for a loaded machine's sake.
  DoctorRun doctor(const std::vector<std::string>& extra = {},
                   const std::vector<std::string>& environment = {}) {
    std::vector<std::string> arguments{
        ORVANTA_DOCTOR,      "--bundle",    bundle(),   "--data",       data(),
        "--preferences",     preferences(), "--app-id", kApplicationId, "--service",
        sandbox_->baseUrl(), "--timeout",   "60"};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    std::vector<std::string> variables{"DBUS_SESSION_BUS_ADDRESS=" + bus_.address(),
                                       "ORVANTA_PUSH_DISTRIBUTOR", "TMPDIR=" + scratch_.path()};
    variables.insert(variables.end(), environment.begin(), environment.end());
    const auto run = testing::runProgram(arguments, variables, kPatience);
    return {run.exitStatus, run.output, run.errors};
  }

  /// Runs the doctor and expects exactly the checks titled `failing` to fail, and the line of
  /// `title` to give a reason holding `reason` and a fix holding `fix`.
  void expectFailures(const std::set<std::string>& failing, const std::string& title,
                      const std::string& reason, const std::string& fix,
                      const std::vector<std::string>& extra = {},
                      const std::vector<std::string>& environment = {}) {
    const DoctorRun run = doctor(extra, environment);
    EXPECT_EQ(run.status, 1) << run.output << run.errors;
    EXPECT_EQ(run.failed(), failing) << run.output;
    const std::string line = run.line(title);
    const auto fixAt = line.find(". Fix: ");
    EXPECT_NE(line.substr(0, fixAt).find(reason), std::string::npos) << line;
    EXPECT_NE(fixAt, std::string::npos) << line;
    EXPECT_NE(line.find(fix, fixAt), std::string::npos) << line;
  }

  testing::TemporaryDirectory application_;
  testing::TemporaryDirectory scratch_;  // the doctor's TMPDIR
  testing::PrivateSessionBus bus_;
  std::unique_ptr<sandbox::Sandbox> sandbox_;
  std::unique_ptr<FakeNotificationServer> server_;
  std::unique_ptr<distributor::Distributor> distributor_;
};

TEST_F(DoctorTest, AHealthyApplicationPassesEveryCheckAndNothingOfItChanges) {
  const auto files = snapshot(application_.path());
  auto devices = [this] {
    std::vector<std::string> known;
    for (const auto& device : sandbox_->devices()) {
      known.push_back(device.body.dump() + " " + std::to_string(device.registrations));
    }
    return known;
  };
  const auto devicesBefore = devices();
  const std::size_t events = sandbox_->eventCount();
  const std::size_t requests = sandbox_->requestCount();
  const std::size_t registrations = distributor_->registrations().size();

  const DoctorRun run = doctor();
  EXPECT_EQ(run.status, 0) << run.output << run.errors;
  EXPECT_TRUE(run.failed().empty()) << run.output;
  EXPECT_NE(run.output.find("All 13 checks passed."), std::string::npos) << run.output;
  EXPECT_NE(run.line("event database").find("3 events waiting"), std::string::npos) << run.output;
  EXPECT_NE(run.line("notification server").find("orvanta-fake-ns 1.0"), std::string::npos)
      << run.output;
  EXPECT_NE(run.line("push distributor").find(distributor_->busName()), std::string::npos)
      << run.output;

  // Checks left out change no other verdict, even those that build on what they learn.
  const DoctorRun fewer = doctor({"--skip", "keystore,bus,distributor"});
  EXPECT_EQ(fewer.status, 0) << fewer.output;
  EXPECT_TRUE(fewer.line("key store").empty()) << fewer.output;
  EXPECT_NE(fewer.output.find("All 10 checks passed."), std::string::npos) << fewer.output;

  const DoctorRun json = doctor({"--json"});
  EXPECT_EQ(json.status, 0) << json.output << json.errors;
  const auto report = nlohmann::json::parse(json.output, nullptr, false);
  ASSERT_TRUE(report.is_object()) << json.output;
  EXPECT_EQ(report["ok"], true);
  EXPECT_EQ(report["passed"], 13);
  EXPECT_EQ(report["application"]["applicationId"], kApplicationId);
  std::map<std::string, nlohmann::json> checks;
  for (const auto& check : report["checks"]) {
    EXPECT_EQ(check["ok"], true) << check.dump();
    EXPECT_TRUE(check["fix"].is_null()) << check.dump();
    checks[check["id"].get<std::string>()] = check["details"];
  }
  EXPECT_EQ(checks["configuration"]["appId"], sandbox_->credentials().appId);
  EXPECT_EQ(checks["database"]["waiting"], kWaitingEvents);
  EXPECT_EQ(checks["database"]["quickCheck"], "ok");
  EXPECT_EQ(checks["keystore"]["items"]["unifiedPush.registration"], "ok");
  EXPECT_EQ(checks["device"]["device"], sandbox_->devices().front().userId);
  EXPECT_EQ(checks["notifications"]["name"], FakeNotificationServer::kServerName);
  EXPECT_EQ(checks["buttons"]["actions"], true);
  EXPECT_EQ(checks["distributor"]["chosen"], distributor_->busName());
  ASSERT_EQ(distributor_->registrations().size(), 1u);
  EXPECT_EQ(checks["registration"]["endpoint"], distributor_->registrations().front().endpoint);
  EXPECT_EQ(checks["push-service"]["status"], 204);
  EXPECT_TRUE(checks["api-service"].contains("clockSkewSeconds"));

  // Three runs later, the application's files, the service, the distributor and the notification
  // server are as they were: the doctor asked for the services' root and nothing else.
  EXPECT_EQ(snapshot(application_.path()), files);
  EXPECT_TRUE(fs::is_empty(scratch_.path()));
  EXPECT_EQ(devices(), devicesBefore);
  EXPECT_EQ(sandbox_->eventCount(), events);
  EXPECT_TRUE(sandbox_->violations().empty());
  std::vector<std::string> asked;
  const auto recorded = sandbox_->requests();
  for (std::size_t i = requests; i < recorded.size(); ++i) {
    if (recorded[i].path != "/v1/event") {  // the host's last posts may come in late
      asked.push_back(recorded[i].method + " " + recorded[i].path);
    }
  }
  EXPECT_EQ(asked, std::vector<std::string>(6, "HEAD /v1/"));
  EXPECT_EQ(distributor_->registrations().size(), registrations);
  EXPECT_TRUE(distributor_->forwarded().empty());
  EXPECT_TRUE(server_->notifications().empty());
}

TEST_F(DoctorTest, EachBrokenDesktopLinkIsNamedWithItsFix) {
  // A server that shows no buttons.
  startServer({"body"});
  expectFailures({"notification buttons"}, "notification buttons", "has no \"actions\" capability",
                 "supports actions");

  // No notification server at all.
  server_.reset();
  expectFailures({"notification server", "notification buttons"}, "notification server",
                 "no notification server on the session D-Bus", "org.freedesktop.Notifications");
  startServer({"actions", "body"});

  // Not registered: the application never got an endpoint.
  const std::string registration = keystoreItem("unifiedPush.registration");
  const std::string kept = testing::readFile(registration);
  fs::remove(registration);
  expectFailures({"push registration"}, "push registration", "not registered with a distributor",
                 "registerForPushNotifications");
  // Registered, but the service holds other keys than the installation's (it kept an older
  // token): the pushes it sends would not decrypt.
  using linux_platform::FileSecureStore;
  auto record = nlohmann::json::parse(FileSecureStore::decodeItem(kept).value_or(""));
  record["authSecret"] = "AAAAAAAAAAAAAAAAAAAAAA";
  testing::writeFile(registration, FileSecureStore::encodeItem(record.dump()));
  ASSERT_EQ(::chmod(registration.c_str(), 0600), 0);
  expectFailures({"push registration"}, "push registration",
                 "the service has other keys than this installation's",
                 "hands the endpoint and its keys to the service");
  testing::writeFile(registration, kept);
  ASSERT_EQ(::chmod(registration.c_str(), 0600), 0);

  // The distributor is gone.
  const std::string name = distributor_->busName();
  distributor_.reset();
  expectFailures({"push distributor", "push registration"}, "push distributor",
                 "no UnifiedPush distributor", "orvanta-distributor");
  // ... and another one runs, which the application is not registered with.
  distributor_ = distributor::Distributor::start({.busAddress = bus_.address(), .name = "other"});
  expectFailures({"push registration"}, "push registration",
                 "registered with " + name + ", which is not on the", "start " + name);

  // No session bus: everything on it goes unchecked, and says why.
  expectFailures({"session D-Bus", "notification server", "notification buttons",
                  "push distributor", "push registration"},
                 "session D-Bus", "does not answer", "DBUS_SESSION_BUS_ADDRESS", {},
                 {"DBUS_SESSION_BUS_ADDRESS=unix:path=" + application_.file("no-bus")});
}

TEST_F(DoctorTest, EachBrokenFileOrServiceLinkIsNamedWithItsFix) {
  const DoctorRun usage = doctor({"--skip", "nothing"});
  EXPECT_EQ(usage.status, 2);
  EXPECT_NE(usage.errors.find("no check is called \"nothing\""), std::string::npos);

  // A configuration file with a number where a string belongs and a key missing, then one that is
  // no property list.
  const std::string configuration = bundle() + "/OrvantaConfig.plist";
  const std::string kept = testing::readFile(configuration);
  testing::writeFile(configuration, "<plist version=\"1.0\"><dict><key>AppId</key><string>" +
                                        sandbox_->credentials().appId +
                                        "</string><key>Token</key><integer>7</integer>"
                                        "<key>EventsToken</key><string>e</string></dict></plist>");
  expectFailures({"configuration file"}, "configuration file",
                 "Token is a number, not a string, Secret is missing",
                 "Token, Secret and EventsToken as <string> entries");
  testing::writeFile(configuration, "AppId = sandbox");
  expectFailures({"configuration file"}, "configuration file", "is not a property list",
                 "<string> entries");
  testing::writeFile(configuration, kept);

  // A data folder others can read.
  ASSERT_EQ(::chmod(data().c_str(), 0755), 0);
  expectFailures({"file permissions"}, "file permissions",
                 data() + " is open to group or others (mode 0755)", "chmod go-rwx " + data());
  ASSERT_EQ(::chmod(data().c_str(), 0700), 0);

  // A damaged database: the events table's page garbled, once the log is in the file.
  const std::string database = data() + "/Orvanta.sqlite";
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(database.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);
  const std::string intact = testing::readFile(database);
  ASSERT_GE(intact.size(), 2u * 4096);
  std::string damaged = intact;
  damaged.replace(4096, 4096, 4096, 'x');
  testing::writeFile(database, damaged);
  expectFailures({"event database"}, "event database", "is damaged", "mv " + database);
  testing::writeFile(database, intact);

  // The push service down: nothing listens at its address any more.
  std::string gone;
  {
    auto stopped = sandbox::Sandbox::start();
    gone = stopped->baseUrl();
  }
  expectFailures({"push service"}, "push service", gone + " does not answer", "is up and reachable",
                 {"--push-url", gone});

  // The API service behind a certificate nobody trusts.
  testing::LoopbackHttpServer untrusted({}, testing::loopbackTlsIdentity());
  expectFailures({"API service"}, "API service", "the certificate of 127.0.0.1 is not trusted",
                 "update-ca-certificates", {"--api-url", untrusted.url("/v1/")});
  EXPECT_EQ(untrusted.requestCount(), 0u);

  // Everything mended, it all passes again.
  const DoctorRun mended = doctor();
  EXPECT_EQ(mended.status, 0) << mended.output;
}

}  // namespace
}  // namespace orvanta
