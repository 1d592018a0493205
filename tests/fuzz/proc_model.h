// SPDX-License-Identifier: GPL-2.0-only
// What reads and writes of the proc file do, worked out on values: a second opinion.
#pragma once

#include <string>

#include "tests/fuzz/module_state.h"

namespace captive_portal::test
{

// A write whose first bytes, at most 19, are `text`, of `count` bytes in all: its result; a good one changes the state.
[[nodiscard]] long apply_write(ModuleState &state, const std::string &text, size_t count);

// What one read with room for `length` bytes lists; marks what it listed.
[[nodiscard]] std::string apply_read(ModuleState &state, size_t length);

// A name that resolved to an address. One allocation may fail, 1 the first; 0: none.
void apply_answer(ModuleState &state, uint32_t mask, const std::string &name, uint32_t address, int64_t deadline,
		  uint32_t failing_allocation = 0);
// A pass of the expiry thread.
void apply_expiry(ModuleState &state, int64_t now);

} // namespace captive_portal::test
