#include "models/orvanta_event.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <string>

#include "models/json.hpp"
#include "records_test_platform.hpp"
#include "storage/table_builder.hpp"

namespace orvanta {
namespace {

using testing_records::RecordsTest;

class OrvantaEventTest : public RecordsTest {};

TEST_F(OrvantaEventTest, PurchaseEventWritesItsFourTypedMaps) {
  const Date when = Date::sinceReferenceDate(10.0);
  OrvantaEvent event("0a1b2c", "app-1", "purchase", 1700000000.25,
                     {{"sku", "A-1"}, {"qty", 2}, {"gift", false}, {"when", when}});
  EXPECT_TRUE(std::regex_match(
      event.uuidId, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}")));
  EXPECT_EQ(jsonText(event),
            R"({"uuidId":")" + event.uuidId +
                R"(","pushId":"0a1b2c|||app-1","eventName":"purchase","createdAt":1700000000.25,)"
                R"("additionalStringFields":{"sku":"A-1"},"additionalNumericFields":{"qty":2},)"
                R"("additionalBoolFields":{"gift":false},"additionalDateFields":{"when":10.0}})");
}

TEST_F(OrvantaEventTest, WithoutParametersTheMapsAreEmptyObjects) {
  OrvantaEvent event("t", "app-1", "open", 1.0, {});
  auto json = nlohmann::json::parse(*jsonText(event));
  for (const char* key : {"additionalStringFields", "additionalNumericFields",
                          "additionalBoolFields", "additionalDateFields"}) {
    EXPECT_EQ(json.at(key), nlohmann::json::object()) << key;
  }
}

TEST_F(OrvantaEventTest, ParametersSortIntegerBeforeBooleanAndDropFractions) {
  OrvantaEvent event("t", "app-1", "e", 0,
                     {{"flag", true},
                      {"boxedFlag", Value::boxed(true)},
                      {"whole", Value::boxed(3.0)},
                      {"fraction", 3.5},
                      {"boxedFraction", Value::boxed(3.5)},
                      {"list", ValueArray{1}},
                      {"map", ValueMap{{"a", 1}}},
                      {"nothing", nullptr}});
  EXPECT_EQ(event.additionalBoolFields, (std::map<std::string, bool>{{"flag", true}}));
  EXPECT_EQ(event.additionalNumericFields,
            (std::map<std::string, std::int64_t>{{"boxedFlag", 1}, {"whole", 3}}));
  EXPECT_TRUE(event.additionalStringFields.empty());
  EXPECT_TRUE(event.additionalDateFields.empty());

  // Reading merges the maps; a later map (string, numeric, Boolean, date) wins.
  event.setParameters({{"whole", "three"}, {"flag", Date::sinceReferenceDate(1)}});
  ValueMap merged = event.parameters();
  EXPECT_EQ(merged.size(), 3u);
  EXPECT_EQ(merged.at("whole"), Value(3));
  EXPECT_EQ(merged.at("flag"), Value(Date::sinceReferenceDate(1)));
}

TEST_F(OrvantaEventTest, EventsMadeInTheSameInstantDifferInUuid) {
  OrvantaEvent first("t", "app-1", "e", 42.0, {});
  OrvantaEvent second("t", "app-1", "e", 42.0, {});
  EXPECT_NE(first.uuidId, second.uuidId);
}

TEST_F(OrvantaEventTest, DecodingKeepsTheStoredIdentifierAndNeedsAllEightKeys) {
  OrvantaEvent event("t", "app-1", "e", 1700000000.5,
                     {{"s", "x"}, {"n", -3}, {"b", true}, {"d", Date::sinceReferenceDate(-1.5)}});
  const std::string text = *jsonText(event);
  auto decoded = OrvantaEvent::decode(text);
  ASSERT_TRUE(decoded.isSuccess()) << decoded.error().localizedDescription();
  EXPECT_EQ(decoded.value(), event);

  const auto valid = nlohmann::json::parse(text);
  for (const auto& [key, value] : valid.items()) {
    auto without = valid;
    without.erase(key);
    EXPECT_FALSE(OrvantaEvent::decode(without.dump()).isSuccess()) << key;
    auto wrongType = valid;
    wrongType[key] = nlohmann::json::array();
    EXPECT_FALSE(OrvantaEvent::decode(wrongType.dump()).isSuccess()) << key;
  }
  auto stringDate = valid;
  stringDate["additionalDateFields"]["d"] = "2001-01-01";
  EXPECT_FALSE(OrvantaEvent::decode(stringDate.dump()).isSuccess());
}

TEST(OrvantaEventTableTest, DeclaresTheEventTable) {
  TableBuilder builder(OrvantaEvent::kTableName);
  OrvantaEvent::create(builder);
  EXPECT_EQ(builder.createStatement(),
            R"(CREATE TABLE "orvantaevent" ("uuidId" TEXT PRIMARY KEY NOT NULL, )"
            R"("pushId" TEXT NOT NULL, "eventName" TEXT NOT NULL, "createdAt" REAL NOT NULL, )"
            R"("additionalStringFields" BLOB NOT NULL, "additionalNumericFields" BLOB NOT NULL, )"
            R"("additionalBoolFields" BLOB NOT NULL, "additionalDateFields" BLOB NOT NULL))");
  EXPECT_EQ(quoteIdentifier(R"(a"b)"), R"("a""b")");
}

}  // namespace
}  // namespace orvanta
