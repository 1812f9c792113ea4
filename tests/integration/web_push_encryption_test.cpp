// Encrypted pushes: the kit's decryption (platform/linux/web_push_crypto.*) against RFC 8291's
// published example and against the sandbox's own encryption, every alteration of a message
// refused, the header's limits, the padding, the keys kept as secrets, and the push token's
// layout as the sandbox reads it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "linux/web_push_crypto.hpp"
#include "orvanta_sandbox/web_push.hpp"

namespace orvanta {
namespace {

using linux_platform::base64UrlDecode;
using linux_platform::base64UrlEncode;
using linux_platform::WebPushKeys;
using ::testing::HasSubstr;
namespace webpush = sandbox::webpush;

std::string b64(const char* text) {
  return base64UrlDecode(text).value();
}

// RFC 8291, Appendix A.
struct RfcExample {
  std::string plaintext = "When I grow up, I want to be a watermelon";
  std::string senderPrivate = b64("yfWPiYE-n46HLnH0KqZOF1fJJU3MYrct3AELtAQ-oRw");
  std::string receiverPublic = b64(
      "BCVxsr7N_eNgVRqvHtD0zTZsEc6-VV-JvLexhqUzORcxaOzi6-AYWXvTBHm4bjyPjs7Vd8pZGH6SRpkNtoIAiw4");
  std::string receiverPrivate = b64("q1dXpw3UpT5VOmu_cf_v6ih07Aems3njxI-JWgLcM94");
  std::string salt = b64("DGv6ra1nlYgDCS1FRnbzlw");
  std::string authSecret = b64("BTBZMqHH6r4Tts7J_aSIgg");
  std::string message = b64(
      "DGv6ra1nlYgDCS1FRnbzlwAAEABBBP4z9KsN6nGRTbVYI_c7VJSPQTBtkgcy27mlmlMoZIIgDll6e3vCYLocInmYWAmS"
      "6TlzAC8wEqKK6PBru3jl7A_yl95bQpu6cVPTpK4Mqgkf1CXztLVBSt2Ks3oZwbuwXPXLWyouBWLVWGNWQexSgSxsj_"
      "Qulcy4a-fN");

