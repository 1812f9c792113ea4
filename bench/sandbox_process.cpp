#include "sandbox_process.hpp"

#include <curl/curl.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

extern char** environ;

namespace orvanta::bench {
namespace {

std::size_t appendTo(char* data, std::size_t size, std::size_t count, void* user) {
  static_cast<std::string*>(user)->append(data, size * count);
  return size * count;
}

}  // namespace

SandboxProcess::SandboxProcess(const std::string& program, const std::string& configPlist) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  std::vector<std::string> arguments{program, "--port", "0", "--config", configPlist};
  std::vector<char*> argv;
  for (auto& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  const int status = posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  if (status != 0) {
    close(ends[0]);
    throw std::runtime_error("could not start " + program);
  }
  output_ = ends[0];

  // The first line gives the address; everything after it is one line per request.
  const std::string marker = "listening on ";
  std::string seen;
  char chunk[512];
  while (seen.find('\n', seen.find(marker)) == std::string::npos ||
         seen.find(marker) == std::string::npos) {
    const ssize_t got = read(output_, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      throw std::runtime_error("orvanta-sandbox did not start");
    }
    seen.append(chunk, static_cast<std::size_t>(got));
  }
  const std::size_t begin = seen.find(marker) + marker.size();
  baseUrl_ = seen.substr(begin, seen.find('\n', begin) - begin);
  controlUrl_ =
      baseUrl_.substr(0, baseUrl_.size() - 3) + "_sandbox/";  // ".../v1/" -> ".../_sandbox/"

  outputReader_ = OwnedThread("sandbox-output", [fd = output_] {
    char buffer[4096];
    while (true) {
      const ssize_t got = read(fd, buffer, sizeof buffer);
      if (got < 0 && errno == EINTR) {
        continue;
      }
      if (got <= 0) {
        return;  // the sandbox is gone
      }
    }
  });
}

SandboxProcess::~SandboxProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
  }
  outputReader_.join();  // ends at end of file, once the sandbox has exited
  if (output_ >= 0) {
    close(output_);
  }
}

std::string SandboxProcess::control(const std::string& method, const std::string& path,
                                    const std::string& body) const {
  CURL* easy = curl_easy_init();
  std::string answer;
  const std::string url = controlUrl_ + path;
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_NOPROXY, "*");
  if (method != "GET") {
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  }
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &appendTo);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
  const CURLcode code = curl_easy_perform(easy);
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_cleanup(easy);
  if (code != CURLE_OK || status / 100 != 2) {
    throw std::runtime_error("sandbox control " + method + " " + path + " failed");
  }
  return answer;
}

void SandboxProcess::reset() const {
  control("POST", "reset");
}

nlohmann::json SandboxProcess::state() const {
  return nlohmann::json::parse(control("GET", "state?newest=0"));
}

void SandboxProcess::setFault(const std::string& endpoint, const nlohmann::json& fault) const {
  control("PUT", "faults/" + endpoint, fault.dump());
}

void SandboxProcess::clearFaults() const {
  control("DELETE", "faults");
}

double SandboxProcess::cpuSeconds() const {
  std::ifstream stat("/proc/" + std::to_string(pid_) + "/stat");
  std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  // Fields after the command name (which is in parentheses): state is field 3; utime and stime
  // are fields 14 and 15.
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string field;
  double ticks = 0;
  for (int index = 3; fields >> field; ++index) {
    if (index == 14 || index == 15) {
      ticks += std::strtod(field.c_str(), nullptr);
    }
    if (index == 15) {
      break;
    }
  }
  return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double statusMegabytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(field + ":", 0) == 0) {
      return std::strtod(line.c_str() + field.size() + 1, nullptr) / 1024.0;
    }
  }
  return 0.0;
}

bool resetPeakResidentSize() {
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
  clear.flush();
  return static_cast<bool>(clear);
}

double processCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace orvanta::bench
