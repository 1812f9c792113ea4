#include "orvanta/value.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>

#include "models/value_json.hpp"

namespace orvanta {
namespace {

TEST(ValueTest, LiteralsPickTheKindAHostMeans) {
  const auto now = std::chrono::system_clock::now();
  const char* pointer = "ptr";
  ValueMap p{{"sku", "A-1"},
             {"qty", 2},
             {"gift", false},
             {"price", 2.5},
             {"ptr", pointer},
             {"big", 7LL},
             {"small", short{3}},
             {"u", 5U},
             {"when", now},
             {"none", nullptr},
             {"list", ValueArray{1, "a"}}};

  EXPECT_EQ(p["sku"].kind(), Value::Kind::string);
  EXPECT_EQ(p["ptr"].kind(), Value::Kind::string);   // never a Boolean
  EXPECT_EQ(p["qty"].kind(), Value::Kind::integer);  // never a Boolean or a double
  EXPECT_EQ(p["big"].kind(), Value::Kind::integer);
  EXPECT_EQ(p["small"].kind(), Value::Kind::integer);
  EXPECT_EQ(p["u"].kind(), Value::Kind::integer);
  EXPECT_EQ(p["gift"].kind(), Value::Kind::boolean);
  EXPECT_EQ(p["price"].kind(), Value::Kind::floating);
  EXPECT_EQ(p["when"].kind(), Value::Kind::date);
  EXPECT_EQ(p["none"].kind(), Value::Kind::null);
  EXPECT_EQ(p["list"].kind(), Value::Kind::array);
  EXPECT_EQ(p["qty"].integer(), 2);
  EXPECT_EQ(p["gift"].boolean(), false);
  EXPECT_EQ(*p["sku"].string(), "A-1");

  // Unsigned values past the signed range cannot be integers.
  Value huge(std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(huge.kind(), Value::Kind::floating);
}

TEST(ValueTest, ExactIntegerAcceptsIntegersAndWholeBoxedNumbersOnly) {
  EXPECT_EQ(Value(3).exactInteger(), 3);
  EXPECT_EQ(Value::boxed(3.0).exactInteger(), 3);
  EXPECT_EQ(Value::boxed(true).exactInteger(), 1);
  EXPECT_EQ(Value::boxed(-9223372036854775808.0).exactInteger(),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_FALSE(Value::boxed(9223372036854775808.0).exactInteger());
  EXPECT_FALSE(Value::boxed(3.5).exactInteger());
  EXPECT_FALSE(Value::boxed(std::nan("")).exactInteger());
  EXPECT_FALSE(Value(3.0).exactInteger());  // a native double is not an integer
  EXPECT_FALSE(Value(true).exactInteger());

  // A boxed 64-bit integer keeps every bit, where a double would round it.
  const std::int64_t odd = (std::int64_t{1} << 53) + 1;
  EXPECT_EQ(Value::boxed(odd).exactInteger(), odd);
  EXPECT_EQ(Value::boxed(odd).boxedNumber(), 9007199254740992.0);
  EXPECT_EQ(Value::boxed(std::numeric_limits<std::int64_t>::max()).exactInteger(),
            std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(Value::boxed(-7).exactInteger(), -7);
  EXPECT_FALSE(Value::boxed(std::numeric_limits<std::uint64_t>::max()).exactInteger());
  EXPECT_NE(Value::boxed(odd), Value::boxed(static_cast<double>(odd)));
}

TEST(ValueTest, DatesCountFromTheReferenceDateAndConvertFromTheSystemClock) {
  const auto tenPast =
      std::chrono::sys_days{std::chrono::January / 1 / 2001} + std::chrono::seconds(10);
  Date date(tenPast);
  EXPECT_DOUBLE_EQ(date.timeIntervalSinceReferenceDate(), 10.0);
  EXPECT_DOUBLE_EQ(date.timeIntervalSince1970(), 978307210.0);
  EXPECT_EQ(date.timePoint(), tenPast);
  EXPECT_EQ(Date::since1970(978307210.0), date);
  EXPECT_EQ(Date::sinceReferenceDate(1e300).timePoint(),
            std::chrono::system_clock::time_point::max());
}

TEST(ValueTest, EqualityComparesKindAndContent) {
  EXPECT_EQ(Value(ValueMap{{"a", 1}}), Value(ValueMap{{"a", 1}}));
  EXPECT_NE(Value(1), Value(true));
  EXPECT_NE(Value(1), Value(1.0));
  EXPECT_NE(Value(1), Value::boxed(1.0));
  EXPECT_NE(Value("1"), Value(1));
}

TEST(ValueTest, ToJsonRefusesWhatJsonCannotCarry) {
  auto json = detail::valueToJson(Value(ValueMap{{"s", "x"},
                                                 {"i", -4},
                                                 {"b", true},
                                                 {"f", 0.5},
                                                 {"n", nullptr},
                                                 {"box", Value::boxed(2.0)},
                                                 {"frac", Value::boxed(2.5)},
                                                 {"a", ValueArray{1, "two"}}}));
  ASSERT_TRUE(json);
  EXPECT_EQ(json->dump(),
            R"({"a":[1,"two"],"b":true,"box":2,"f":0.5,"frac":2.5,"i":-4,"n":null,"s":"x"})");

  const Date date = Date::sinceReferenceDate(1.0);
  EXPECT_FALSE(detail::valueToJson(Value(ValueMap{{"d", date}})));
  EXPECT_FALSE(detail::valueToJson(Value(ValueArray{std::nan("")})));
  EXPECT_FALSE(detail::valueToJson(Value::boxed(INFINITY)));
  EXPECT_FALSE(detail::valueToJson(Value(std::string("\xC3\x28"))));
  EXPECT_FALSE(detail::valueToJson(Value(ValueMap{{std::string("\xFF"), 1}})));

  Value deep = 1;
  for (int i = 0; i < 600; ++i) {
    deep = Value(ValueArray{deep});
  }
  EXPECT_FALSE(detail::valueToJson(deep));
}

TEST(ValueTest, FromJsonKeepsIntegersApartFromNumbers) {
  auto parsed = nlohmann::json::parse(R"({"i":2,"f":2.0,"u":18446744073709551615,"a":[true]})");
  Value value = detail::valueFromJson(parsed);
  const ValueMap& map = *value.map();
  EXPECT_EQ(map.at("i"), Value(2));
  EXPECT_EQ(map.at("f"), Value(2.0));
  EXPECT_EQ(map.at("u").kind(), Value::Kind::floating);
  EXPECT_EQ(map.at("a"), Value(ValueArray{true}));
}

}  // namespace
}  // namespace orvanta
