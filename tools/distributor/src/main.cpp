// orvanta-distributor: a UnifiedPush distributor for development, until SIGINT or SIGTERM.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <mutex>
#include <string>
#include <string_view>

#include "orvanta_distributor/distributor.hpp"

namespace {

constexpr const char* kUsage =
    "usage: orvanta-distributor [--name NAME] [--port N] [--bus ADDRESS] [--refuse REASON]\n"
    "Serves org.unifiedpush.Distributor1 and Distributor2 as org.unifiedpush.Distributor.NAME\n"
    "(default: orvanta) on the session bus (or the bus at ADDRESS). Applications that register\n"
    "get endpoints http://127.0.0.1:<port>/up/<id>; every POST to one reaches the application as\n"
    "a message. --refuse refuses every registration with REASON. Stops on SIGINT or SIGTERM.\n";

[[noreturn]] void usageError(const std::string& message) {
  std::cerr << "orvanta-distributor: " << message << "\n" << kUsage;
  std::exit(2);
}

orvanta::distributor::Options parseArguments(int argc, char** argv) {
  orvanta::distributor::Options options;
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
    if (argument == "--name") {
      options.name = value;
    } else if (argument == "--bus") {
      options.busAddress = value;
    } else if (argument == "--refuse") {
      options.refuseReason = value;
    } else if (argument == "--port") {
      char* end = nullptr;
      const long port = std::strtol(value.c_str(), &end, 10);
      if (end == value.c_str() || *end != '\0' || port < 0 || port > 65535) {
        usageError("bad port " + value);
      }
      options.port = static_cast<std::uint16_t>(port);
    } else {
      usageError("unknown option " + std::string(argument));
    }
  }
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  orvanta::distributor::Options options = parseArguments(argc, argv);

  // Blocked before any thread starts, so that the main thread alone takes them, with sigwait.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  static std::mutex outputMutex;
  options.log = [](const std::string& line) {
    std::lock_guard lock(outputMutex);
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
  };

  std::unique_ptr<orvanta::distributor::Distributor> distributor;
  try {
    distributor = orvanta::distributor::Distributor::start(std::move(options));
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
  {
    std::lock_guard lock(outputMutex);
    std::printf("orvanta-distributor: %s on the bus, endpoints at %s\n",
                distributor->busName().c_str(), distributor->endpointBase().c_str());
    std::fflush(stdout);
  }

  int received = 0;
  sigwait(&signals, &received);
  distributor->stop();
  return 0;
}
