#include "models/orvanta_event.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "models/json.hpp"
#include "records_test_platform.hpp"
#include "storage/database.hpp"
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

TEST_F(OrvantaEventTest, HostTextThatIsNotUtf8IsRepairedAsItEnters) {
  const std::string r = "\xEF\xBF\xBD";
  OrvantaEvent event("tok\xFF", "app\xC3", "caf\xC3", 1.0,
                     {{"k\xE2\x82", "v\xC0\xAF"},
                      {"n", 1},
                      {"not a date", Date::sinceReferenceDate(std::nan(""))},
                      {"forever", Date::sinceReferenceDate(INFINITY)}});
  EXPECT_EQ(event.name, "caf" + r);
  EXPECT_EQ(event.pushId, "tok" + r + "|||app" + r);
  EXPECT_EQ(event.additionalStringFields,
            (std::map<std::string, std::string>{{"k" + r, "v" + r + r}}));
  EXPECT_TRUE(event.additionalDateFields.empty());  // JSON cannot carry them: dropped
  // So every event can be written: stored, and posted with its body.
  EXPECT_TRUE(jsonText(event));
  std::string body;
  EXPECT_NO_THROW(event.writeBody(body));
  EXPECT_NO_THROW(event.toRow());
}

TEST_F(OrvantaEventTest, BoxedIntegersBeyondTwoToTheFiftyThirdStayExact) {
  const std::int64_t big = (std::int64_t{1} << 53) + 1;  // a double would make it 2^53
  OrvantaEvent event("t", "app", "e", 1.0,
                     {{"big", Value::boxed(big)},
                      {"max", Value::boxed(std::numeric_limits<std::int64_t>::max())},
                      {"beyond", Value::boxed(std::numeric_limits<std::uint64_t>::max())}});
  EXPECT_EQ(event.additionalNumericFields,
            (std::map<std::string, std::int64_t>{
                {"big", big}, {"max", std::numeric_limits<std::int64_t>::max()}}));
  EXPECT_EQ(detail::valueToJson(Value::boxed(big))->dump(), "9007199254740993");
}

/// Events whose body has every escape and number form the writer must get right.
std::vector<OrvantaEvent> trickyEvents() {
  std::vector<OrvantaEvent> events;
  events.emplace_back("t", "app", "plain", 1700000000.0, ValueMap{});
  events.emplace_back("a1b2\"\\", "app/\x7f", "quote \" back \\ slash \b\f\n\r\t \x01\x1f é 🚀",
                      1700000000.123456,
                      ValueMap{{"s", "line\nbreak"}, {"\x02key", "\t"}, {"é", "ü"}});
  events.emplace_back("t", "app", "numbers", 0.1,
                      ValueMap{{"min", std::numeric_limits<std::int64_t>::min()},
                               {"max", std::numeric_limits<std::int64_t>::max()},
                               {"zero", 0},
                               {"yes", true},
                               {"no", false},
                               {"tiny", Date::sinceReferenceDate(5e-324)},
                               {"huge", Date::sinceReferenceDate(1.7976931348623157e308)},
                               {"big", Date::sinceReferenceDate(1e21)},
                               {"small", Date::sinceReferenceDate(1e-7)},
                               {"negative zero", Date::sinceReferenceDate(-0.0)},
                               {"third", Date::sinceReferenceDate(1.0 / 3.0)},
                               {"whole", Date::sinceReferenceDate(-722390400.0)}});
  events.emplace_back("t", "app", "", -1.5e-10, ValueMap{{"", ""}});
  return events;
}

TEST(OrvantaEventWritingTest, TheBodyIsTheJsonLibrarysPrettyFormByteForByte) {
  for (const auto& event : trickyEvents()) {
    nlohmann::ordered_json expected = event.toJson();
    expected.erase("uuidId");
    std::string body;
    event.writeBody(body);
    EXPECT_EQ(body, expected.dump(2)) << event.name;
  }
}

TEST(OrvantaEventWritingTest, RowsAreWrittenAsTheJsonFormSpreadsThemAndReadBackDirectly) {
  for (const auto& event : trickyEvents()) {
    const detail::RowValues row = event.toRow();
    const nlohmann::ordered_json json = event.toJson();
    ASSERT_EQ(row.size(), 8u);
    EXPECT_EQ(row.text(0), event.uuidId);
    EXPECT_EQ(row.text(1), event.pushId);
    EXPECT_EQ(row.text(2), event.name);
    EXPECT_EQ(row.real(3), event.createdAt);
    std::size_t column = 4;
    for (const char* key : {"additionalStringFields", "additionalNumericFields",
                            "additionalBoolFields", "additionalDateFields"}) {
      EXPECT_EQ(row.text(column++), json[key].dump()) << key;
    }
    // Read back directly, or (text with escapes) through the JSON form: the same event.
    const bool escapes = event.name.starts_with("quote");
    EXPECT_EQ(OrvantaEvent::canReadColumns(row), !escapes) << event.name;
    EXPECT_EQ(OrvantaEvent::readColumns(row).has_value(), !escapes) << event.name;
    EXPECT_EQ(StoredRecord<OrvantaEvent>(1, row).record(), event) << event.name;
  }
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
