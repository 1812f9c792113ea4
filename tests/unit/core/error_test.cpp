#include "orvanta/error.hpp"

#include <gtest/gtest.h>

namespace orvanta {
namespace {

TEST(ErrorTest, StatusCodesRenderAsCapitalisedPhrasesOrTheirClass) {
  EXPECT_EQ(Error::statusCode(203).localizedDescription(), "Non-Authoritative Information");
  EXPECT_EQ(Error::statusCode(505).localizedDescription(), "Http Version Not Supported");
  // Codes without a registered phrase fall back to the name of their class.
  EXPECT_EQ(Error::statusCode(299).localizedDescription(), "Success");
  EXPECT_EQ(Error::statusCode(499).localizedDescription(), "Client Error");
  EXPECT_EQ(Error::statusCode(42).localizedDescription(), "Server Error");

  // A status code below 100 must not be mistaken for another case.
  EXPECT_EQ(Error::statusCode(2).orvantaCase(), Error::OrvantaErrorCase::statusCode);
  EXPECT_NE(Error::statusCode(2), Error::mockServiceResponse());
  EXPECT_EQ(Error(Error::Domain::transport, 7, "refused").orvantaCase(), std::nullopt);
  EXPECT_EQ(Error(Error::Domain::database, 5, "database is locked").localizedDescription(),
            "database is locked (code: 5)");
}

}  // namespace
}  // namespace orvanta
