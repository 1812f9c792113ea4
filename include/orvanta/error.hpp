#pragma once

#include <optional>
#include <string>

#include "orvanta/export.hpp"

namespace orvanta {

/// The one error value of the kit. Errors never cross the public API as exceptions; they travel
/// inside futures and end in one log line. `localizedDescription()` is the text the logger prints.
class ORVANTA_API Error {
 public:
  /// Which family an error belongs to.
  enum class Domain {
    orvanta,     ///< the kit's own cases (see `OrvantaErrorCase`)
    networking,  ///< request building: "Given URL is not valid.", "Parameter encoding failed"
    keychain,    ///< secure store failures, code = ordinal of the case
    transport,   ///< the HTTP client: refused, timed out, TLS, malformed answer...
    decoding,    ///< JSON that does not decode into the expected record
    database,    ///< SQLite, code = SQLite result code
    system,      ///< file system and other OS failures, code = errno
  };

  /// The cases of the kit's own error enumeration, in their declared order.
  enum class OrvantaErrorCase {
    custom,
    statusCode,
    emptyResponseExists,
    mockServiceResponse,
    lastPushNotAvailable,
  };

  /// An error of any domain. For the `orvanta` domain the case is taken from `code` (its ordinal,
  /// or `statusCode` for codes of 100 and above); prefer the named factories below.
  Error(Domain domain, int code, std::string message);

  // The kit's own cases.
  static Error custom(std::string message);
  static Error statusCode(int httpStatus);
  static Error emptyResponseExists();
  static Error mockServiceResponse();
  static Error lastPushNotAvailable();

  Domain domain() const { return domain_; }
  /// For `statusCode`, the HTTP status; for database errors, the SQLite result code; for
  /// keychain errors, the case ordinal; for the other kit cases, the case ordinal.
  int code() const { return code_; }
  /// The raw message: the custom text, SQLite's message, the transport's description...
  const std::string& message() const { return message_; }

  /// The kit case, when the error belongs to the `orvanta` domain.
  std::optional<OrvantaErrorCase> orvantaCase() const;

  /// Human-readable text, as the logger prints it:
  /// - kit cases: the custom text; the capitalised HTTP phrase ("Not Found"); "Expected empty
  ///   response but recieved something"; "Mock service returned error"; "There is no unreached
  ///   notification available to display";
  /// - database errors: message + " (code: N)";
  /// - every other domain: the message.
  std::string localizedDescription() const;

  friend bool operator==(const Error& a, const Error& b) {
    return a.domain_ == b.domain_ && a.case_ == b.case_ && a.code_ == b.code_ &&
           a.message_ == b.message_;
  }

 private:
  Error(OrvantaErrorCase kitCase, int code, std::string message);

  Domain domain_ = Domain::orvanta;
  OrvantaErrorCase case_ = OrvantaErrorCase::custom;  ///< meaningful in the `orvanta` domain only
  int code_ = 0;
  std::string message_;
};

}  // namespace orvanta
