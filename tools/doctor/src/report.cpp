#include "report.hpp"

#include <algorithm>
#include <utility>

namespace orvanta::doctor {

Verdict Verdict::pass(std::string reason, nlohmann::ordered_json details) {
  return Verdict{true, std::move(reason), {}, std::move(details)};
}

Verdict Verdict::fail(std::string reason, std::string fix, nlohmann::ordered_json details) {
  return Verdict{false, std::move(reason), std::move(fix), std::move(details)};
}

Verdict Verdict::notChecked(const std::string& missing, const std::string& earlierCheck) {
  return fail("not checked: " + missing, "mend the " + earlierCheck + " first",
              {{"checked", false}});
}

bool Report::passed() const {
  return std::all_of(results.begin(), results.end(),
                     [](const CheckResult& result) { return result.verdict.passed; });
}

namespace {

/// Text for one line of a terminal: control characters (a newline in a name read from a file or
/// the bus, an escape sequence) shown as "\xNN", and at most `limit` bytes.
std::string printable(const std::string& text, std::size_t limit = 1000) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string shown;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      shown += "\\x";
      shown.push_back(kDigits[byte >> 4]);
      shown.push_back(kDigits[byte & 0x0F]);
    } else {
      shown.push_back(c);
    }
    if (shown.size() >= limit) {
      // Cut on a character boundary.
      while (!shown.empty() && (static_cast<unsigned char>(shown.back()) & 0xC0) == 0x80) {
        shown.pop_back();
      }
      if (!shown.empty() && static_cast<unsigned char>(shown.back()) >= 0xC0) {
        shown.pop_back();
      }
      return shown + "…";
    }
  }
  return shown;
}

}  // namespace

std::string renderText(const Report& report) {
  std::size_t width = 0;
  for (const auto& result : report.results) {
    width = std::max(width, result.title.size());
  }
  std::string text;
  std::size_t passed = 0;
  for (const auto& result : report.results) {
    const Verdict& verdict = result.verdict;
    passed += verdict.passed ? 1 : 0;
    text += verdict.passed ? "✔ " : "✗ ";
    text += result.title;
    text.append(width - result.title.size() + 2, ' ');
    text += printable(verdict.reason);
    if (!verdict.passed && !verdict.fix.empty()) {
      text += ". Fix: " + printable(verdict.fix);
    }
    text += '\n';
  }
  const std::size_t total = report.results.size();
  if (passed == total) {
    text += "All " + std::to_string(total) + " checks passed.\n";
  } else {
    text += std::to_string(total - passed) + " of " + std::to_string(total) + " checks failed.\n";
  }
  return text;
}

nlohmann::ordered_json renderJson(const Report& report) {
  nlohmann::ordered_json checks = nlohmann::ordered_json::array();
  std::size_t passed = 0;
  for (const auto& result : report.results) {
    const Verdict& verdict = result.verdict;
    passed += verdict.passed ? 1 : 0;
    checks.push_back(
        {{"id", result.id},
         {"section", result.section},
         {"title", result.title},
         {"ok", verdict.passed},
         {"reason", verdict.reason},
         {"fix", verdict.passed ? nlohmann::ordered_json() : nlohmann::ordered_json(verdict.fix)},
         {"details", verdict.details}});
  }
  return {{"ok", passed == report.results.size()},
          {"passed", passed},
          {"failed", report.results.size() - passed},
          {"application", report.application},
          {"checks", std::move(checks)}};
}

}  // namespace orvanta::doctor
