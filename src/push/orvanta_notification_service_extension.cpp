#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>
#include <utility>

#include "core/guard.hpp"
#include "core/logger.hpp"
#include "core/uuid.hpp"
#include "models/orvanta_notification_payload.hpp"
#include "push/orvanta_notification_service_extension_impl.hpp"

namespace orvanta {
namespace {

// How long the image download may take on its own; the system's time budget usually ends the wait
// sooner.
constexpr std::chrono::milliseconds kDownloadTimeout{60'000};

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// A file name as a path component: the part after the last slash, without control characters
// and never "." or "..".
std::string safeFileName(std::string name) {
  if (auto slash = name.find_last_of("/\\"); slash != std::string::npos) {
    name.erase(0, slash + 1);
  }
  name.erase(std::remove_if(name.begin(), name.end(),
                            [](unsigned char c) { return c < 0x20 || c == 0x7f; }),
             name.end());
  if (name == "." || name == "..") {
    return {};
  }
  return name;
}

// The "filename" parameter of a Content-Disposition field, quoted or not.
std::string dispositionFileName(const std::string& field) {
  const std::string lower = lowerCase(field);
  std::size_t at = 0;
  while ((at = lower.find("filename", at)) != std::string::npos) {
    std::size_t value = at + 8;
    while (value < field.size() && field[value] == ' ') {
      ++value;
    }
    if (value >= field.size() || field[value] != '=') {
      at = value;  // "filename*=" and the like
      continue;
    }
    ++value;
    while (value < field.size() && field[value] == ' ') {
      ++value;
    }
    if (value < field.size() && field[value] == '"') {
      const std::size_t end = field.find('"', value + 1);
      return field.substr(value + 1,
                          end == std::string::npos ? std::string::npos : end - value - 1);
    }
    const std::size_t end = field.find(';', value);
    std::string name =
        field.substr(value, end == std::string::npos ? std::string::npos : end - value);
    while (!name.empty() && name.back() == ' ') {
      name.pop_back();
    }
    return name;
  }
  return {};
}

// The last path component of a URL (no query, no fragment).
std::string lastPathComponent(const std::string& url) {
  std::string path = url;
  if (auto cut = path.find_first_of("?#"); cut != std::string::npos) {
    path.erase(cut);
  }
  const auto scheme = path.find("://");
  const auto pathStart = path.find('/', scheme == std::string::npos ? 0 : scheme + 3);
  if (pathStart == std::string::npos) {
    return {};
  }
  return path.substr(path.find_last_of('/') + 1);
}

std::string extensionOf(const std::string& name) {
  const auto dot = name.find_last_of('.');
  return dot == std::string::npos || dot == 0 ? std::string() : lowerCase(name.substr(dot + 1));
}

std::string extensionForContentType(const std::optional<std::string>& contentType) {
  if (!contentType) {
    return {};
  }
  std::string type = lowerCase(contentType->substr(0, contentType->find(';')));
  while (!type.empty() && type.back() == ' ') {
    type.pop_back();
  }
  if (type == "image/png") {
    return "png";
  }
  if (type == "image/jpeg" || type == "image/jpg") {
    return "jpg";
  }
  if (type == "image/gif") {
    return "gif";
  }
  if (type == "image/webp") {
    return "webp";
  }
  if (type == "image/bmp") {
    return "bmp";
  }
  return {};
}

// Pictures a notification server can show.
bool isImageExtension(const std::string& extension) {
  return extension == "png" || extension == "jpg" || extension == "jpeg" || extension == "gif" ||
         extension == "webp" || extension == "bmp";
}

// Moves a file, copying it across file systems.
void moveFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  std::error_code error;
  std::filesystem::rename(from, to, error);
  if (!error) {
    return;
  }
  if (error != std::errc::cross_device_link) {
    throw std::filesystem::filesystem_error("could not move the file", from, to, error);
  }
  std::filesystem::copy_file(from, to);
  std::filesystem::remove(from, error);
}

void removeQuietly(const std::string& path) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
}

}  // namespace

// --- the public class: shielded ---------------------------------------------------------------

OrvantaNotificationServiceExtension::OrvantaNotificationServiceExtension(std::shared_ptr<Impl> impl)
    : impl_(std::move(impl)) {}

OrvantaNotificationServiceExtension::~OrvantaNotificationServiceExtension() = default;

void OrvantaNotificationServiceExtension::didReceive(const port::NotificationRequest& request,
                                                     ContentHandler contentHandler) {
  detail::shielded([&] { impl_->didReceive(request, std::move(contentHandler)); });
}

void OrvantaNotificationServiceExtension::serviceExtensionTimeWillExpire() {
  detail::shielded([&] { impl_->serviceExtensionTimeWillExpire(); });
}

