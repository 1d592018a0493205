// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/kept_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

namespace captive_portal::test
{

const std::vector<KeptKind> &kept_kinds()
{
	static const std::vector<KeptKind> kinds = [] {
		std::ifstream file(KEPT_MEMORY);
		std::vector<KeptKind> read;
		for (const nlohmann::json &kind : nlohmann::json::parse(file)) {
			read.push_back({kind.at("name"), kind.at("bytes"), kind.at("reason")});
		}
		return read;
	}();
	return kinds;
}

void expect_only_kept_memory(const host::Machine &machine)
{
	for (const host::Allocation &allocation : machine.live_allocations()) {
		EXPECT_TRUE(std::any_of(kept_kinds().begin(), kept_kinds().end(),
					[&](const KeptKind &kind) { return kind.bytes == allocation.size; }))
			<< "left after the stop: allocation number " << allocation.number << " of " << allocation.size
			<< " bytes";
	}
}

} // namespace captive_portal::test