  WebPushKeys keys() const { return WebPushKeys::fromSecrets(receiverPrivate, authSecret).value(); }
};

TEST(WebPushEncryptionTest, TheRfcExampleDecryptsToItsTextAndTheSandboxEncryptsItByteForByte) {
  const RfcExample rfc;
  const auto keys = rfc.keys();
  EXPECT_EQ(keys.publicKey(), rfc.receiverPublic);  // derived from the stored scalar
  const auto decrypted = keys.decrypt(rfc.message);
  EXPECT_EQ(decrypted.plaintext, rfc.plaintext) << decrypted.error;
  // The sandbox's encryption, given the example's sender key and salt, writes the same bytes
  // (its record size is 4096, as the example's).
  EXPECT_EQ(webpush::encryptWith(rfc.plaintext, rfc.receiverPublic, rfc.authSecret,
                                 rfc.senderPrivate, rfc.salt),
            rfc.message);
}

TEST(WebPushEncryptionTest, OneFlippedBitAnywhereOrOtherKeysMakeTheMessageUnreadable) {
  const RfcExample rfc;
  const auto keys = rfc.keys();
  struct Place {
    const char* name;
    std::size_t offset;
  };
  // Header: salt 0-15, record size 16-19, key id length 20, sender key 21-85; then the record,
  // its tag in the last 16 bytes.
  const std::size_t tag = rfc.message.size() - 16;
  for (const Place& place :
       {Place{"salt", 3}, Place{"salt", 15}, Place{"sender key", 40}, Place{"sender key", 85},
        Place{"ciphertext", 86}, Place{"ciphertext", tag - 1}, Place{"tag", tag},
        Place{"tag", tag + 15}}) {
    for (const unsigned char bit : {0x01, 0x80}) {
      SCOPED_TRACE(std::string(place.name) + " byte " + std::to_string(place.offset) + " bit " +
                   std::to_string(bit));
      std::string altered = rfc.message;
      altered[place.offset] = static_cast<char>(altered[place.offset] ^ bit);
      const auto result = keys.decrypt(altered);
      EXPECT_FALSE(result.plaintext);
      EXPECT_FALSE(result.error.empty());
    }
  }
  // The right message to another installation's keys, or with another secret.
  const auto other = WebPushKeys::generate().value();
  EXPECT_THAT(other.decrypt(rfc.message).error, HasSubstr("does not authenticate"));
  const auto otherSecret = WebPushKeys::fromSecrets(rfc.receiverPrivate, std::string(16, 'x'));
  EXPECT_THAT(otherSecret->decrypt(rfc.message).error, HasSubstr("does not authenticate"));
}

TEST(WebPushEncryptionTest, TheHeaderAndThePaddingAreChecked) {
  const RfcExample rfc;
  const auto keys = rfc.keys();
  const auto withRecord = [&](const std::string& record) {
    return webpush::encryptRecord(record, rfc.receiverPublic, rfc.authSecret, rfc.senderPrivate,
                                  rfc.salt)
        .value();
  };
  const auto withRecordSize = [&](std::uint32_t size) {
    std::string message = rfc.message;
    for (int i = 0; i < 4; ++i) {
      message[16 + i] = static_cast<char>((size >> (24 - 8 * i)) & 0xFF);
    }
    return message;
  };
  std::string noKeyId = rfc.message.substr(0, 20) + '\0' + rfc.message.substr(86);
  std::string shortKeyId = rfc.message;
  shortKeyId[20] = 64;
  std::string compressed = rfc.message;
  compressed[21] = 0x02;
  const std::string record = rfc.message.substr(86);
  const std::vector<std::pair<std::string, std::string>> refused = {
      {"", "at least 21 bytes; this one has 0"},
      {rfc.message.substr(0, 20), "at least 21 bytes"},
      {rfc.message.substr(0, 60), "ends inside its header"},
      {withRecordSize(17), "record size 17 is below 18"},
      {withRecordSize(0), "record size 0 is below 18"},
      // The example's record is 58 bytes: in records of 57, it would be two.
      {withRecordSize(57), "more than one record (58 bytes in records of 57)"},
      {noKeyId, "a key id of 0 bytes"},
      {shortKeyId, "a key id of 64 bytes"},
      {compressed, "not an uncompressed P-256 point"},
      {rfc.message.substr(0, 86) + record.substr(0, 16), "a record of 16 bytes"},
      {withRecord(std::string("text\x01", 5)), "the padding delimiter is 0x01"},
      {withRecord("text"), "the padding delimiter is 0x74"},
      {withRecord(std::string(8, '\0')), "no padding delimiter"},
  };
  for (const auto& [message, why] : refused) {
    SCOPED_TRACE(why);
    const auto result = keys.decrypt(message);
    EXPECT_FALSE(result.plaintext);
    EXPECT_THAT(result.error, HasSubstr(why));
  }
  // A record exactly the record size, and padding after the delimiter, are fine.
  EXPECT_EQ(keys.decrypt(withRecordSize(58)).plaintext, rfc.plaintext);
  EXPECT_EQ(keys.decrypt(withRecord(std::string("{}\x02\0\0\0", 6))).plaintext, "{}");
  // A sender key that is no point of the curve.
  std::string offCurve = rfc.message;
  offCurve[84] = static_cast<char>(offCurve[84] ^ 0x01);
  EXPECT_THAT(keys.decrypt(offCurve).error, HasSubstr("not a point of P-256"));
}

TEST(WebPushEncryptionTest, KeysComeBackFromTheirSecretsAndTheTokenCarriesThemToTheSandbox) {
  const auto keys = WebPushKeys::generate().value();
  ASSERT_EQ(keys.publicKey().size(), 65U);
  EXPECT_EQ(keys.publicKey()[0], '\x04');
  const auto again = WebPushKeys::fromSecrets(keys.privateKey(), keys.authSecret()).value();
  EXPECT_EQ(again.publicKey(), keys.publicKey());
  const auto message =
      webpush::encrypt(R"({"data":{"id":"p-1"}})", keys.publicKey(), keys.authSecret());
  ASSERT_TRUE(message);
  EXPECT_EQ(again.decrypt(*message).plaintext, R"({"data":{"id":"p-1"}})");

  // Secrets that are none: the wrong length, zero, the curve's order.
  const std::string order = b64("_____wAAAAD__________7zm-q2nF56E87nKwvxjJVE");
  for (const auto& [scalar, secret] : std::vector<std::pair<std::string, std::string>>{
           {std::string(31, '\x01'), std::string(16, 's')},
           {std::string(32, '\x01'), std::string(15, 's')},
           {std::string(32, '\0'), std::string(16, 's')},
           {order, std::string(16, 's')}}) {
    EXPECT_FALSE(WebPushKeys::fromSecrets(scalar, secret));
  }

  // Base64 as web push writes it: no padding, URL-safe letters, one text per byte string.
  const std::string bytes("\xfb\xff\x00\x01\x02", 5);
  EXPECT_EQ(base64UrlEncode(bytes), "-_8AAQI");
  EXPECT_EQ(base64UrlDecode("-_8AAQI"), bytes);
  EXPECT_EQ(base64UrlDecode("-_8AAQI="), bytes);
  for (const char* bad : {"-_8AAQ+", "a", "ab*c", "-_8AAQJ"}) {
    EXPECT_FALSE(base64UrlDecode(bad)) << bad;
  }

  // The token: version 1, the endpoint's length, the endpoint, the key, the secret; read back by
  // the kit and, from its hex, by the sandbox.
  const std::string endpoint = "http://127.0.0.1:8090/up/a-b";
  const auto token = linux_platform::pushToken(endpoint, keys);
  ASSERT_EQ(token.size(), 3 + endpoint.size() + 65 + 16);
  EXPECT_EQ(token[0], 1);
  EXPECT_EQ(token[1] * 256 + token[2], static_cast<int>(endpoint.size()));
  const auto read = linux_platform::readPushToken(token);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->endpoint, endpoint);
  EXPECT_EQ(read->publicKey, keys.publicKey());
  EXPECT_EQ(read->authSecret, keys.authSecret());
  std::string hex;
  for (const auto byte : token) {
    static constexpr char kDigits[] = "0123456789abcdef";
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 0x0F];
  }
  const auto subscription = webpush::subscriptionFromToken(hex);
  ASSERT_TRUE(subscription);
  EXPECT_EQ(subscription->endpoint, endpoint);
  EXPECT_EQ(subscription->publicKey, keys.publicKey());
  EXPECT_EQ(subscription->authSecret, keys.authSecret());
  // Cut short, or a length that disagrees with the bytes: no token.
  auto truncated = token;
  truncated.pop_back();
  EXPECT_FALSE(linux_platform::readPushToken(truncated));
  EXPECT_FALSE(webpush::subscriptionFromToken(hex.substr(0, hex.size() - 2)));
  auto longer = token;
  longer[2] = static_cast<std::uint8_t>(longer[2] + 1);
  EXPECT_FALSE(linux_platform::readPushToken(longer));
}

}  // namespace
}  // namespace orvanta
