// SPDX-License-Identifier: GPL-2.0-only
// The patterns of walled-garden domain rules.
#pragma once

#include "base/text.h"

namespace captive_portal
{

// True when the pattern, at most 127 characters, matches the domain, case-sensitively. Without "*" and "?" it must
// equal the domain. Both signs mean the same, any run of characters, none included; pieces between them are placed
// left-most and never retried, see captive_portal/walled_garden.h. A pattern with a sign and another character is worked
// on in a copy: false when there is no memory for it. A domain with text left over is logged at debug level 3. Any
// context, any lock held.
[[nodiscard]] bool pattern_matches(Text pattern, Text domain);

// The same in place: it needs no memory and cannot fail for want of it.
[[nodiscard]] bool pattern_matches_in_place(Text pattern, Text domain);

[[nodiscard]] constexpr bool is_wildcard(char character)
{
	return character == '*' || character == '?';
}

} // namespace captive_portal
