// SPDX-License-Identifier: GPL-2.0-only
// What the tests of the DNS parser share: a machine with empty tables and a clock that stands still.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "base/debug_level.h"
#include "garden/arecord_table.h"
#include "garden/dns_parser.h"
#include "tests/unit/dns_messages.h"
#include "tests/unit/garden_records.h"

namespace captive_portal::test
{

inline constexpr int64_t start_time = 1'000'000;

class DnsParserFixture : public HostTest
{
protected:
	DnsParserFixture()
	{
		init_walled_garden_table();
		debug_level = 3;
		machine.clock.set(start_time);
	}

	// Parses the message in memory of exactly its size.
	int32_t parse(const Bytes &message)
	{
		message_ = Bytes(message.begin(), message.end());
		const int32_t result = parse_dns(message_.data(), static_cast<int32_t>(message_.size()));
		EXPECT_EQ(message_, message) << "the message was changed";
		return result;
	}

	// The byte at `offset` of the message parsed last, as the log prints its address.
	[[nodiscard]] std::string at(size_t offset) const { return pointer_text(message_.data() + offset); }

	// Makes the pattern the only rule of the row.
	static void permit(std::string_view pattern, int32_t row)
	{
		ASSERT_EQ(WgRecord(UPDATE_RULE, row, 1).domain(pattern).write(), 0);
	}

	// Empties the cache and the log.
	void forget()
	{
		empty_cache();
		machine.log.clear();
	}

	static void expect_stored(const std::vector<Stored> &expected) { EXPECT_EQ(stored_addresses(), expected); }
	static void expect_nothing_stored() { expect_stored({}); }

private:
	Bytes message_;
};

} // namespace captive_portal::test
