#include "core/utf8.hpp"

#include <gtest/gtest.h>

#include <string>

namespace orvanta {
namespace {

const std::string kReplacement = "\xEF\xBF\xBD";

TEST(Utf8Test, ValidationRejectsMalformedSequences) {
  EXPECT_TRUE(isValidUtf8("plain ascii"));
  EXPECT_TRUE(isValidUtf8("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x9A\x80"));  // é € 🚀
  EXPECT_FALSE(isValidUtf8("\xC0\xAF"));                             // overlong "/"
  EXPECT_FALSE(isValidUtf8("\xED\xA0\x80"));                         // surrogate
  EXPECT_FALSE(isValidUtf8("\xF4\x90\x80\x80"));                     // past U+10FFFF
  EXPECT_FALSE(isValidUtf8("\xE2\x82"));                             // cut short
  EXPECT_FALSE(isValidUtf8("\x80"));                                 // stray continuation
}

TEST(Utf8Test, RepairReplacesEachMaximalSubpartOfAnIllFormedSequence) {
  const std::string r = kReplacement;
  struct Case {
    std::string in;
    std::string out;
  };
  const Case cases[] = {
      {"caf\xC3\xA9", "caf\xC3\xA9"},  // well formed: unchanged
      {"caf\xC3", "caf" + r},          // cut short at the end
      {"a\xE2\x82"
       "b",
       "a" + r + "b"},                      // a character cut short: one replacement
      {"\xF0\x9F\x9A", r},                  // four-byte form cut short
      {"\xC0\xAF", r + r},                  // overlong: neither byte can start it
      {"\xED\xA0\x80", r + r + r},          // a surrogate: three
      {"\xF4\x90\x80\x80", r + r + r + r},  // past U+10FFFF
      {"\x80\xBF", r + r},                  // stray continuations
      {"\xFF\xFE", r + r},                  // bytes that never occur
      {"x\xE2\x82\xE2\x82\xAC", "x" + r + "\xE2\x82\xAC"},  // cut short, then a whole one
  };
  for (const auto& c : cases) {
    EXPECT_EQ(repairedUtf8(c.in), c.out) << testing::PrintToString(c.in);
    EXPECT_TRUE(isValidUtf8(repairedUtf8(c.in)));
    std::string inPlace = c.in;
    EXPECT_EQ(repairUtf8(inPlace), c.in != c.out);
    EXPECT_EQ(inPlace, c.out);
  }
  EXPECT_EQ(repairedUtf8(std::string("a\0b", 3)), std::string("a\0b", 3));  // NUL is text
}

}  // namespace
}  // namespace orvanta
