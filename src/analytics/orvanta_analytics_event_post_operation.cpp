#include "analytics/orvanta_analytics_event_post_operation.hpp"

#include "core/logger.hpp"

namespace orvanta {

void OrvantaAnalyticsEventPostOperation::execute() {
  std::weak_ptr<OrvantaAnalyticsEventPostOperation> weak =
      std::static_pointer_cast<OrvantaAnalyticsEventPostOperation>(shared_from_this());
  const auto& event = operationDependencies_.event;
  const auto& service = operationDependencies_.eventsService;
  if (!event || !service) {
    finish();
    return;
  }
  CompletionHandler<Void> handler;
  handler.onNext = [weak] {
    auto self = weak.lock();
    if (!self) {
      return;
    }
    if (self->output.operationFinishedWithSuccess) {
      self->output.operationFinishedWithSuccess(true);
    }
    self->finish();
  };
  handler.onError = [weak](const Error& error) {
    auto self = weak.lock();
    if (!self) {
      return;
    }
    OrvantaLogger::error(error);
    if (self->output.operationFinishedWithSuccess) {
      self->output.operationFinishedWithSuccess(false);
    }
    self->finish();
  };
  try {
    service->addEvent(*event, std::move(handler));
  } catch (...) {
    // A service that throws instead of failing its handler: the post failed.
    if (output.operationFinishedWithSuccess) {
      output.operationFinishedWithSuccess(false);
    }
    finish();
  }
}

}  // namespace orvanta
