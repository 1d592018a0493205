/* SPDX-License-Identifier: GPL-2.0-only */
/* The library's header is C99 to the letter, alone and twice, and its functions have C's linkage. */
#include "captiveportal.h"

int library_header_in_c(uint32_t *row, size_t *sizes);

int library_header_in_c(uint32_t *row, size_t *sizes)
{
	sizes[0] = sizeof(struct captiveportal_mac);
	sizes[1] = sizeof(struct captiveportal_rule);
	sizes[2] = sizeof(struct captiveportal_garden);
	sizes[3] = sizeof(struct captiveportal_status);
	return captiveportal_parse_interface("wlan-2-3", row);
}
