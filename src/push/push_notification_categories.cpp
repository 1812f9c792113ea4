#include "push/push_notification_categories.hpp"

#include <utility>

#include "core/text.hpp"

namespace orvanta {
namespace {

using Actions = OrvantaPushNotificationCategoriesFactory::PushNotificationActions;
using Categories = OrvantaPushNotificationCategoriesFactory::PushNotificationCategories;

constexpr std::array<std::string_view, 13> kActionRawValues = {
    "YES",       "NO",   "ACCEPT", "DECLINE", "BUY_NOW", "LATER",    "ADD_TO_CART",
    "NO_THANKS", "OPEN", "CLOSE",  "LOGIN",   "SHARE",   "SEE_MORE",
};

struct CategoryEntry {
  std::string_view rawValue;
  std::vector<Actions> actions;
};

const std::array<CategoryEntry, 29>& categoryTable() {
  // Never destroyed: the kit's threads may still build categories while the process exits.
  static const auto* const table = new std::array<CategoryEntry, 29>{{
      {"DECISION", {Actions::yes, Actions::no}},
      {"DECISION_INVERTED", {Actions::no, Actions::yes}},
      {"ACCEPTANCE", {Actions::accept, Actions::decline}},
      {"ACCEPTANCE_INVERTED", {Actions::decline, Actions::accept}},
      {"SHOPPING_NOW", {Actions::buyNow, Actions::later}},
      {"SHOPPING_NOW_INVERTED", {Actions::later, Actions::buyNow}},
      {"SHOPPING_CART", {Actions::addToCart, Actions::noThanks}},
      {"SHOPPING_CART_INVERTED", {Actions::noThanks, Actions::addToCart}},
      {"OPENING", {Actions::open, Actions::close}},
      {"OPENING_INVERTED", {Actions::close, Actions::open}},
      {"LOGIN_CLOSE", {Actions::login, Actions::close}},
      {"LOGIN_CLOSE_INVERTED", {Actions::close, Actions::login}},
      {"SHARING", {Actions::share, Actions::close}},
      {"SHARING_INVERTED", {Actions::close, Actions::share}},
      {"MORE_CLOSE", {Actions::seeMore, Actions::close}},
      {"MORE_CLOSE_INVERTED", {Actions::close, Actions::seeMore}},
      {"YES", {Actions::yes}},
      {"NO", {Actions::no}},
      {"ACCEPT", {Actions::accept}},
      {"DECLINE", {Actions::decline}},
      {"BUY_NOW", {Actions::buyNow}},
      {"LATER", {Actions::later}},
      {"ADD_TO_CART", {Actions::addToCart}},
      {"NO_THANKS", {Actions::noThanks}},
      {"OPEN", {Actions::open}},
      {"CLOSE", {Actions::close}},
      {"LOGIN", {Actions::login}},
      {"SHARE", {Actions::share}},
      {"SEE_MORE", {Actions::seeMore}},
  }};
  return *table;
}

template <class Enum, std::size_t N>
std::array<Enum, N> enumerate() {
  std::array<Enum, N> cases{};
  for (std::size_t i = 0; i < N; ++i) {
    cases[i] = static_cast<Enum>(i);
  }
  return cases;
}

}  // namespace

const std::array<Actions, 13>& OrvantaPushNotificationCategoriesFactory::allActions() {
  static const auto cases = enumerate<Actions, 13>();
  return cases;
}

const std::array<Categories, 29>& OrvantaPushNotificationCategoriesFactory::allCategories() {
  static const auto cases = enumerate<Categories, 29>();
  return cases;
}

std::string_view OrvantaPushNotificationCategoriesFactory::rawValue(
    PushNotificationActions action) {
  return kActionRawValues.at(static_cast<std::size_t>(action));
}

std::string_view OrvantaPushNotificationCategoriesFactory::rawValue(
    PushNotificationCategories category) {
  return categoryTable().at(static_cast<std::size_t>(category)).rawValue;
}

std::optional<Actions> OrvantaPushNotificationCategoriesFactory::action(std::string_view raw) {
  for (Actions candidate : allActions()) {
    if (rawValue(candidate) == raw) {
      return candidate;
    }
  }
  return std::nullopt;
}

std::optional<Categories> OrvantaPushNotificationCategoriesFactory::category(std::string_view raw) {
  for (Categories candidate : allCategories()) {
    if (rawValue(candidate) == raw) {
      return candidate;
    }
  }
  return std::nullopt;
}

std::string OrvantaPushNotificationCategoriesFactory::identifier(PushNotificationActions action) {
  return std::string(kActionPrefix).append(rawValue(action));
}

std::string OrvantaPushNotificationCategoriesFactory::identifier(
    PushNotificationCategories category) {
  return std::string(kCategoryPrefix).append(rawValue(category));
}

std::string OrvantaPushNotificationCategoriesFactory::titleKey(PushNotificationActions action) {
  return "loc_push_action_title_" + asciiLowercased(rawValue(action));
}

std::vector<Actions> OrvantaPushNotificationCategoriesFactory::actions(
    PushNotificationCategories category) {
  return categoryTable().at(static_cast<std::size_t>(category)).actions;
}

std::optional<Categories> OrvantaPushNotificationCategoriesFactory::categoryFromId(
    std::string_view categoryId) {
  std::string rest(categoryId);
  for (std::size_t at = rest.find(kCategoryPrefix); at != std::string::npos;
       at = rest.find(kCategoryPrefix, at)) {
    rest.erase(at, kCategoryPrefix.size());
  }
  return category(rest);
}

port::NotificationCategory OrvantaPushNotificationCategoriesFactory::notificationCategory(
    PushNotificationCategories category, port::Bundle& bundle) {
  port::NotificationCategory result;
  result.identifier = identifier(category);
  for (Actions action : actions(category)) {
    result.actions.push_back({identifier(action),
                              bundle.localizedString(titleKey(action), std::string(kStringTable)),
                              port::kNotificationActionOptionForeground});
  }
  return result;
}

OrvantaPushNotificationCategoriesFactory::OrvantaPushNotificationCategoriesFactory(
    std::shared_ptr<port::Bundle> bundle)
    : bundle_(std::move(bundle)) {}

const std::vector<port::NotificationCategory>&
OrvantaPushNotificationCategoriesFactory::categories() {
  std::call_once(built_, [this] {
    for (Categories category : allCategories()) {
      categories_.push_back(notificationCategory(category, *bundle_));
    }
  });
  return categories_;
}

void OrvantaPushNotificationCategoriesFactory::setNotificationCategories(
    port::NotificationCenter& notificationCenter) {
  notificationCenter.setNotificationCategories(categories());
}

}  // namespace orvanta
