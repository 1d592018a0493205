// SPDX-License-Identifier: GPL-2.0-only
#include "portal/redirect.h"

#include "portal/interface_table.h"
#include "tests/support/checksum_validator.h"
#include "tests/support/host_test.h"
#include "tests/support/packets.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

class Redirect : public HostTest
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		load_module();
	}

	// Runs `call` on the packet as a hook would.
	template <typename Call> static bool run(host::PacketBuffer &buffer, Call call)
	{
		host::PacketView view(buffer);
		Packet packet(view.seam());
		const bool result = call(packet);
		view.finish();
		return result;
	}
};

void learn(Ipv4Address address, const Mac &mac)
{
	ap_addr = address;
	store_ap_mac(MacAddress::from(mac.data()));
}

TEST_F(Redirect, LearnsTheFirstAddressOfBr0AndTheMacOfTheBridgeAtHand)
{
	machine.devices.put(
		"br0", {.mac = {2, 0, 0, 0, 0, 1}, .ipv4 = {{ipv4(192, 168, 7, 1).raw, ipv4(192, 168, 7, 2).raw}}});
	machine.devices.put("br1", {.mac = {2, 0, 0, 0, 0, 2}, .ipv4 = {{ipv4(192, 168, 8, 1).raw}}});
	EXPECT_EQ(refresh_ap_identity("br1"), Identity::refreshed);
	EXPECT_EQ(ap_addr, ipv4(192, 168, 7, 1));
	EXPECT_EQ(load_ap_mac(), (MacAddress{{2, 0, 0, 0, 0, 2}}));
	EXPECT_EQ(refresh_ap_identity("br0"), Identity::refreshed);
	EXPECT_EQ(load_ap_mac(), (MacAddress{{2, 0, 0, 0, 0, 1}}));
}

TEST_F(Redirect, KnowsNobodyWithoutBr0OrTheBridgeOrAnIpv4Configuration)
{
	learn(ipv4(192, 168, 9, 9), {2, 9, 9, 9, 9, 9});
	EXPECT_EQ(refresh_ap_identity("br1"), Identity::unknown) << "no bridge of that name";
	machine.devices.put("br0", {.mac = access_point.mac});
	EXPECT_EQ(refresh_ap_identity("br0"), Identity::unknown) << "no IPv4 configuration";
	machine.devices.remove("br0");
	machine.devices.put("br1", {.mac = {2, 0, 0, 0, 0, 2}, .ipv4 = {{ipv4(192, 168, 8, 1).raw}}});
	EXPECT_EQ(refresh_ap_identity("br1"), Identity::unknown) << "no br0";
	EXPECT_EQ(ap_addr, ipv4(192, 168, 9, 9));
	EXPECT_EQ(load_ap_mac(), (MacAddress{{2, 9, 9, 9, 9, 9}}));
}

TEST_F(Redirect, KeepsBothOldAddressesWhenBr0HasNone)
{
	learn(ipv4(192, 168, 9, 9), {2, 9, 9, 9, 9, 9});
	machine.devices.put("br0", {.mac = access_point.mac, .ipv4 = std::vector<uint32_t>{}});
	EXPECT_EQ(refresh_ap_identity("br0"), Identity::unchanged);
	EXPECT_EQ(ap_addr, ipv4(192, 168, 9, 9));
	EXPECT_EQ(load_ap_mac(), (MacAddress{{2, 9, 9, 9, 9, 9}}));
}

