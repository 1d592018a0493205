// SPDX-License-Identifier: GPL-2.0-only
// Packet cases as rows: a frame, the state that it meets, and what must come of it.
//
//	const PacketCase cases[] = {{
//		.description = "HTTP SYN of an unadmitted client is redirected to the interface's port",
//		.frame = frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn(),
//		.device = "wlan-1-1",
//		.mark_in = 5200,
//		.state = [](host::Machine &machine) { ... },
//		.verdict = CP_ACCEPT,
//		.mark = 5200,
//		.frame_out = frame().from(client_of_wlan_1_1).to(access_point).tcp(51000, 10081).syn(),
//		.to_host = true,
//	}};
//	INSTANTIATE_TEST_SUITE_P(Redirects, PreRoutingCheckRow, ::testing::ValuesIn(cases), packet_case_name);
//	TEST_P(PreRoutingCheckRow, GivesVerdictMarkAndFrame) { run_packet_case(nf_cp_check, GetParam()); }
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/host/machine.h"
#include "tests/support/frame_builder.h"

namespace captive_portal::test
{

enum class HookPoint { pre_routing, post_routing };

struct PacketCase {
	std::string description;
	Frame frame;
	HookPoint point = HookPoint::pre_routing;
	// Ingress device at pre-routing, egress device at post-routing.
	std::string device;
	uint32_t mark_in = 0;
	// Makes the state on a fresh machine with build_access_point()'s devices and the module loaded. Its log lines are
	// forgotten.
	std::function<void(host::Machine &)> state = {};
	bool fail_make_writable = false;

	cp_verdict verdict = CP_ACCEPT;
	uint32_t mark = 0;
	// Absent: the bytes that came in.
	std::optional<Frame> frame_out = {};
	// The packet is for this machine now; else its type stays as it was.
	bool to_host = false;
	// Exactly these lines, in this order.
	std::vector<host::LogLine> log = {};
	// Looks at the state afterwards.
	std::function<void(host::Machine &)> afterwards = {};
};

std::ostream &operator<<(std::ostream &stream, const PacketCase &row);
// The description in letters and digits, with its number so that no two are equal.
[[nodiscard]] std::string packet_case_name(const ::testing::TestParamInfo<PacketCase> &info);

// Runs the row once for each way in which a packet may come: linear or with its payload elsewhere, alone or with its
// data shared, and, where it is rewritten, with each kind of checksum. Each run has a machine of its own, so the test
// must not have one. All must give the same; a rewritten packet must have right checksums, and must not show in a clone.
void run_packet_case(host::HookFunction hook, const PacketCase &row);

class PacketCaseTest : public ::testing::TestWithParam<PacketCase>
{
};

} // namespace captive_portal::test
