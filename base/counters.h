// SPDX-License-Identifier: GPL-2.0-only
// Counts of what becomes of frames, kept where that is decided: one counter for each row and reason on each processor, so
// that nobody waits for anybody.
#pragma once

#include "base/field.h"
#include "captive_portal/reasons.h"
#include "platform/platform.h"

namespace captive_portal
{

inline constexpr size_t counter_count = size_t{CP_REASON_COUNT} * CP_COUNTER_ROWS;

// Row 0..27, or CP_COUNTER_ROW_OTHER. A reason's rows lie together: where the reason is a constant, this is one addition.
[[nodiscard]] constexpr size_t counter_of(uint32_t row, cp_reason reason)
{
	return size_t{reason} * CP_COUNTER_ROWS + row;
}

// What a counter counts, for whoever keeps them.
[[nodiscard]] constexpr uint32_t row_of_counter(size_t counter)
{
	return static_cast<uint32_t>(counter % CP_COUNTER_ROWS);
}
[[nodiscard]] constexpr cp_reason reason_of_counter(size_t counter)
{
	return static_cast<cp_reason>(counter / CP_COUNTER_ROWS);
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
