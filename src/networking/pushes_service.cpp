#include "networking/pushes_service.hpp"

#include <utility>

#include "core/response.hpp"

namespace orvanta {

void PushesService::report(const OrvantaNotificationStatus& status,
                           CompletionHandler<Void> completionHandler) {
  auto answer = router_->request(PushesEndPoint::reports(status));
  detail::deliver(decodeEmptyResponse(answer), std::move(completionHandler));
}

}  // namespace orvanta
