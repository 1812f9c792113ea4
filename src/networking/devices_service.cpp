#include "networking/devices_service.hpp"

#include <utility>

#include "core/response.hpp"

namespace orvanta {

void DevicesService::registerDevice(const OrvantaDevice& device,
                                    CompletionHandler<Void> completionHandler) {
  auto answer = router_->request(DevicesEndPoint::registerDevice(device));
  detail::deliver(decodeEmptyResponse(answer), std::move(completionHandler));
}

void DevicesService::lastPush(const std::string& id,
                              CompletionHandler<OrvantaNotificationPayload> completionHandler) {
  auto answer = router_->request(DevicesEndPoint::lastPush(id));
  detail::deliver(decode<OrvantaNotificationPayload>(answer), std::move(completionHandler));
}

}  // namespace orvanta