// --- Impl ---------------------------------------------------------------------------------------

OrvantaNotificationServiceExtension::Impl::Impl(Dependencies dependencies)
    : dependencies_(std::move(dependencies)) {}

OrvantaNotificationServiceExtension::Impl::~Impl() {
  // Not under the lock: the completion it triggers only finds this object gone.
  if (download_) {
    download_->cancel();
  }
}

void OrvantaNotificationServiceExtension::Impl::didReceive(const port::NotificationRequest& request,
                                                           ContentHandler contentHandler) {
  {
    std::lock_guard lock(mutex_);
    contentHandler_ = std::move(contentHandler);
    bestAttemptContent_ = request.content;
  }
  auto payload = OrvantaNotificationPayload::fromUserInfo(request.content.userInfo);
  if (!payload || !payload->registrationId) {
    deliver();
    return;
  }
  dependencies_.statusReporter->report(OrvantaNotificationStatus::PushReportStatus::received,
                                       payload->id, *payload->registrationId, std::nullopt,
                                       std::nullopt);
  if (!payload->image) {
    deliver();
    return;
  }
  port::HttpRequest download;
  download.url = payload->image->string();
  download.timeout = kDownloadTimeout;
  std::weak_ptr<Impl> weak = weak_from_this();
  auto task = dependencies_.httpClient->downloadTask(
      std::move(download), [weak](port::DownloadTaskResult result) {
        if (auto self = weak.lock()) {
          self->downloadFinished(std::move(result));
        } else if (result.location) {
          removeQuietly(*result.location);  // nobody will show it
        }
      });
  std::lock_guard lock(mutex_);
  download_ = std::move(task);
}

void OrvantaNotificationServiceExtension::Impl::serviceExtensionTimeWillExpire() {
  deliver();
}

void OrvantaNotificationServiceExtension::Impl::downloadFinished(port::DownloadTaskResult result) {
  std::optional<Error> error = std::move(result.error);
  if (!error && result.response &&
      (result.response->statusCode < 200 || result.response->statusCode > 299)) {
    // An answer that is not the picture (a 404 page, say) is a failed download.
    error = Error::statusCode(result.response->statusCode);
    if (result.location) {
      removeQuietly(*result.location);
    }
  }
  if (error) {
    deliver();
    OrvantaLogger::error("Download file error: " + error->localizedDescription());
    return;
  }
  if (auto attachment = createAttachment(result.response, result.location)) {
    std::lock_guard lock(mutex_);
    if (bestAttemptContent_) {
      bestAttemptContent_->attachments = {std::move(*attachment)};
    }
  }
  deliver();
}

void OrvantaNotificationServiceExtension::Impl::deliver() {
  ContentHandler handler;
  port::NotificationContent content;
  {
    std::lock_guard lock(mutex_);
    if (!contentHandler_ || !bestAttemptContent_) {
      return;
    }
    handler = contentHandler_;
    content = *bestAttemptContent_;
  }
  detail::shielded([&] { handler(std::move(content)); });
}

std::optional<port::NotificationAttachment>
OrvantaNotificationServiceExtension::Impl::createAttachment(
    const std::optional<port::HttpResponse>& response, const std::optional<std::string>& location) {
  if (!response || !location) {
    return std::nullopt;
  }
  const std::string uuid = makeUuidString();
  const std::string name = attachmentFileName(uuid, *response);
  const std::filesystem::path target =
      std::filesystem::path(dependencies_.fileLocations->temporaryDirectory()) / name;
  if (!isImageExtension(extensionOf(name))) {
    removeQuietly(*location);
    OrvantaLogger::error("Create attachment error: " + name +
                         " is not a picture a notification can show");
    return std::nullopt;
  }
  try {
    moveFile(*location, target);
  } catch (const std::exception& failure) {
    removeQuietly(*location);
    OrvantaLogger::error(std::string("Create attachment error: ") + failure.what());
    return std::nullopt;
  }
  return port::NotificationAttachment{uuid, target.string()};
}

std::string OrvantaNotificationServiceExtension::Impl::attachmentFileName(
    const std::string& uuid, const port::HttpResponse& response) {
  std::string suggested;
  if (auto disposition = response.header("Content-Disposition")) {
    suggested = safeFileName(dispositionFileName(*disposition));
  }
  if (suggested.empty()) {
    suggested = safeFileName(lastPathComponent(response.url));
  }
  std::string name = suggested.empty() ? uuid : uuid + "-" + suggested;
  if (extensionOf(suggested).empty()) {
    if (auto implied = extensionForContentType(response.header("Content-Type")); !implied.empty()) {
      name += "." + implied;
    }
  }
  return name;
}

}  // namespace orvanta
