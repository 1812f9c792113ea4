#include "networking/devices_end_point.hpp"

#include "core/constants.hpp"
#include "models/json.hpp"

namespace orvanta {
namespace {

template <class... F>
struct Overloaded : F... {
  using F::operator()...;
};
template <class... F>
Overloaded(F...) -> Overloaded<F...>;

}  // namespace

std::string DevicesEndPoint::path() const {
  return std::visit(Overloaded{
                        [](const Register&) { return std::string("devices"); },
                        [](const Unregister& call) { return "devices/" + call.id; },
                        [](const LastPush& call) { return "devices/" + call.id + "/last_push"; },
                    },
                    value_);
}

HTTPMethod DevicesEndPoint::httpMethod() const {
  return std::holds_alternative<LastPush>(value_) ? HTTPMethod::get : HTTPMethod::post;
}

HTTPTask DevicesEndPoint::task() const {
  if (const auto* call = std::get_if<Register>(&value_)) {
    return HTTPTask::requestWithParameters(json(call->device));
  }
  return HTTPTask::request();
}

port::HttpHeaders DevicesEndPoint::headers(const CredentialsSource& credentials) const {
  return Constants::Authorization::Push::authorizationHeaders(credentials);
}

}  // namespace orvanta
