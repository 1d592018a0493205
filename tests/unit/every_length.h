// SPDX-License-Identifier: GPL-2.0-only
// A good frame, cut at every length. What must come of each length is worked out by hand, as ranges of lengths.
#pragma once

#include <algorithm>
#include <vector>

#include "tests/support/packets.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

// Frames of `first` bytes and more, up to the next range.
struct LengthRange {
	size_t first;
	cp_verdict verdict;
	bool rewritten = false;
	// What is recorded afterwards.
	std::vector<Connection> connections = {};
};

// Lengths of a frame up to the end of a field, counted from the start of the Ethernet header of an IPv4 packet without
// options.
enum Length : size_t {
	nothing = 0,
	with_ether_type = 14,
	with_protocol = 24,
	with_source_address = 30,
	with_destination_address = 34,
	with_source_port = 36,
	with_destination_port = 38,
	with_tcp_flags = 48,
	with_tcp_checksum = 52,
};

// Runs the hook on the frame's first 0, 1, 2 ... bytes, on a fresh machine each, at debug level 3 so that every line's
// arguments are read too. `whole_out` is the whole frame as a rewrite leaves it; of a cut frame, the rewrite leaves as many
// bytes of that, since the checksum is fixed for what changed and not made anew.
inline void expect_at_every_length(host::HookFunction hook, const Frame &whole, uint32_t mark, const State &state,
				   const std::vector<LengthRange> &ranges, const Frame &whole_out = {})
{
	ASSERT_FALSE(ranges.empty());
	ASSERT_EQ(ranges.front().first, 0u);
	for (size_t length = 0; length <= whole.size(); ++length) {
		SCOPED_TRACE(std::to_string(length) + " bytes");
		const LengthRange &range = *std::prev(
			std::upper_bound(ranges.begin(), ranges.end(), length,
					 [](size_t value, const LengthRange &other) { return value < other.first; }));
		host::Machine machine;
		build_access_point(machine);
		load_module(machine);
		if (state) {
			state(machine);
		}
		set_debug_level(machine, 3);

		const Frame cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
		host::PacketBuffer packet(cut);
		packet.mark = mark;
		if (hook == nf_cp_check) {
			packet.in_name = "wlan-1-1";
		} else {
			packet.out_name = "wlan-1-1";
		}
		EXPECT_EQ(host::run_hook(hook, packet), range.verdict);
		EXPECT_EQ(packet.mark, mark);
		if (range.rewritten) {
			ASSERT_EQ(whole_out.size(), whole.size());
			EXPECT_EQ(packet.frame(),
				  Frame(whole_out.begin(), whole_out.begin() + static_cast<ptrdiff_t>(length)));
		} else {
			EXPECT_EQ(packet.frame(), cut);
		}
		EXPECT_EQ(connections(), range.connections);
		expect_nothing_lost(machine);
	}
}

} // namespace captive_portal::test
