#include "core/uuid.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

namespace orvanta {
namespace {

TEST(UuidTest, VersionFourUpperCaseAndUniqueAcrossAFork) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    std::string uuid = makeUuidString();
    ASSERT_TRUE(std::regex_match(uuid, form)) << uuid;
    seen.insert(std::move(uuid));
  }
  EXPECT_EQ(seen.size(), 1000u);

  // A forked child draws its own identifiers, not the ones its parent draws next: no generator
  // state is copied into it.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const std::string uuid = makeUuidString();
    const bool written = write(ends[1], uuid.data(), uuid.size()) == 36;
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  const std::string parent = makeUuidString();
  char buffer[36];
  std::size_t got = 0;
  while (got < sizeof buffer) {
    const ssize_t n = read(ends[0], buffer + got, sizeof buffer - got);
    if (n <= 0) {
      break;
    }
    got += static_cast<std::size_t>(n);
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_EQ(got, sizeof buffer);
  EXPECT_NE(std::string(buffer, got), parent);
}

}  // namespace
}  // namespace orvanta
