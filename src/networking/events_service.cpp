#include "networking/events_service.hpp"

#include <utility>

#include "core/response.hpp"

namespace orvanta {

void EventsService::addEvent(const OrvantaEvent& event, CompletionHandler<Void> completionHandler) {
  auto answer = router_->request(EventsEndPoint::event(event));
  detail::deliver(ignoreSuccessResponseAndMapAsVoid(answer), std::move(completionHandler));
}

}  // namespace orvanta
