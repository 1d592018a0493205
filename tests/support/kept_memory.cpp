// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/kept_memory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/support/tables_text.h"

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

namespace
{

// How many of the kind the stop has left in the lists.
[[nodiscard]] size_t listed_of(const KeptKind &kind)
{
	if (kind.name == "client") {
		return listed_clients();
	}
	if (kind.name == "connection") {
		return listed_connections();
	}
	ADD_FAILURE() << "no list holds " << kind.name;
	return 0;
}

} // namespace

void expect_only_kept_memory(const host::Machine &machine)
{
	std::vector<host::Allocation> left = machine.live_allocations();
	for (const KeptKind &kind : kept_kinds()) {
		const auto of_its_size = [&](const host::Allocation &allocation) {
			return allocation.size == kind.bytes;
		};
		EXPECT_EQ(std::erase_if(left, of_its_size), listed_of(kind))
			<< "left after the stop, of " << kind.bytes << " bytes, and in the lists as " << kind.name;
	}
	for (const host::Allocation &allocation : left) {
		ADD_FAILURE() << "left after the stop: allocation number " << allocation.number << " of "
			      << allocation.size << " bytes";
	}
}

} // namespace captive_portal::test
