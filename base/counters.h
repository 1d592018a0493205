// SPDX-License-Identifier: GPL-2.0-only
// Counts of what becomes of frames, kept where that is decided: one counter for each row and reason on each processor, so
// that nobody waits for anybody.
#pragma once

#include "base/field.h"
#include "captive_portal/reasons.h"
#include "platform/platform.h"

namespace captive_portal
{

// Row 0..27, or CP_COUNTER_ROW_OTHER.
[[nodiscard]] constexpr uint32_t counter_of(uint32_t row, cp_reason reason)
{
	return row * CP_REASON_COUNT + reason;
}

inline void count(uint32_t row, cp_reason reason)
{
	cp_count(counter_of(row, reason));
}

// For a hook's last step.
[[nodiscard]] inline cp_verdict accept(uint32_t row, cp_reason reason)
{
	return cp_count_and_accept(counter_of(row, reason));
}
[[nodiscard]] inline cp_verdict drop(uint32_t row, cp_reason reason)
{
	return cp_count_and_drop(counter_of(row, reason));
}

} // namespace captive_portal
