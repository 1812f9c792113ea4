#pragma once

#include "orvanta/port/notification_center.hpp"
#include "orvanta/value.hpp"

namespace orvanta {

/// The notification a remote push shows, as the phone platforms build it from the push's
/// dictionary:
/// - title and body from the push's alert ("aps" → "alert": a text, which is the body, or an
///   object with "title" and "body"), else from the kit's own "data" → "title" / "body";
/// - the category from "aps" → "category", else from the kit's buttons ("data" →
///   "action_buttons" → "category_id"), written as the kit's full category identifier when it
///   names one of the kit's categories;
/// - the whole dictionary as the user info; the identifier is the push's "data" → "id", or a new
///   one when it has none.
/// Any thread.
port::NotificationRequest notificationRequestFromUserInfo(const ValueMap& userInfo);

}  // namespace orvanta
