#include "models/orvanta_notification_payload.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "models/url.hpp"

namespace orvanta {
namespace {

using ActionType = OrvantaNotificationAction::ActionType;

struct Shape {
  const char* name;
  const char* json;
  bool accepted;
};

// Every shape that decides between a payload and none.
const Shape kShapes[] = {
    {"bare dictionary (last-push answer)", R"({"id":"p-1"})", true},
    {"fields under data", R"({"aps":{},"data":{"id":"p-1"}})", true},
    {"data not an object falls back to the top level", R"({"data":"x","id":"p-1"})", true},
    {"data not an object and no id at the top", R"({"data":"x"})", false},
    {"data null falls back to the top level", R"({"data":null,"id":"p-1"})", true},
    {"id missing", R"({"data":{"title":"t"}})", false},
    {"id null", R"({"data":{"id":null}})", false},
    {"id a number", R"({"data":{"id":17}})", false},
    {"optional fields null", R"({"data":{"id":"p","title":null,"image":null,"action":null}})",
     true},
    {"title a number", R"({"data":{"id":"p","title":1}})", false},
    {"registration_id an object", R"({"data":{"id":"p","registration_id":{}}})", false},
    {"image empty", R"({"data":{"id":"p","image":""}})", false},
    {"image with a space", R"({"data":{"id":"p","image":"https://a b/c.png"}})", false},
    {"image relative", R"({"data":{"id":"p","image":"/c.png"}})", true},
    {"action a string", R"({"data":{"id":"p","action":"open"}})", false},
    {"action type lower case", R"({"data":{"id":"p","action":{"type":"browser"}}})", false},
    {"action type unknown nested",
     R"({"data":{"id":"p","action":{"text":"t","action":{"type":"SHARE"}}}})", false},
    {"action url empty", R"({"data":{"id":"p","action":{"id":"a","url":""}}})", false},
    {"action url not a URI", R"({"data":{"id":"p","action":{"id":"a","url":"a b"}}})", false},
    {"action url without authority", R"({"data":{"id":"p","action":{"url":"tel:+15551234567"}}})",
     true},
    {"button url a relative reference",
     R"({"data":{"id":"p","action_buttons":{"items":[{"text":"Go","action":{"url":"item/7"}}]}}})",
     true},
    {"action text wrong type in nested form",
     R"({"data":{"id":"p","action":{"text":5,"action":{"id":"a"}}}})", false},
    {"action_buttons empty object", R"({"data":{"id":"p","action_buttons":{}}})", true},
    {"action_buttons not an object", R"({"data":{"id":"p","action_buttons":[1]}})", true},
    {"action_buttons items a number", R"({"data":{"id":"p","action_buttons":{"items":5}}})", false},
    {"action_buttons category a number",
     R"({"data":{"id":"p","action_buttons":{"category_id":1}}})", false},
    {"action_buttons item not an object", R"({"data":{"id":"p","action_buttons":{"items":["x"]}}})",
     false},
    {"top level an array", R"([{"id":"p"}])", false},
    {"not JSON", R"({"id":"p")", false},
    {"invalid UTF-8", "{\"id\":\"\xC3\x28\"}", false},
    {"number beyond a double", R"({"id":"p","title":1e999})", false},
};

TEST(OrvantaNotificationPayloadTest, AcceptsExactlyTheDocumentedShapes) {
  for (const Shape& shape : kShapes) {
    auto decoded = OrvantaNotificationPayload::decode(shape.json);
    EXPECT_EQ(decoded.isSuccess(), shape.accepted) << shape.name;
    if (!decoded.isSuccess()) {
      EXPECT_EQ(decoded.error().domain(), Error::Domain::decoding) << shape.name;
    }
  }
}

TEST(OrvantaNotificationPayloadTest, ReadsEveryFieldOfAFullPush) {
  auto decoded = OrvantaNotificationPayload::decode(R"({
    "aps": {"alert": "ignored"},
    "data": {
      "id": "p-17", "registration_id": "r-1", "title": "Sale", "body": "Now on",
      "image": "https://cdn.example.com/a.png",
      "action": {"text": "Open", "action": {"id": "a1", "url": "myapp://open/item?id=1",
                                            "type": "DEEPLINK"}},
      "action_buttons": {"category_id": "two_buttons", "items": [
        {"text": "Yes", "action": {"id": "b1", "url": "https://example.com", "type": "BROWSER"}},
        {"text": "ignored in the flat form", "id": "b2", "type": "NONE"}]}}})");
  ASSERT_TRUE(decoded.isSuccess()) << decoded.error().localizedDescription();
  const auto& p = decoded.value();
  EXPECT_EQ(p.id, "p-17");
  EXPECT_EQ(p.registrationId, "r-1");
  EXPECT_EQ(p.title, "Sale");
  EXPECT_EQ(p.body, "Now on");
  ASSERT_TRUE(p.image);
  EXPECT_EQ(p.image->string(), "https://cdn.example.com/a.png");
  ASSERT_TRUE(p.action);
  EXPECT_EQ(p.action->id, "a1");
  EXPECT_EQ(p.action->text, "Open");
  EXPECT_EQ(p.action->type, ActionType::deeplink);
  EXPECT_EQ(p.action->url->string(), "myapp://open/item?id=1");
  EXPECT_EQ(p.action->url->scheme(), "myapp");
  EXPECT_EQ(p.category, "two_buttons");
  ASSERT_TRUE(p.actionButtons);
  ASSERT_EQ(p.actionButtons->size(), 2u);
  EXPECT_EQ((*p.actionButtons)[0].type, ActionType::browser);
  EXPECT_EQ((*p.actionButtons)[1].id, "b2");
  EXPECT_EQ((*p.actionButtons)[1].type, ActionType::none);
  EXPECT_FALSE((*p.actionButtons)[1].text);  // the flat form has no title
  EXPECT_TRUE(p.userInfo.empty());
}

TEST(OrvantaNotificationPayloadTest, OnlyIdGivesAnOtherwiseEmptyPayload) {
  auto decoded = OrvantaNotificationPayload::decode(R"({"data":{"id":"p"}})");
  ASSERT_TRUE(decoded.isSuccess());
  OrvantaNotificationPayload expected;
  expected.id = "p";
  EXPECT_EQ(decoded.value(), expected);
}

TEST(OrvantaNotificationPayloadTest, ActionTypesAreTheFourCaseSensitiveRawValues) {
  for (auto type :
       {ActionType::browser, ActionType::deeplink, ActionType::webview, ActionType::none}) {
    EXPECT_EQ(OrvantaNotificationAction::actionType(OrvantaNotificationAction::rawValue(type)),
              type);
  }
  EXPECT_EQ(OrvantaNotificationAction::rawValue(ActionType::webview), "WEBVIEW");
  EXPECT_FALSE(OrvantaNotificationAction::actionType("Browser"));
  EXPECT_FALSE(OrvantaNotificationAction::actionType(""));
}

TEST(OrvantaNotificationPayloadTest, FromUserInfoKeepsTheDictionaryItWasGiven) {
  ValueMap userInfo{{"aps", ValueMap{{"badge", 1}}},
                    {"data", ValueMap{{"id", "p-1"}, {"title", "Hi"}}}};
  auto payload = OrvantaNotificationPayload::fromUserInfo(userInfo);
  ASSERT_TRUE(payload);
  EXPECT_EQ(payload->id, "p-1");
  EXPECT_EQ(payload->title, "Hi");
  EXPECT_EQ(payload->userInfo, userInfo);

  // The flat form works from a dictionary as well.
  auto flat = OrvantaNotificationPayload::fromUserInfo({{"id", "p-2"}});
  ASSERT_TRUE(flat);
  EXPECT_EQ(flat->id, "p-2");
}

TEST(OrvantaNotificationPayloadTest, FromUserInfoGivesNoneForWhatJsonCannotCarry) {
  ValueMap data{{"id", "p-1"}};
  auto with = [&](const char* key, Value value) {
    ValueMap userInfo{{"data", data}};
    userInfo.emplace(key, std::move(value));
    return OrvantaNotificationPayload::fromUserInfo(userInfo);
  };
  EXPECT_TRUE(with("extra", "fine"));
  EXPECT_FALSE(with("sent", Date::sinceReferenceDate(0)));
  EXPECT_FALSE(with("ratio", Value::boxed(std::nan(""))));
  EXPECT_FALSE(with("name", std::string("\xFF")));
  EXPECT_FALSE(OrvantaNotificationPayload::fromUserInfo({{"data", "not a dictionary"}}));
  EXPECT_FALSE(OrvantaNotificationPayload::fromUserInfo({}));
}

TEST(OrvantaNotificationPayloadTest, HostileInputEndsInADecodingError) {
  std::string deep(100000, '[');
  deep += std::string(100000, ']');
  EXPECT_FALSE(OrvantaNotificationPayload::decode(deep).isSuccess());

  std::string deepObjects;
  for (int i = 0; i < 100000; ++i) {
    deepObjects += R"({"data":)";
  }
  EXPECT_FALSE(OrvantaNotificationPayload::decode(deepObjects).isSuccess());

  // Brackets inside strings do not count as nesting.
  std::string bracketsInText = R"({"id":"p","title":")" + std::string(5000, '[') + R"("})";
  EXPECT_TRUE(OrvantaNotificationPayload::decode(bracketsInText).isSuccess());

  std::string huge = R"({"id":")" + std::string(8 << 20, 'x') + R"("})";
  auto decoded = OrvantaNotificationPayload::decode(huge);
  ASSERT_TRUE(decoded.isSuccess());
  EXPECT_EQ(decoded.value().id.size(), 8u << 20);
}

TEST(UrlTest, AcceptsEveryUriReferenceAndRejectsWhatTheSyntaxForbids) {
  for (const char* good : {"https://example.com/a?b=c#d", "myapp://open", "file:///tmp/x",
                           "http://[::1]:8080/", "myapp://open/item?id=1", "tel:+15551234567",
                           "mailto:a@b.c", "sms:123", "myapp:open/item/7", "/relative", "item/7",
                           "www.example.com", "?q=1", "#top", "http://", "urn:isbn:0451450523"}) {
    EXPECT_TRUE(Url::parse(good)) << good;
  }
  for (const char* bad : {"", "https://exa mple.com", "https://a.com/%zz", "http://[::1/",
                          "1tel:123", "a:b:c d", "https://a.com/\xC3\xA9", "tel:+1 555"}) {
    EXPECT_FALSE(Url::parse(bad)) << bad;
  }
  EXPECT_FALSE(Url::parse(std::string("https://a.com/\0x", 16)));
  EXPECT_EQ(Url::parse("HTTPS://example.com")->scheme(), "https");
  EXPECT_EQ(Url::parse("TEL:+1555")->scheme(), "tel");
  EXPECT_EQ(Url::parse("item/7")->scheme(), "");
  EXPECT_EQ(Url::parse("myapp://open")->string(), "myapp://open");  // kept as given
}

}  // namespace
}  // namespace orvanta
