#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvanta/port/bundle.hpp"
#include "orvanta/port/notification_center.hpp"

namespace orvanta {

/// The kit's fixed vocabulary of notification categories and their buttons, which the service
/// names in a push to give it buttons. Every member may be called from any thread.
class OrvantaPushNotificationCategoriesFactory {
 public:
  /// The buttons; each becomes an action "ORVANTA_PUSH_ACTION_" + raw value that brings the
  /// application to the front, titled by the localised "loc_push_action_title_" + raw value in
  /// lower case.
  enum class PushNotificationActions {
    yes,
    no,
    accept,
    decline,
    buyNow,
    later,
    addToCart,
    noThanks,
    open,
    close,
    login,
    share,
    seeMore
  };

  /// The categories, "ORVANTA_PUSH_CATEGORY_" + raw value; an "INVERTED" one has its base's two
  /// buttons in the other order.
  enum class PushNotificationCategories {
    decision,
    decisionInverted,
    acceptance,
    acceptanceInverted,
    shoppingNow,
    shoppingNowInverted,
    shoppingCart,
    shoppingCartInverted,
    opening,
    openingInverted,
    loginClose,
    loginCloseInverted,
    sharing,
    sharingInverted,
    moreClose,
    moreCloseInverted,
    yes,
    no,
    accept,
    decline,
    buyNow,
    later,
    addToCart,
    noThanks,
    open,
    close,
    login,
    share,
    seeMore
  };

  static constexpr std::string_view kActionPrefix = "ORVANTA_PUSH_ACTION_";
  static constexpr std::string_view kCategoryPrefix = "ORVANTA_PUSH_CATEGORY_";
  /// The string table of the button titles and of "loc_ok", "loc_cancel", "loc_show".
  static constexpr std::string_view kStringTable = "Localizable";

  /// Every case, in the order above.
  static const std::array<PushNotificationActions, 13>& allActions();
  static const std::array<PushNotificationCategories, 29>& allCategories();

  static std::string_view rawValue(PushNotificationActions action);
  static std::string_view rawValue(PushNotificationCategories category);
  static std::optional<PushNotificationActions> action(std::string_view rawValue);
  static std::optional<PushNotificationCategories> category(std::string_view rawValue);

  /// "ORVANTA_PUSH_ACTION_YES" and so on.
  static std::string identifier(PushNotificationActions action);
  /// "ORVANTA_PUSH_CATEGORY_DECISION" and so on.
  static std::string identifier(PushNotificationCategories category);
  /// "loc_push_action_title_buy_now" and so on.
  static std::string titleKey(PushNotificationActions action);
  /// A category's buttons, in the order they are shown.
  static std::vector<PushNotificationActions> actions(PushNotificationCategories category);

  /// The category a push names: every "ORVANTA_PUSH_CATEGORY_" is removed from `categoryId` and
  /// the rest is read as a raw value (case matters); none for anything else.
  static std::optional<PushNotificationCategories> categoryFromId(std::string_view categoryId);

  /// The platform category of `category`, its buttons titled from `bundle`'s string table.
  static port::NotificationCategory notificationCategory(PushNotificationCategories category,
                                                         port::Bundle& bundle);

  explicit OrvantaPushNotificationCategoriesFactory(std::shared_ptr<port::Bundle> bundle);

  /// The 29 platform categories, built on first use and then kept.
  const std::vector<port::NotificationCategory>& categories();

  /// Replaces the notification centre's whole set of categories with the kit's 29.
  void setNotificationCategories(port::NotificationCenter& notificationCenter);

 private:
  std::shared_ptr<port::Bundle> bundle_;
  std::once_flag built_;
  std::vector<port::NotificationCategory> categories_;
};

}  // namespace orvanta
