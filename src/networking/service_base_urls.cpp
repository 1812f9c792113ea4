#include "networking/service_base_urls.hpp"

#include <utility>

namespace orvanta {

std::string ServiceBaseURLs::url(Service service) const {
  std::lock_guard lock(mutex_);
  return service == Service::push ? push_ : api_;
}

void ServiceBaseURLs::set(std::string push, std::string api) {
  std::lock_guard lock(mutex_);
  push_ = std::move(push);
  api_ = std::move(api);
}

}  // namespace orvanta
