#pragma once

// What the doctor found: one verdict per check, printed as lines for people or as one JSON
// document. Used from the main thread only.

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace orvanta::doctor {

/// What one check found: whether it passed, why, and for a failure the one thing to do about it.
/// `details` carries the facts behind the reason (counts, names, paths) for `--json`.
struct Verdict {
  bool passed = false;
  std::string reason;
  std::string fix;  ///< empty when passed
  nlohmann::ordered_json details = nlohmann::ordered_json::object();

  static Verdict pass(std::string reason,
                      nlohmann::ordered_json details = nlohmann::ordered_json::object());
  static Verdict fail(std::string reason, std::string fix,
                      nlohmann::ordered_json details = nlohmann::ordered_json::object());
  /// A check that could not run because an earlier link is broken: `missing` names that link.
  static Verdict notChecked(const std::string& missing, const std::string& earlierCheck);
};

/// One line of the report.
struct CheckResult {
  std::string id;       ///< stable, for --json and --skip ("database", "notifications"...)
  std::string section;  ///< "files", "desktop", "service"; a later "health" section fits beside
  std::string title;    ///< what people read ("event database")
  Verdict verdict;
};

struct Report {
  /// The application as it was looked at: folders, files, ids, service URLs.
  nlohmann::ordered_json application = nlohmann::ordered_json::object();
  std::vector<CheckResult> results;

  bool passed() const;
};

/// One line per check ("✔ title  reason" or "✗ title  reason. Fix: fix"), then a summary line.
std::string renderText(const Report& report);
/// {"ok", "passed", "failed", "application", "checks": [{"id", "section", "title", "ok",
/// "reason", "fix", "details"}]}; "fix" is null for a check that passed.
nlohmann::ordered_json renderJson(const Report& report);

}  // namespace orvanta::doctor