// Worked out by hand: addresses, ports and checksums of a SYN from 192.168.1.11:51000 to 203.0.113.10:80, sent on to
// 192.168.1.1:10081.
TEST_F(Redirect, RewritesTheFrameByteForByte)
{
	const Frame before = {
		0x02, 0x22, 0x00, 0x00, 0x00, 0xfe, 0x02, 0x11, 0x01, 0x01, 0x01, 0x00, 0x08, 0x00, // Ethernet
		0x45, 0x00, 0x00, 0x28, 0x12, 0x34, 0x00, 0x00, 0x40, 0x06, 0x6a, 0xde, 0xc0, 0xa8, 0x01, 0x0b, // IPv4
		0xcb, 0x00, 0x71, 0x0a,                                                                         //
		0xc7, 0x38, 0x00, 0x50, 0x00, 0x00, 0x03, 0xe8, 0x00, 0x00, 0x00, 0x00, 0x50, 0x02, 0xfa, 0xf0, // TCP
		0xeb, 0xc2, 0x00, 0x00,
	};
	const Frame after = {
		0x02, 0xaa, 0x00, 0x00, 0x00, 0x01, 0x02, 0x11, 0x01, 0x01, 0x01, 0x00, 0x08, 0x00, // Ethernet
		0x45, 0x00, 0x00, 0x28, 0x12, 0x34, 0x00, 0x00, 0x40, 0x06, 0xe5, 0x3f, 0xc0, 0xa8, 0x01, 0x0b, // IPv4
		0xc0, 0xa8, 0x01, 0x01,                                                                         //
		0xc7, 0x38, 0x27, 0x61, 0x00, 0x00, 0x03, 0xe8, 0x00, 0x00, 0x00, 0x00, 0x50, 0x02, 0xfa, 0xf0, // TCP
		0x3f, 0x13, 0x00, 0x00,
	};
	learn(ipv4(192, 168, 1, 1), access_point.mac);
	host::PacketBuffer packet = packet_of(before);
	EXPECT_TRUE(run(packet, [](Packet &p) { return redirect_to_ap(p, 10081); }));
	EXPECT_EQ(packet.frame(), after);
	EXPECT_EQ(packet.type, host::PacketType::host);
}

TEST_F(Redirect, ClearsEveryPacketTypeToHost)
{
	learn(ipv4(192, 168, 1, 1), access_point.mac);
	for (const host::PacketType type : {host::PacketType::host, host::PacketType::broadcast,
					    host::PacketType::multicast, host::PacketType::other_host}) {
		host::PacketBuffer packet =
			packet_of(frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn());
		packet.type = type;
		EXPECT_TRUE(run(packet, [](Packet &p) { return redirect_to_ap(p, 82); }));
		EXPECT_EQ(packet.type, host::PacketType::host);
	}
}

TEST_F(Redirect, LeavesThePacketAloneWhenItCannotBeMadeWritable)
{
	learn(ipv4(192, 168, 1, 1), access_point.mac);
	const Frame before = frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn();
	host::PacketBuffer packet = packet_of(before);
	packet.fail_make_writable = true;
	EXPECT_FALSE(run(packet, [](Packet &p) { return redirect_to_ap(p, 82); }));
	EXPECT_EQ(packet.frame(), before);
	EXPECT_EQ(packet.type, host::PacketType::other_host);
}

// The TCP checksum is fixed for what changed and never made anew: a segment that was damaged on its way stays damaged.
// 0x1234 becomes 0x6584 by RFC 1624: HC' = ~(~HC + ~m + m') over 203.0.113.10 -> 192.168.1.1 and 80 -> 10081.
TEST_F(Redirect, KeepsAWrongTcpChecksumWrong)
{
	learn(ipv4(192, 168, 1, 1), access_point.mac);
	host::PacketBuffer packet = packet_of(
		frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn().transport_checksum(0x1234));
	EXPECT_TRUE(run(packet, [](Packet &p) { return redirect_to_ap(p, 10081); }));
	EXPECT_EQ(packet.frame(), Frame(frame().from(client_of_wlan_1_1)
						.to(access_point)
						.tcp(51000, 10081)
						.syn()
						.transport_checksum(0x6584)));
	EXPECT_FALSE(transport_checksum_is_right(packet.frame()));
}

// That of the IPv4 header is computed over the whole header, so a wrong one is mended.
TEST_F(Redirect, MendsAWrongIpv4HeaderChecksum)
{
	learn(ipv4(192, 168, 1, 1), access_point.mac);
	host::PacketBuffer packet = packet_of(
		frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn().header_checksum(0xdead));
	EXPECT_TRUE(run(packet, [](Packet &p) { return redirect_to_ap(p, 10081); }));
	EXPECT_EQ(packet.frame(), Frame(frame().from(client_of_wlan_1_1).to(access_point).tcp(51000, 10081).syn()));
}

TEST_F(Redirect, CountsOnlyTheTwoWebPorts)
{
	for (uint32_t port = 0; port <= 65535; ++port) {
		ASSERT_EQ(is_web_port(be16::from_host(static_cast<uint16_t>(port))), port == 80 || port == 443) << port;
	}
}

} // namespace

} // namespace captive_portal::test
