#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orvanta/error.hpp"
#include "orvanta/export.hpp"

namespace orvanta::port {

/// Receives the outcome of a registration for remote notifications, on the main queue.
class ORVANTA_API ApplicationDelegate {
 public:
  virtual ~ApplicationDelegate() = default;
  /// The push transport gave this installation an address: `deviceToken` is its opaque form.
  virtual void didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken) = 0;
  /// Registration failed; the error says why.
  virtual void didFailToRegisterForRemoteNotifications(const Error& error) = 0;
};

/// What a push's action opens a URL as: a web page in the user's browser ("BROWSER"), or a link
/// into an application ("DEEPLINK").
enum class UrlTarget { browser, deepLink };

/// The application object: registration for remote notifications and opening URLs.
/// Registration calls are made on the main queue; the URL calls from any thread.
class ORVANTA_API Application {
 public:
  virtual ~Application() = default;

  /// Asks the push transport for an address; the delegate hears the outcome. Main queue.
  virtual void registerForRemoteNotifications() = 0;
  /// Gives the address up. Main queue.
  virtual void unregisterForRemoteNotifications() = 0;

  /// Whether some installed program handles this URL (its scheme).
  virtual bool canOpenURL(const std::string& url) = 0;
  /// Whether a push's action may open `url` as `target`: the kit asks this before `open`. A
  /// platform that confines what pushes open (the Linux one: see docs/push.md) answers from its
  /// policy; by default, `canOpenURL(url)`.
  virtual bool canOpenURLAs(const std::string& url, UrlTarget target) {
    static_cast<void>(target);
    return canOpenURL(url);
  }
  /// Hands the URL to the program that handles it; nothing is reported back.
  virtual void open(const std::string& url) = 0;

  /// The object told about registrations; held weakly.
  virtual void setDelegate(std::weak_ptr<ApplicationDelegate> delegate) = 0;
};

}  // namespace orvanta::port
