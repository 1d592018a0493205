// SPDX-License-Identifier: GPL-2.0-only
#include "garden/matched_interfaces.h"

#include "platform/platform.h"

namespace captive_portal
{

void format_matched_interfaces(char (&out)[MATCHED_INTERFACES_SIZE], uint32_t is_match_wg)
{
	out[0] = '\0';
	size_t length = 0;
	for (uint32_t index = 0; index < CP_WIRELESS_INTERFACES; ++index) {
		if ((is_match_wg >> index & 1) != 0) {
			length += cp_format(out + length, sizeof(out) - length, " %d-%d",
					    static_cast<int32_t>(index / CP_VAPS_PER_RADIO + 1),
					    static_cast<int32_t>(index % CP_VAPS_PER_RADIO + 1));
		}
	}
	if ((is_match_wg >> CP_ROW_MIREL & 1) != 0) {
		cp_format(out + length, sizeof(out) - length, " MIREL");
	}
}

} // namespace captive_portal
