#include "orvanta/error.hpp"

#include <gtest/gtest.h>

namespace orvanta {
namespace {

TEST(ErrorTest, StatusCodesRenderAsCapitalisedStandardPhrases) {
  EXPECT_EQ(Error::statusCode(404).localizedDescription(), "Not Found");
  EXPECT_EQ(Error::statusCode(500).localizedDescription(), "Internal Server Error");
  EXPECT_EQ(Error::statusCode(203).localizedDescription(), "Non-Authoritative Information");
  EXPECT_EQ(Error::statusCode(505).localizedDescription(), "Http Version Not Supported");
  // Codes without a registered phrase fall back to the name of their class.
  EXPECT_EQ(Error::statusCode(299).localizedDescription(), "Success");
  EXPECT_EQ(Error::statusCode(499).localizedDescription(), "Client Error");
  EXPECT_EQ(Error::statusCode(599).localizedDescription(), "Server Error");
  EXPECT_EQ(Error::statusCode(42).localizedDescription(), "Server Error");
}

TEST(ErrorTest, KitCasesKeepTheirCaseAndText) {
  EXPECT_EQ(Error::custom("boom").localizedDescription(), "boom");
  EXPECT_EQ(Error::emptyResponseExists().localizedDescription(),
            "Expected empty response but recieved something");
  EXPECT_EQ(Error::mockServiceResponse().localizedDescription(), "Mock service returned error");
  EXPECT_EQ(Error::lastPushNotAvailable().localizedDescription(),
            "There is no unreached notification available to display");

  // A status code below 100 must not be mistaken for another case.
  EXPECT_EQ(Error::statusCode(2).orvantaCase(), Error::OrvantaErrorCase::statusCode);
  EXPECT_NE(Error::statusCode(2), Error::mockServiceResponse());
  EXPECT_EQ(Error::statusCode(404).code(), 404);
  EXPECT_EQ(Error(Error::Domain::orvanta, 3, {}).orvantaCase(),
            Error::OrvantaErrorCase::mockServiceResponse);
  EXPECT_EQ(Error(Error::Domain::transport, 7, "refused").orvantaCase(), std::nullopt);
}

TEST(ErrorTest, OtherDomainsRenderTheirMessage) {
  EXPECT_EQ(Error(Error::Domain::database, 5, "database is locked").localizedDescription(),
            "database is locked (code: 5)");
  EXPECT_EQ(Error(Error::Domain::transport, 7, "Connection refused").localizedDescription(),
            "Connection refused");
}

}  // namespace
}  // namespace orvanta
