#pragma once

#include <memory>

#include "models/orvanta_notification_status.hpp"
#include "networking/completion_handler.hpp"
#include "networking/pushes_end_point.hpp"
#include "networking/router.hpp"

namespace orvanta {

/// Push reports. Handlers run on the HTTP client's thread; nothing is logged or retried here.
class PushesServiceProtocol {
 public:
  virtual ~PushesServiceProtocol() = default;
  /// Reports `status`. Succeeds only on a 2xx answer without a "Content-Type" header.
  virtual void report(const OrvantaNotificationStatus& status,
                      CompletionHandler<Void> completionHandler) = 0;
};

class PushesService : public PushesServiceProtocol {
 public:
  explicit PushesService(std::shared_ptr<Router<PushesEndPoint>> router)
      : router_(std::move(router)) {}

  void report(const OrvantaNotificationStatus& status,
              CompletionHandler<Void> completionHandler) override;

 private:
  std::shared_ptr<Router<PushesEndPoint>> router_;
};

}  // namespace orvanta
