#pragma once

#include <functional>
#include <memory>

#include "orvanta/export.hpp"
#include "orvanta/port/notification_center.hpp"

namespace orvanta {

/// What runs on every remote push before it is shown: it reports the push as received to the
/// service and, when the push carries an image URL, downloads the image and attaches it.
///
/// The system creates one extension per push, calls `didReceive` and shows what the content
/// handler is given. When the extension has not handed content over within the system's time
/// budget, the system calls `serviceExtensionTimeWillExpire`, and shows the push as it came if
/// even then nothing was handed over. On Linux the push transport is the system: see
/// `LinuxPlatformOptions::notificationServiceExtension` and `serviceExtensionTimeBudget`.
///
/// A host may subclass it to change the content; an override calls the base member to keep the
/// kit's behaviour:
///
///   class MyExtension : public orvanta::OrvantaNotificationServiceExtension {
///     void didReceive(const orvanta::port::NotificationRequest& request,
///                     ContentHandler contentHandler) override {
///       auto changed = request;
///       changed.content.title = "[Shop] " + changed.content.title;
///       OrvantaNotificationServiceExtension::didReceive(changed, std::move(contentHandler));
///     }
///   };
class ORVANTA_API OrvantaNotificationServiceExtension {
 public:
  /// Takes the content to show. It may be called from any thread; the system shows the first
  /// content it is given and ignores later calls.
  using ContentHandler = std::function<void(port::NotificationContent content)>;

  /// An extension over the kit of the platform in force (its HTTP client, temporary folder and
  /// the push service the host's configuration names). Any thread.
  OrvantaNotificationServiceExtension();
  /// Cancels a download still under way; its completion then does nothing.
  virtual ~OrvantaNotificationServiceExtension();
  OrvantaNotificationServiceExtension(const OrvantaNotificationServiceExtension&) = delete;
  OrvantaNotificationServiceExtension& operator=(const OrvantaNotificationServiceExtension&) =
      delete;

  /// Keeps the handler and a copy of the request's content, then reads the kit's payload from the
  /// content's user info. A push of the service that names its device ("registration_id") is
  /// reported as received; if it carries an "image" URL the image is downloaded (the completion,
  /// on the HTTP client's thread, attaches it and hands the content over, or hands it over
  /// without the image and logs "Download file error: " and the reason), else the content is
  /// handed over at once. Any other push is handed over unchanged, with nothing reported and no
  /// image fetched. The attachment is a file in the temporary folder named after a fresh UUID and
  /// the server's suggested file name (else the URL's last path component), so it keeps its
  /// extension; a failure to place it logs "Create attachment error: " and the reason, and the
  /// content goes without it. Called once per extension; the thread that calls it is the one the
  /// system runs extensions on (on Linux, the main queue).
  virtual void didReceive(const port::NotificationRequest& request, ContentHandler contentHandler);

  /// The time budget is spent: hands over the content as it is now (without the image if the
  /// download has not finished). Same thread as `didReceive`.
  virtual void serviceExtensionTimeWillExpire();

  class Impl;  ///< internal
  explicit OrvantaNotificationServiceExtension(std::shared_ptr<Impl> impl);

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace orvanta
