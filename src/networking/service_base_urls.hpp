#pragma once

#include <mutex>
#include <string>
#include <string_view>

namespace orvanta {

/// The hosted services a call may go to: the push service (devices, last pushes, push reports)
/// and the API service (events).
enum class Service { push, api };

/// The base URLs of both services, each ending in "/". The composition root makes the set its
/// routers share and hands it to each router it builds; `set` points all of them elsewhere at once
/// (a local emulator, a staging service), for the requests they build afterwards. Any thread.
class ServiceBaseURLs {
 public:
  static constexpr std::string_view kProductionPush = "https://push.orvanta.io/v1/";
  static constexpr std::string_view kProductionApi = "https://api.orvanta.io/v1/";

  /// The production services.
  ServiceBaseURLs() = default;
  ServiceBaseURLs(const ServiceBaseURLs&) = delete;
  ServiceBaseURLs& operator=(const ServiceBaseURLs&) = delete;

  std::string url(Service service) const;
  /// Both URLs at once; the caller has checked them (`isAcceptableServiceBaseURL`).
  void set(std::string push, std::string api);

 private:
  mutable std::mutex mutex_;
  std::string push_{kProductionPush};  ///< guarded by mutex_
  std::string api_{kProductionApi};    ///< guarded by mutex_
};

}  // namespace orvanta
