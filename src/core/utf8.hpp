#pragma once

#include <string>
#include <string_view>

// The kit's one rule for text that comes from the host (event names, parameter keys and values,
// profile fields, custom parameters, the push token): it is repaired where it enters, each
// ill-formed sequence replaced by U+FFFD, so that every record the kit keeps or sends can be
// written as JSON. docs/records.md describes the rule.

namespace orvanta {

/// True when `text` is well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF,
/// nothing cut short).
bool isValidUtf8(std::string_view text);

/// `text` with every ill-formed sequence replaced by U+FFFD (EF BF BD), one replacement for each
/// maximal subpart of an ill-formed sequence, as the Unicode standard recommends and as the
/// platforms' decoders do: "\xE2\x82" (a character cut short) becomes one U+FFFD, "\xC0\xAF" (an
/// overlong form) two. Well-formed text comes back unchanged. Any thread.
std::string repairedUtf8(std::string_view text);

/// Repairs `text` in place as `repairedUtf8` does; true when anything was replaced. Costs one scan
/// when the text is well formed.
bool repairUtf8(std::string& text);

}  // namespace orvanta
