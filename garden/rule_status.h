// SPDX-License-Identifier: GPL-2.0-only
// What the status files say of the walled gardens' rules.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

// One line for each rule of row 0..27, in their order. Takes walledgarden_lock.
void write_row_rules(uint32_t row, cp_status_text *out);
// One line for each default rule that is used. Takes walledgarden_lock.
void write_default_rules(cp_status_text *out);

// " garden=VALUE rules=COUNT" of a row, 0..27. Takes walledgarden_lock.
void write_garden_state(uint32_t row, cp_status_text *out);

} // namespace captive_portal
