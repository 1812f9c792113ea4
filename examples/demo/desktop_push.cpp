#include "desktop_push.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include <orvanta_sandbox/web_push.hpp>
#if defined(ORVANTA_DEMO_WITH_DISTRIBUTOR)
#include <orvanta_distributor/distributor.hpp>
#endif

extern char** environ;

namespace {

using namespace std::chrono_literals;

void say(const std::string& text) {
  std::printf("\n== %s\n", text.c_str());
  std::fflush(stdout);
}

// The push's JSON as the dictionary a notification carries.
orvanta::Value toValue(const nlohmann::json& json) {
  if (json.is_object()) {
    orvanta::ValueMap map;
    for (const auto& [key, value] : json.items()) {
      map.emplace(key, toValue(value));
    }
    return map;
  }
  if (json.is_array()) {
    orvanta::ValueArray array;
    for (const auto& value : json) {
      array.push_back(toValue(value));
    }
    return array;
  }
  if (json.is_string()) {
    return json.get<std::string>();
  }
  if (json.is_boolean()) {
    return json.get<bool>();
  }
  if (json.is_number_integer()) {
    return json.get<std::int64_t>();
  }
  if (json.is_number()) {
    return json.get<double>();
  }
  return {};
}

// Whether the user's session bus can be found the usual ways.
bool sessionBusExists() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address) {
    return true;
  }
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  struct stat info {};
  return runtime != nullptr && ::stat((std::string(runtime) + "/bus").c_str(), &info) == 0 &&
         S_ISSOCK(info.st_mode);
}

