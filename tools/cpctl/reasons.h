// SPDX-License-Identifier: GPL-2.0-only
// What the module counts, by number: the names in the status files, and sentences for people.
#pragma once

#include <array>
#include <string_view>

#include "captive_portal/reasons.h"

namespace cpctl
{

struct Reason {
	std::string_view name;
	std::string_view sentence;
};

inline constexpr std::array<Reason, CP_REASON_COUNT> reasons = {{
#define CPCTL_REASON(enumerator, name, sentence) {name, sentence},
	CP_REASONS(CPCTL_REASON)
#undef CPCTL_REASON
}};

// Null for a reason that is newer than this cpctl.
[[nodiscard]] constexpr const Reason *find_reason(std::string_view name)
{
	for (const Reason &reason : reasons) {
		if (reason.name == name) {
			return &reason;
		}
	}
	return nullptr;
}

} // namespace cpctl
