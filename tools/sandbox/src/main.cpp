// orvanta-sandbox: runs the local push and API services until SIGINT or SIGTERM.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "orvanta_sandbox/sandbox.hpp"
#include "orvanta_sandbox/web_push.hpp"

namespace {

constexpr const char* kUsage =
    "usage: orvanta-sandbox [--port N] [--vapid-key FILE]\n"
    "                       [--app-id ID --token T --secret S --events-token E | --config "
    "OrvantaConfig.plist]\n"
    "Serves the push service and the API service on http://127.0.0.1:<port>/v1/, and its\n"
    "console (a web page) and control API under /_sandbox/. Pushes to a device's endpoint are\n"
    "encrypted to its keys and signed with a VAPID key: a new one each run, or the one kept in\n"
    "FILE (made there when missing), so that its public key, which the application gives the kit,\n"
    "stays the same. Stops on SIGINT or SIGTERM.\n";

[[noreturn]] void usageError(const std::string& message) {
  std::cerr << "orvanta-sandbox: " << message << "\n" << kUsage;
  std::exit(2);
}

// The VAPID private key kept in `path`; a new one written there (0600) when there is none.
std::string vapidKeyFrom(const std::string& path) {
  std::ifstream in(path);
  if (in) {
    std::stringstream text;
    text << in.rdbuf();
    std::string key = text.str();
    while (!key.empty() && (key.back() == '\n' || key.back() == ' ')) {
      key.pop_back();
    }
    return key;
  }
  const std::string key = orvanta::sandbox::webpush::VapidKey::generate().privateKey();
  const mode_t previous = ::umask(077);
  std::ofstream out(path);
  out << key << "\n";
  ::umask(previous);
  if (!out) {
    usageError("can't write the VAPID key to " + path);
  }
  return key;
}

orvanta::sandbox::Options parseArguments(int argc, char** argv) {
  orvanta::sandbox::Options options;
  std::optional<std::string> configPath;
  bool credentialGiven = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--help" || argument == "-h") {
      std::cout << kUsage;
      std::exit(0);
    }
    if (i + 1 >= argc) {
      usageError("missing value after " + std::string(argument));
    }
    const std::string value = argv[++i];
    if (argument == "--port") {
      char* end = nullptr;
      const long port = std::strtol(value.c_str(), &end, 10);
      if (end == value.c_str() || *end != '\0' || port < 0 || port > 65535) {
        usageError("bad port " + value);
      }
      options.port = static_cast<std::uint16_t>(port);
    } else if (argument == "--vapid-key") {
      options.vapidPrivateKey = vapidKeyFrom(value);
    } else if (argument == "--config") {
      configPath = value;
    } else if (argument == "--app-id") {
      options.credentials.appId = value;
      credentialGiven = true;
    } else if (argument == "--token") {
      options.credentials.token = value;
      credentialGiven = true;
    } else if (argument == "--secret") {
      options.credentials.secret = value;
      credentialGiven = true;
    } else if (argument == "--events-token") {
      options.credentials.eventsToken = value;
      credentialGiven = true;
    } else {
      usageError("unknown option " + std::string(argument));
    }
  }
  if (configPath) {
    if (credentialGiven) {
      usageError("--config and credential options exclude each other");
    }
    try {
      options.credentials = orvanta::sandbox::loadCredentials(*configPath);
    } catch (const std::exception& error) {
      usageError(error.what());
    }
  }
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  orvanta::sandbox::Options options = parseArguments(argc, argv);

  // The signals are blocked before any thread starts, so every thread inherits the mask and the
  // main thread alone takes them, synchronously, with sigwait.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  static std::mutex outputMutex;
  options.onRequest = [](const orvanta::sandbox::RecordedRequest& request,
                         const std::string& reason) {
    std::lock_guard lock(outputMutex);
    std::printf("%s %s %s%s%s\n", request.method.c_str(), request.path.c_str(),
                request.status == 0 ? "dropped" : std::to_string(request.status).c_str(),
                reason.empty() ? "" : " ", reason.c_str());
    std::fflush(stdout);
  };

  std::unique_ptr<orvanta::sandbox::Sandbox> sandbox;
  try {
    sandbox = orvanta::sandbox::Sandbox::start(std::move(options));
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
  {
    std::lock_guard lock(outputMutex);
    std::printf("orvanta-sandbox listening on %s\n", sandbox->baseUrl().c_str());
    std::printf("orvanta-sandbox console at %s\n", sandbox->consoleUrl().c_str());
    std::printf("orvanta-sandbox VAPID public key %s\n", sandbox->vapidPublicKey().c_str());
    std::fflush(stdout);
  }

  int received = 0;
  sigwait(&signals, &received);
  sandbox->stop();
  return 0;
}
