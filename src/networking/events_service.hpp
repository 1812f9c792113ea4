#pragma once

#include <memory>

#include "models/orvanta_event.hpp"
#include "networking/completion_handler.hpp"
#include "networking/events_end_point.hpp"
#include "networking/router.hpp"

namespace orvanta {

/// Event delivery. Handlers run on the HTTP client's thread; nothing is logged or retried here.
class EventsServiceProtocol {
 public:
  virtual ~EventsServiceProtocol() = default;
  /// Sends `event`. Any 2xx answer succeeds, whatever its body.
  virtual void addEvent(const OrvantaEvent& event, CompletionHandler<Void> completionHandler) = 0;
};

class EventsService : public EventsServiceProtocol {
 public:
  explicit EventsService(std::shared_ptr<Router<EventsEndPoint>> router)
      : router_(std::move(router)) {}

  void addEvent(const OrvantaEvent& event, CompletionHandler<Void> completionHandler) override;

 private:
  std::shared_ptr<Router<EventsEndPoint>> router_;
};

}  // namespace orvanta
