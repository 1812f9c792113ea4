#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "orvanta/orvanta_notification_service_extension.hpp"
#include "orvanta/port/file_locations.hpp"
#include "orvanta/port/http_client.hpp"
#include "push/orvanta_notification_status_reporter.hpp"

namespace orvanta {

/// The rich-push work of one extension: the received report, the image download and the
/// attachment. Always owned by a `std::shared_ptr`; the download completion holds it weakly and
/// does nothing (but remove the downloaded file) once it is gone. Members may be called from any
/// thread; the content handler is called without a lock held.
class OrvantaNotificationServiceExtension::Impl
    : public std::enable_shared_from_this<OrvantaNotificationServiceExtension::Impl> {
 public:
  struct Dependencies {
    /// Where the received report goes.
    std::shared_ptr<OrvantaNotificationStatusReporter> statusReporter;
    /// The image download.
    std::shared_ptr<port::HttpClient> httpClient;
    /// The temporary folder the attachment is moved to.
    std::shared_ptr<port::FileLocations> fileLocations;
  };

  explicit Impl(Dependencies dependencies);
  /// Cancels the download under way.
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void didReceive(const port::NotificationRequest& request, ContentHandler contentHandler);
  void serviceExtensionTimeWillExpire();

  /// The downloaded file at `location` moved into the temporary folder under a fresh UUID and
  /// the suggested file name, as an attachment; none without a response or a location, or when
  /// the file can't be placed (logged).
  std::optional<port::NotificationAttachment> createAttachment(
      const std::optional<port::HttpResponse>& response,
      const std::optional<std::string>& location);

  /// The name a downloaded file gets, after `uuid`: the server's suggested file name
  /// ("Content-Disposition"), else the last path component of the URL that answered, else
  /// nothing; an extension implied by an image "Content-Type" is added when the name has none.
  static std::string attachmentFileName(const std::string& uuid,
                                        const port::HttpResponse& response);

 private:
  void downloadFinished(port::DownloadTaskResult result);
  /// Hands the best attempt over, if there is a handler and content.
  void deliver();

  Dependencies dependencies_;
  mutable std::mutex mutex_;
  ContentHandler contentHandler_;                                ///< guarded by mutex_
  std::optional<port::NotificationContent> bestAttemptContent_;  ///< guarded by mutex_
  std::shared_ptr<port::HttpTask> download_;                     ///< guarded by mutex_
};

}  // namespace orvanta
