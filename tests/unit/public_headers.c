/* SPDX-License-Identifier: GPL-2.0-only */
/* The interface read by a C11 compiler: what it says of sizes and constants must not depend on the language. */
#include "captive_portal/captive_portal.h"

#include "tests/unit/public_headers.h"

const struct seen_by_c seen_by_c = {
	.cp_cmd = sizeof(struct cp_cmd),
	.cp_status = sizeof(struct cp_status),
	.wg_rule = sizeof(struct wg_rule),
	.wg_cmd = sizeof(struct wg_cmd),
	.gk_cmd = sizeof(struct gk_cmd),
	.gk_list_reply = sizeof(struct gk_list_reply),
	.gk_check_reply = sizeof(struct gk_check_reply),
	.last_reputation_mark = MARK_REPUTATION_LAST,
	.device_path = CP_DEVICE_PATH,
};

uint32_t c_interface_mark(uint32_t index)
{
	return cp_interface_mark(index);
}

uint16_t c_https_port(uint32_t index)
{
	return cp_https_port(index);
}

uint32_t c_owe_index(uint32_t radio, uint32_t vap)
{
	return cp_owe_index(radio, vap);
}
