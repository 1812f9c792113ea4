// The C test's sandbox and C++ twin (see sandbox_support.h). Links the sandbox library and the
// kit's shared library, never the kit's internals: the test is a host like any other.

#include "sandbox_support.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <orvanta/orvanta.hpp>
#include <orvanta_sandbox/sandbox.hpp>
#include <string>
#include <vector>

struct test_sandbox {
  std::unique_ptr<orvanta::sandbox::Sandbox> server;
  std::string baseUrl;
  std::string folder;
  std::string bundle;
};

namespace {

constexpr auto kPatience = std::chrono::seconds(30);

char* copy(const std::string& text) {
  char* result = static_cast<char*>(std::malloc(text.size() + 1));
  if (result != nullptr) {
    std::memcpy(result, text.c_str(), text.size() + 1);
  }
  return result;
}

std::string plist(const orvanta::sandbox::Credentials& credentials) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>\n";
  for (const auto& [key, value] :
       {std::pair{"AppId", credentials.appId}, std::pair{"Token", credentials.token},
        std::pair{"Secret", credentials.secret},
        std::pair{"EventsToken", credentials.eventsToken}}) {
    xml += std::string("<key>") + key + "</key><string>" + value + "</string>\n";
  }
  return xml + "</dict></plist>\n";
}

const orvanta::sandbox::Report* findReport(const std::vector<orvanta::sandbox::Report>& reports,
                                           const char* pushId, const char* member) {
  for (const auto& report : reports) {
    if (report.pushId == pushId && (member == nullptr || report.body.contains(member))) {
      return &report;
    }
  }
  return nullptr;
}

}  // namespace

extern "C" {

test_sandbox* test_sandbox_start(void) {
  try {
    auto sandbox = std::make_unique<test_sandbox>();
    sandbox->server = orvanta::sandbox::Sandbox::start();
    sandbox->baseUrl = sandbox->server->baseUrl();
    std::string pattern =
        (std::filesystem::temp_directory_path() / "orvanta-c-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
      return nullptr;
    }
    sandbox->folder = pattern;
    sandbox->bundle = sandbox->folder + "/bundle";
    std::filesystem::create_directories(sandbox->bundle);
    std::ofstream(sandbox->bundle + "/OrvantaConfig.plist")
        << plist(sandbox->server->credentials());
    return sandbox.release();
  } catch (const std::exception&) {
    return nullptr;
  }
}

void test_sandbox_stop(test_sandbox* sandbox) {
  if (sandbox == nullptr) {
    return;
  }
  sandbox->server.reset();
  std::error_code ignored;
  std::filesystem::remove_all(sandbox->folder, ignored);
  delete sandbox;
}

const char* test_sandbox_base_url(const test_sandbox* sandbox) {
  return sandbox->baseUrl.c_str();
}

const char* test_sandbox_folder(const test_sandbox* sandbox) {
  return sandbox->folder.c_str();
}

const char* test_sandbox_bundle(const test_sandbox* sandbox) {
  return sandbox->bundle.c_str();
}

bool test_sandbox_wait_for_token(test_sandbox* sandbox, const char* token) {
  auto& server = *sandbox->server;
  return server.waitFor(
      [&] {
        for (const auto& device : server.devices()) {
          if (device.registrationId == token) {
            return true;
          }
        }
        return false;
      },
      kPatience);
}

bool test_sandbox_wait_for_report(test_sandbox* sandbox, const char* push_id, const char* member) {
  auto& server = *sandbox->server;
  return server.waitFor([&] { return findReport(server.reports(), push_id, member) != nullptr; },
                        kPatience);
}

bool test_sandbox_wait_for_events(test_sandbox* sandbox, size_t count) {
  return sandbox->server->waitForEventCount(count, kPatience);
}

bool test_sandbox_wait_for_profile(test_sandbox* sandbox, const char* member) {
  auto& server = *sandbox->server;
  return server.waitFor(
      [&] {
        auto devices = server.devices();
        if (devices.empty() || !devices.front().profile.is_object()) {
          return false;
        }
        const auto& profile = devices.front().profile;
        return member != nullptr ? profile.contains(member) : profile.empty();
      },
      kPatience);
}

char* test_sandbox_report(test_sandbox* sandbox, const char* push_id, const char* member) {
  const auto reports = sandbox->server->reports();
  const auto* report = findReport(reports, push_id, member);
  return report != nullptr ? copy(report->body.dump()) : nullptr;
}

char* test_sandbox_device(test_sandbox* sandbox) {
  const auto devices = sandbox->server->devices();
  return devices.empty() ? nullptr : copy(devices.front().body.dump());
}

size_t test_sandbox_event_bodies(test_sandbox* sandbox, const char* name, char** bodies,
                                 size_t capacity) {
  std::vector<std::string> distinct;
  for (const auto& request : sandbox->server->requests()) {
    if (request.path != "/v1/event" || request.status != 201) {
      continue;
    }
    const auto body = nlohmann::json::parse(request.body, nullptr, false);
    if (body.is_discarded() || body.value("eventName", "") != name) {
      continue;
    }
    if (std::find(distinct.begin(), distinct.end(), request.body) == distinct.end()) {
      distinct.push_back(request.body);
    }
  }
  for (size_t i = 0; i < distinct.size() && i < capacity; ++i) {
    bodies[i] = copy(distinct[i]);
  }
  return distinct.size();
}

void test_sandbox_set_last_push(test_sandbox* sandbox, const char* token, const char* push_json) {
  sandbox->server->setLastPush(token, nlohmann::json::parse(push_json));
}

void test_track_through_cxx(const char* name, double when_since_1970) {
  // The same values as c_api_test.c, each written as a C++ host writes it.
  orvanta::Orvanta::analytics().trackEvent(name,
                                           {{"sku", "A-1"},
                                            {"qty", std::int64_t{2}},
                                            {"delta", -7},
                                            {"largest", std::numeric_limits<std::int64_t>::max()},
                                            {"price", 9.5},
                                            {"gift", false},
                                            {"fresh", true},
                                            {"when", orvanta::Date::since1970(when_since_1970)},
                                            {"note", "caf\xc3\xa9 \xff"}});
}

}  // extern "C"
