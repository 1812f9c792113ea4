#include "analytics/orvanta_analytics_operations_handler.hpp"

#include <utility>
#include <vector>

#include "analytics/orvanta_analytics_event_post_operation.hpp"
#include "core/logger.hpp"

namespace orvanta {

namespace detail {

std::string describeEvent(const OrvantaEvent& event) {
  try {
    return event.toJson().dump();
  } catch (const std::exception&) {
    return "{\"uuidId\":\"" + event.uuidId + "\"}";
  }
}

std::string describeParameters(const OrvantaEvent& event) {
  try {
    // Merged as `OrvantaEvent::parameters()` merges them: a later map wins.
    nlohmann::json merged = nlohmann::json::object();
    nlohmann::ordered_json json = event.toJson();
    for (const char* key : {"additionalStringFields", "additionalNumericFields",
                            "additionalBoolFields", "additionalDateFields"}) {
      for (const auto& [name, value] : json[key].items()) {
        merged[name] = value;
      }
    }
    return merged.dump();
  } catch (const std::exception&) {
    return "{}";
  }
}

}  // namespace detail

namespace {

constexpr const char* kOperationQueueName =
    "com.tessamoor.orvantaAnalyticsOperationsHandler.operationQueue";

}  // namespace

std::shared_ptr<OrvantaAnalyticsOperationsHandler> OrvantaAnalyticsOperationsHandler::make(
    Dependencies dependencies) {
  return std::make_shared<OrvantaAnalyticsOperationsHandler>(std::move(dependencies));
}

OrvantaAnalyticsOperationsHandler::OrvantaAnalyticsOperationsHandler(Dependencies dependencies)
    : dependencies_(std::move(dependencies)),
      operationQueue_(kOperationQueueName, kMaxConcurrentOperationCount) {}

void OrvantaAnalyticsOperationsHandler::addEventToDatabase(
    std::shared_ptr<const OrvantaEvent> event) {
  if (!event) {
    return;
  }
  std::lock_guard lock(databaseQueue_);
  if (!dependencies_.eventsDatabase) {
    return;
  }
  try {
    dependencies_.eventsDatabase->add(event);
  } catch (const Error& error) {
    OrvantaLogger::verbose([&] {
      return "Could not add Event - " + detail::describeEvent(*event) + " to database\nerror - " +
             error.localizedDescription();
    });
  }
}

void OrvantaAnalyticsOperationsHandler::postEventsFromDatabase() {
  std::lock_guard lock(databaseQueue_);
  if (!dependencies_.eventsDatabase) {
    return;
  }
  std::vector<EventDatabase::Row> rows;
  try {
    rows = dependencies_.eventsDatabase->allRows();
  } catch (const Error& error) {
    OrvantaLogger::verbose("Unable to fetch all events from database - " +
                           error.localizedDescription());
    return;
  }
  if (rows.empty()) {
    return;
  }
  // One post per row, made when its turn comes: queuing ten thousand rows costs this thread one
  // entry, not ten thousand operations.
  auto events = std::make_shared<const std::vector<EventDatabase::Row>>(std::move(rows));
  std::weak_ptr<OrvantaAnalyticsOperationsHandler> weak = weak_from_this();
  operationQueue_.addOperations(
      events->size(), [weak, events](std::size_t index) -> std::shared_ptr<AsynchronousOperation> {
        auto self = weak.lock();
        if (!self) {
          return nullptr;
        }
        return self->postEvent((*events)[index]);
      });
}

void OrvantaAnalyticsOperationsHandler::cancelAllOperations() {
  operationQueue_.cancelAllOperations();
}

std::shared_ptr<AsynchronousOperation> OrvantaAnalyticsOperationsHandler::postEvent(
    std::shared_ptr<const OrvantaEvent> event) {
  std::shared_ptr<EventsServiceProtocol> service = dependencies_.makeEventsService();
  auto operation = std::make_shared<OrvantaAnalyticsEventPostOperation>(
      OrvantaAnalyticsEventPostOperation::OperationDependencies{event, std::move(service)});
  std::weak_ptr<OrvantaAnalyticsOperationsHandler> weak = weak_from_this();
  operation->output.operationFinishedWithSuccess = [weak, event](bool success) {
    // Messages are built only when they are printed: a drain of thousands of events must not
    // pay for text nobody reads.
    if (success) {
      OrvantaLogger::info([&] {
        if (event->additionalStringFields.empty() && event->additionalNumericFields.empty() &&
            event->additionalBoolFields.empty() && event->additionalDateFields.empty()) {
          return "Successfully sent event: " + event->name;
        }
        return "Successfully sent event: " + event->name +
               ", parameters: " + detail::describeParameters(*event);
      });
      if (auto self = weak.lock()) {
        self->removeEventFromDatabaseOperation(*event);
      }
    } else {
      OrvantaLogger::error(
          [&] { return "Failed to send event: " + detail::describeEvent(*event); });
    }
  };
  return operation;
}

void OrvantaAnalyticsOperationsHandler::removeEventFromDatabaseOperation(
    const OrvantaEvent& event) {
  std::lock_guard lock(databaseQueue_);
  if (!dependencies_.eventsDatabase) {
    return;
  }
  try {
    dependencies_.eventsDatabase->deleteRow(event);
  } catch (const Error& error) {
    OrvantaLogger::verbose([&] {
      return "Could not remove event - " + detail::describeEvent(event) +
             " from database\nerror - " + error.localizedDescription();
    });
  }
}

}  // namespace orvanta
