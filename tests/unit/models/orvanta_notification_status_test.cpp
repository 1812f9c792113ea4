#include "models/orvanta_notification_status.hpp"

#include <gtest/gtest.h>

#include "models/json.hpp"

namespace orvanta {
namespace {

using Status = OrvantaNotificationStatus;

TEST(OrvantaNotificationStatusTest, TapOnTheBodyOfAPushWritesTheClickReport) {
  Status status{.id = "p-17",
                .status = Status::PushReportStatus::reactedOn,
                .deviceToken = "0a1b2c",
                .occurredAt = 1700000000,
                .details = Status::DetailsType::click};
  EXPECT_EQ(jsonText(status), R"({"id":"p-17","status":1,"type":"IOS","registration_id":"0a1b2c",)"
                              R"("occurred_at":1700000000,"details":"NOTIFICATION_CLICK_ACTION"})");
}

TEST(OrvantaNotificationStatusTest, OptionalKeysAppearOnlyWhenSet) {
  Status received{.id = "p-1", .deviceToken = "t", .occurredAt = -5};
  EXPECT_EQ(jsonText(received),
            R"({"id":"p-1","status":0,"type":"IOS","registration_id":"t","occurred_at":-5})");

  Status dismissed{.id = "p-1",
                   .status = Status::PushReportStatus::reactedOn,
                   .deviceToken = "t",
                   .occurredAt = 1,
                   .details = Status::DetailsType::dismiss,
                   .actionId = "b2"};
  EXPECT_EQ(jsonText(dismissed),
            R"({"id":"p-1","status":1,"type":"IOS","registration_id":"t","occurred_at":1,)"
            R"("details":"DIALOG_DISMISS_ACTION","actionId":"b2"})");
  EXPECT_EQ(Status::rawValue(Status::DetailsType::swipe), "NOTIFICATION_SWIPE_ACTION");
}

}  // namespace
}  // namespace orvanta
