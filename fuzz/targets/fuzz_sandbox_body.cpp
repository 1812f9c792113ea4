// orvanta-sandbox reading a request body and showing it on its control pages: any bytes are read
// (JSON no deeper than 64 levels) or refused, checked against every contract, masked and written
// back as JSON text, without a crash, a throw or a stack overflow.

#include <cstddef>
#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "contract.hpp"
#include "guards.hpp"
#include "orvanta_sandbox/records.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using nlohmann::json;
  namespace sandbox = orvanta::sandbox;
  const std::string text(reinterpret_cast<const char*>(data), size);
  // As the request log shows it: the body as it came, next to a credential header.
  json shown = {{"body", text}, {"headers", json::array({json::array({"Authorization", text})})}};
  if (auto body = sandbox::guards::parseJson(text)) {
    sandbox::contract::checkDevice(*body, "app");
    sandbox::contract::checkReport(*body, "p-1");
    sandbox::contract::checkEvent(*body, "app");
    sandbox::faultFromJson(*body);
    shown["parsed"] = std::move(*body);  // as the state shows a device's or a push's body
  }
  sandbox::guards::maskSecrets(shown);
  static_cast<void>(shown.dump(-1, ' ', false, json::error_handler_t::replace));
  return 0;
}
