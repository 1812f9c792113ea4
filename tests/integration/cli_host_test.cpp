// The command-line example host, run as a program against the sandbox: it waits for its
// registration through the observer and does not exit before its events are delivered.

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>

#include "testing/sandbox_test.hpp"

namespace orvanta {
namespace {

class CliHostTest : public testing::SandboxTest {
 protected:
  /// Runs the host to its end; its exit status, and what it printed.
  int run(const std::string& arguments, std::string& output) {
#ifndef ORVANTA_CLI_HOST
    (void)arguments;
    (void)output;
    return -1;
#else
    std::string command = ORVANTA_CLI_HOST;
    for (const std::string& part :
         {std::string(" --service "), sandbox().baseUrl(), std::string(" --bundle "),
          testPlatform().bundleDirectory(), std::string(" --data "),
          testPlatform().dataDirectory() + "/cli ", arguments}) {
      command.append(part);
    }
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) {
      return -1;
    }
    std::array<char, 512> chunk{};
    while (std::fgets(chunk.data(), chunk.size(), pipe) != nullptr) {
      output += chunk.data();
    }
    int status = ::pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
  }
};

TEST_F(CliHostTest, ExitsOnlyOnceEveryEventWasDeliveredAndSaysHowRegistrationWent) {
#ifndef ORVANTA_CLI_HOST
  GTEST_SKIP() << "the example hosts are not built (-DORVANTA_BUILD_EXAMPLES=OFF)";
#endif
  // Slow answers and a refused first attempt of every event: only waiting delivers them all.
  sandbox::Fault slow;
  slow.delay = std::chrono::milliseconds(100);
  sandbox().setFault(sandbox::Endpoint::event, slow);
  std::string output;
  EXPECT_EQ(run("--events 12", output), 0) << output;
  EXPECT_NE(output.find("token c11e0057 handed to the kit"), std::string::npos) << output;
  EXPECT_NE(output.find("registered with token c11e0057"), std::string::npos) << output;
  EXPECT_NE(output.find("12 events tracked, 0 left undelivered"), std::string::npos) << output;
  EXPECT_EQ(sandbox().eventCount(), 12u);

  // The service refusing the registration is heard too, and the host says it failed.
  sandbox().clearFaults();
  sandbox::Fault refused;
  refused.status = 500;
  sandbox().setFault(sandbox::Endpoint::deviceUpdate, refused);
  sandbox().setFault(sandbox::Endpoint::devices, refused);
  output.clear();
  EXPECT_EQ(run("--events 0", output), 1) << output;
  EXPECT_NE(output.find("registration failed: Internal Server Error"), std::string::npos) << output;
}

}  // namespace
}  // namespace orvanta