// A dbus-daemon of the demo's own: our configuration (this user only, no services started on
// demand), its address read from a pipe, ended with the demo.
class PrivateBus {
 public:
  PrivateBus() {
    std::error_code ignored;
    folder_ =
        std::filesystem::temp_directory_path() / ("orvanta-demo-bus-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder_, ignored);
    const auto config = folder_ / "bus.conf";
    std::ofstream(config) << "<busconfig><type>session</type><listen>unix:dir=" << folder_.string()
                          << "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                             "<allow send_destination=\"*\" eavesdrop=\"true\"/>"
                             "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
      return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<std::string> arguments = {"dbus-daemon", "--config-file=" + config.string(),
                                          "--nofork", "--print-address=1"};
    std::vector<char*> argv;
    for (auto& argument : arguments) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const int spawned =
        ::posix_spawnp(&pid_, "dbus-daemon", &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (spawned != 0) {
      pid_ = -1;
      ::close(ends[0]);
      return;
    }
    std::string printed;
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (printed.find('\n') == std::string::npos && std::chrono::steady_clock::now() < deadline) {
      pollfd entry{ends[0], POLLIN, 0};
      if (::poll(&entry, 1, 1000) <= 0) {
        continue;
      }
      char buffer[512];
      const ssize_t count = ::read(ends[0], buffer, sizeof buffer);
      if (count <= 0) {
        break;
      }
      printed.append(buffer, static_cast<std::size_t>(count));
    }
    ::close(ends[0]);
    if (printed.find('\n') != std::string::npos) {
      address_ = printed.substr(0, printed.find('\n'));
    }
  }

  ~PrivateBus() {
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      int status = 0;
      ::waitpid(pid_, &status, 0);
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  const std::string& address() const { return address_; }

 private:
  std::filesystem::path folder_;
  pid_t pid_ = -1;
  std::string address_;
};

}  // namespace

struct DesktopPush::State {
  std::unique_ptr<PrivateBus> bus;
  bool haveBus = false;
#if defined(ORVANTA_DEMO_WITH_DISTRIBUTOR)
  bool triedDistributor = false;
  std::unique_ptr<orvanta::distributor::Distributor> distributor;
#endif
};

DesktopPush::DesktopPush(bool wanted) : state_(std::make_unique<State>()) {
#if defined(ORVANTA_DEMO_WITH_DISTRIBUTOR)
  if (!wanted) {
    return;
  }
  state_->haveBus = sessionBusExists();
  if (!state_->haveBus) {
    state_->bus = std::make_unique<PrivateBus>();
    if (!state_->bus->address().empty()) {
      ::setenv("DBUS_SESSION_BUS_ADDRESS", state_->bus->address().c_str(), 1);
      state_->haveBus = true;
      std::printf("orvanta-demo: no session bus here; started a private one at %s\n",
                  state_->bus->address().c_str());
    }
  }
#else
  (void)wanted;
#endif
}

DesktopPush::~DesktopPush() {
#if defined(ORVANTA_DEMO_WITH_DISTRIBUTOR)
  state_->distributor.reset();
#endif
  state_->bus.reset();
}

void DesktopPush::configure(orvanta::LinuxPlatformOptions& options,
                            const std::string& vapidPublicKey) const {
  options.applicationId = kApplicationId;
  options.pushDistributor = "orvanta_demo";
  options.vapidPublicKey = vapidPublicKey;
}

std::optional<bool> DesktopPush::receivePushFromSandbox(orvanta::sandbox::Sandbox& sandbox,
                                                        const std::function<bool()>& arrived,
                                                        std::string& deviceToken) {
#if defined(ORVANTA_DEMO_WITH_DISTRIBUTOR)
  if (!state_->haveBus) {
    std::printf("orvanta-demo: no session bus (and no dbus-daemon to start one)\n");
    return std::nullopt;
  }
  if (!state_->triedDistributor) {
    state_->triedDistributor = true;
    try {
      state_->distributor = orvanta::distributor::Distributor::start(
          {.name = "orvanta_demo", .log = [](const std::string& line) {
             std::printf("orvanta-distributor: %s\n", line.c_str());
             std::fflush(stdout);
           }});
      std::printf("orvanta-distributor: %s on the session bus, endpoints at %s\n",
                  state_->distributor->busName().c_str(),
                  state_->distributor->endpointBase().c_str());
    } catch (const std::exception& error) {
      std::printf("%s\n", error.what());
    }
  }
  if (!state_->distributor) {
    return std::nullopt;
  }

  say("the application registers for remote pushes: the push distributor gives it an endpoint, "
      "the kit makes its keys for encrypted pushes and registers both as the device's token");
  auto platform = orvanta::currentPlatform();
  platform->mainQueue->async(
      [platform] { platform->application->registerForRemoteNotifications(); });
  const std::string base = state_->distributor->endpointBase();
  std::string token;
  std::optional<orvanta::sandbox::webpush::Subscription> subscription;
  const bool registered = sandbox.waitFor(
      [&] {
        for (const auto& device : sandbox.devices()) {
          if (!device.registrationId) {
            continue;
          }
          auto read = orvanta::sandbox::webpush::subscriptionFromToken(*device.registrationId);
          if (read && read->endpoint.rfind(base, 0) == 0) {
            token = *device.registrationId;
            subscription = std::move(read);
            return true;
          }
        }
        return false;
      },
      10s);
  if (!registered) {
    std::printf("the registration did not reach the sandbox (the kit's log says why)\n");
    return std::nullopt;
  }
  deviceToken = token;
  std::printf(
      "sandbox: the device's token is now %s...\n  which carries the endpoint %s,\n  the "
      "application's public key %s...\n  and its authentication secret (16 bytes)\n",
      token.substr(0, 24).c_str(), subscription->endpoint.c_str(),
      orvanta::sandbox::webpush::base64Url(subscription->publicKey.value_or(""))
          .substr(0, 24)
          .c_str());

  say("the sandbox sends a push with a picture and two buttons to that endpoint, encrypted to the "
      "application's key and signed with the sandbox's VAPID key");
  const nlohmann::json push = {
      {"aps", {{"alert", {{"title", "Flash sale"}, {"body", "Two hours only"}}}}},
      {"data",
       {{"id", "demo-push-1"},
        {"registration_id", token},
        {"image", sandbox.consoleUrl() + "sample.png"},
        {"action_buttons",
         {{"category_id", "ORVANTA_PUSH_CATEGORY_ACCEPTANCE"},
          {"items",
           {{{"id", "ORVANTA_PUSH_ACTION_ACCEPT"},
             {"type", "NONE"},
             {"url", "https://orvanta.io/sale"}}}}}}}}};
  const auto delivery = sandbox.send(token, push);
  std::printf("sandbox: %s\n", delivery.detail.c_str());
  if (delivery.outcome != orvanta::sandbox::Delivery::Outcome::delivered) {
    return false;
  }
  const auto reportOf = [&](int status) {
    return sandbox.waitFor(
        [&] {
          for (const auto& report : sandbox.reports()) {
            if (report.pushId == "demo-push-1" && report.body.value("status", -1) == status) {
              return true;
            }
          }
          return false;
        },
        10s);
  };
  if (!arrived() || !reportOf(0)) {
    std::printf("the push did not reach the application\n");
    return false;
  }
  const auto forwarded = state_->distributor->forwarded();
  if (!forwarded.empty() && forwarded.back().body.find("Flash sale") == std::string::npos) {
    std::printf(
        "the push travelled encrypted end to end: orvanta-distributor checked the sandbox's "
        "signature and forwarded %zu bytes of ciphertext, which only the kit could decrypt\n",
        forwarded.back().body.size());
  }
  if (state_->bus) {
    std::printf(
        "desktop: the kit reported the push received, attached its picture and handed it to the "
        "notification centre; the demo's private bus has no notification server, so the kit says "
        "so once in its log (on a desktop the notification appears, with its picture and "
        "buttons)\n");
  } else {
    std::printf(
        "desktop: the kit reported the push received, attached its picture and handed it to the "
        "desktop's notification server with its buttons\n");
  }

  say("the user presses \"Accept\"");
  orvanta::port::NotificationResponse response;
  response.notification.request.identifier = "demo-push-1";
  response.notification.request.content.userInfo = *toValue(push).map();
  response.actionIdentifier = "ORVANTA_PUSH_ACTION_ACCEPT";
  orvanta::Orvanta::push().didReceiveNotificationResponse(response);
  const bool reported = reportOf(1);
  for (const auto& report : sandbox.reports()) {
    if (report.pushId == "demo-push-1") {
      std::printf("sandbox: report for push %s: %s\n", report.pushId.c_str(),
                  report.body.dump().c_str());
    }
  }
  if (!reported) {
    std::printf("the report did not reach the sandbox\n");
  }
  return reported;
#else
  (void)sandbox;
  (void)arrived;
  (void)deviceToken;
  return std::nullopt;
#endif
}
