// SPDX-License-Identifier: GPL-2.0-only
// What the status files are made of: lines of a keyword and "key=value" pairs, one blank between them. Values never hold a
// blank: what was stored as text is escaped.
#pragma once

#include "base/byte_order.h"
#include "base/mac_address.h"
#include "base/text.h"
#include "captive_portal/reasons.h"
#include "platform/platform.h"

namespace captive_portal
{

// " key=" and the text. Blanks, backslashes and all that is not printable ASCII appear as a backslash and three octal
// digits, as in /proc/mounts.
void print_text(cp_status_text *out, const char *key, Text text);

// " key=" and the address as a dotted quad.
void print_address(cp_status_text *out, const char *key, Ipv4Address address);

// " key=" and the address in lower case, with colons.
void print_mac(cp_status_text *out, const char *key, const MacAddress &mac);

// " key=wlan-R-V" of a row, or the name of one of the special rows: "special-mark", "mode-7", "social-login", "mirel",
// and "other" for what belongs to none.
void print_row_name(cp_status_text *out, const char *key, uint32_t row);

} // namespace captive_portal
