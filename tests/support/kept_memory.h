// SPDX-License-Identifier: GPL-2.0-only
// What a stop deliberately leaves in memory: the kinds of lab/guest/kept-memory.json, and nothing else.
#pragma once

#include <string>
#include <vector>

#include "platform/host/machine.h"

namespace captive_portal::test
{

struct KeptKind {
	std::string name;
	size_t bytes;
	std::string reason;
};

// As the file has them.
[[nodiscard]] const std::vector<KeptKind> &kept_kinds();

// Of a machine whose module has stopped: fails the running test when memory is still in use that is of no kept kind, or more
// or less of a kind than the lists hold.
void expect_only_kept_memory(const host::Machine &machine);

} // namespace captive_portal::test
