#pragma once

#include <functional>
#include <memory>

#include "analytics/asynchronous_operation.hpp"
#include "models/orvanta_event.hpp"
#include "networking/events_service.hpp"

namespace orvanta {

/// Posts one stored event to the events endpoint and reports whether the service took it.
class OrvantaAnalyticsEventPostOperation : public AsynchronousOperation {
 public:
  struct Output {
    /// Called once with the outcome of the post, on the HTTP client's thread, just before the
    /// operation finishes. Not called when the operation was cancelled before it started.
    std::function<void(bool)> operationFinishedWithSuccess;
  };
  struct OperationDependencies {
    std::shared_ptr<const OrvantaEvent> event;
    std::shared_ptr<EventsServiceProtocol> eventsService;
  };

  explicit OrvantaAnalyticsEventPostOperation(OperationDependencies dependencies)
      : operationDependencies_(std::move(dependencies)) {}

  /// Set before the operation is started.
  Output output;

  const OperationDependencies& operationDependencies() const { return operationDependencies_; }

 protected:
  void execute() override;

 private:
  OperationDependencies operationDependencies_;
};

}  // namespace orvanta
