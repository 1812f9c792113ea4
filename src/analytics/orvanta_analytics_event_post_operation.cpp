#include "analytics/orvanta_analytics_event_post_operation.hpp"

#include "core/health.hpp"
#include "core/logger.hpp"

namespace orvanta {
namespace {

/// A failed post as the health counters sort it: answered 4xx, answered otherwise, or no answer.
health::Counter postFailureKind(const Error& error) {
  if (error.orvantaCase() == Error::OrvantaErrorCase::statusCode) {
    return error.code() >= 400 && error.code() < 500 ? health::Counter::postFailuresClientError
                                                     : health::Counter::postFailuresServerError;
  }
  return error.domain() == Error::Domain::transport ? health::Counter::postFailuresNetwork
                                                    : health::Counter::postFailuresServerError;
}

}  // namespace

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
    health::count(health::Counter::eventsPosted);
    health::notePostSucceeded();
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
    health::count(postFailureKind(error));
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
    health::count(health::Counter::postFailuresNetwork);
    if (output.operationFinishedWithSuccess) {
      output.operationFinishedWithSuccess(false);
    }
    finish();
  }
}

}  // namespace orvanta
