// SPDX-License-Identifier: GPL-2.0-only
// The runner of packet rows: that a row which is wrong in one point fails.
#include "tests/support/packet_case.h"

#include <gtest/gtest-spi.h>

#include "base/packet.h"

namespace captive_portal::test
{

namespace
{

// Sends TCP to the access point's port 7777 and marks it, drops UDP to port 9, and says what it does.
cp_verdict hook(cp_packet *seam, const cp_ports *)
{
	Packet packet(seam);
	if (packet.protocol() == IpProtocol::udp) {
		cp_log(CP_LOG_DEBUG, "udp\n");
		return packet.destination_port() == be16::from_host(9) ? CP_DROP : CP_ACCEPT;
	}
	packet.set_mark(42);
	if (!packet.make_writable([](WritablePacket &writable) {
		    writable.write_destination(access_point.address, be16::from_host(7777));
		    writable.finish_ipv4_header();
		    writable.write_destination_mac(MacAddress::from(access_point.mac.data()));
		    writable.set_host();
	    })) {
		return CP_DROP;
	}
	return CP_ACCEPT;
}

PacketCase redirect()
{
	return {
		.description = "TCP goes to port 7777",
		.frame = frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).payload(Frame(99, 'x')),
		.device = "wlan-1-1",
		.verdict = CP_ACCEPT,
		.mark = 42,
		.frame_out = frame().from(client_of_wlan_1_1).to(access_point).tcp(51000, 7777).payload(Frame(99, 'x')),
		.to_host = true,
	};
}

PacketCase drop()
{
	return {
		.description = "UDP to port 9 is dropped",
		.frame = frame().from(client_of_wlan_1_1).to(upstream_server).udp(1, 9),
		.device = "wlan-1-1",
		.verdict = CP_DROP,
		.log = {{CP_LOG_DEBUG, "udp\n"}},
	};
}

// Runs the row and tells whether it failed.
bool fails(const PacketCase &row)
{
	::testing::TestPartResultArray results;
	{
		const ::testing::ScopedFakeTestPartResultReporter reporter(
			::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
		run_packet_case(hook, row);
	}
	return results.size() != 0;
}

} // namespace

TEST(PacketCaseRunner, PassesRightRows)
{
	run_packet_case(hook, redirect());
	run_packet_case(hook, drop());
	EXPECT_FALSE(fails(redirect()));
}

TEST(PacketCaseRunner, FailsForAnotherVerdict)
{
	PacketCase row = drop();
	row.verdict = CP_ACCEPT;
	EXPECT_TRUE(fails(row));
}

TEST(PacketCaseRunner, FailsForAnotherMark)
{
	PacketCase row = redirect();
	row.mark = 0;
	EXPECT_TRUE(fails(row));
}

TEST(PacketCaseRunner, FailsForAnotherFrame)
{
	PacketCase row = redirect();
	row.frame_out->back() ^= 1;
	EXPECT_TRUE(fails(row));
	row = redirect();
	row.frame_out.reset();
	EXPECT_TRUE(fails(row));
	row = drop();
	row.frame_out = redirect().frame_out;
	row.frame = redirect().frame;
	EXPECT_TRUE(fails(row));
}

TEST(PacketCaseRunner, FailsForAnotherPacketType)
{
	PacketCase row = redirect();
	row.to_host = false;
	EXPECT_TRUE(fails(row));
}

TEST(PacketCaseRunner, FailsForAnotherLog)
{
	PacketCase row = drop();
	row.log.clear();
	EXPECT_TRUE(fails(row));
	row.log = {{CP_LOG_ERR, "udp\n"}};
	EXPECT_TRUE(fails(row));
}

TEST(PacketCaseRunner, MakesStateAndLooksAtItAfterwards)
{
	unsigned made = 0;
	unsigned looked = 0;
	PacketCase row = redirect();
	row.state = [&](host::Machine &machine) {
		++made;
		machine.log.write(CP_LOG_DEBUG, "forgotten");
		EXPECT_TRUE(machine.is_loaded());
		EXPECT_TRUE(machine.devices.find("br0").has_value());
	};
	row.afterwards = [&](host::Machine &) { ++looked; };
	run_packet_case(hook, row);
	EXPECT_EQ(made, 6u);
	EXPECT_EQ(looked, 6u);
}

TEST(PacketCaseRunner, OrdersThePacketNotToBecomeWritable)
{
	PacketCase row = redirect();
	row.fail_make_writable = true;
	row.verdict = CP_DROP;
	row.frame_out.reset();
	row.to_host = false;
	run_packet_case(hook, row);
}

TEST(PacketCaseName, IsMadeOfTheDescriptionsWords)
{
	EXPECT_EQ(packet_case_name({redirect(), 3}), "TCPGoesToPort7777_3");
}

} // namespace captive_portal::test
