#pragma once

#include <memory>
#include <string>

#include "models/orvanta_device.hpp"
#include "models/orvanta_notification_payload.hpp"
#include "networking/completion_handler.hpp"
#include "networking/devices_end_point.hpp"
#include "networking/router.hpp"

namespace orvanta {

/// The device calls of the push service, as the kit's components see them. Handlers run on the
/// HTTP client's thread; nothing is logged or retried here.
class DevicesServiceProtocol {
 public:
  virtual ~DevicesServiceProtocol() = default;
  /// Registers `device`. Succeeds only on a 2xx answer without a "Content-Type" header; a 2xx
  /// answer that has one fails with `Error::emptyResponseExists()`.
  virtual void registerDevice(const OrvantaDevice& device,
                              CompletionHandler<Void> completionHandler) = 0;
  /// The last push sent to the device whose push token is `id`; a body that is not a payload fails
  /// with the decoder's error.
  virtual void lastPush(const std::string& id,
                        CompletionHandler<OrvantaNotificationPayload> completionHandler) = 0;
};

class DevicesService : public DevicesServiceProtocol {
 public:
  explicit DevicesService(std::shared_ptr<Router<DevicesEndPoint>> router)
      : router_(std::move(router)) {}

  void registerDevice(const OrvantaDevice& device,
                      CompletionHandler<Void> completionHandler) override;
  void lastPush(const std::string& id,
                CompletionHandler<OrvantaNotificationPayload> completionHandler) override;

 private:
  std::shared_ptr<Router<DevicesEndPoint>> router_;
};

}  // namespace orvanta
