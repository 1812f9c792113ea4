// Replays the fuzz corpora and every input that once made a fuzz target fail, in the ordinary
// test run, so a fixed failure stays fixed in builds without the fuzz targets.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/record_fuzzing.hpp"
#include "fuzz/web_push_fuzzing.hpp"

namespace orvanta {
namespace {

const std::filesystem::path kFuzzFolder =
    std::filesystem::path(__FILE__).parent_path().parent_path().parent_path().parent_path() /
    "fuzz";

std::size_t replay(const std::string& target, void (*run)(const std::uint8_t*, std::size_t)) {
  std::size_t count = 0;
  for (const char* kind : {"corpus", "regressions"}) {
    const auto folder = kFuzzFolder / kind / target;
    if (!std::filesystem::is_directory(folder)) {
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      std::ifstream file(entry.path(), std::ios::binary);
      std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                                      std::istreambuf_iterator<char>());
      SCOPED_TRACE(entry.path().string());
      run(bytes.data(), bytes.size());
      ++count;
    }
  }
  return count;
}

TEST(FuzzInputsTest, RecordDecodersSurviveEveryKeptInput) {
  EXPECT_GT(replay("fuzz_payload_json", fuzzing::payloadFromJson), 0u);
  EXPECT_GT(replay("fuzz_payload_userinfo", fuzzing::payloadFromUserInfo), 0u);
  EXPECT_GT(replay("fuzz_device_record", fuzzing::deviceRecord), 0u);
  EXPECT_GT(replay("fuzz_push_message", fuzzing::pushMessage), 0u);
  EXPECT_GT(replay("fuzz_event_row", fuzzing::eventRow), 0u);
  EXPECT_GT(replay("fuzz_web_push_message", fuzzing::webPushMessage), 0u);
}

}  // namespace
}  // namespace orvanta
