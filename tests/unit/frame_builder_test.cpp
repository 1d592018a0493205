// SPDX-License-Identifier: GPL-2.0-only
// The frame builder against frames written out by hand, and the checksum validator against both.
#include "tests/support/frame_builder.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/support/checksum_validator.h"
#include "tests/support/packets.h"

namespace captive_portal::test
{

namespace
{

FrameBuilder dns_answer()
{
	return frame().from(upstream_dns).to(client_of_wlan_1_1).udp(53, 40000).payload("answer");
}

Frame network_of(const Frame &frame)
{
	return {frame.begin() + 14, frame.end()};
}

} // namespace

// Checksums worked out by hand: 4500 + 0028 + 1234 + 4006 + c0a8 + 010b + cb00 + 710a = 2951f -> 9521 -> 6ade, and
// c0a8 + 010b + cb00 + 710a + 0006 + 0014 + c738 + 0050 + 03e8 + 5002 + faf0 = 41439 -> 143d -> ebc2.
TEST(FrameBuilder, BuildsATcpSyn)
{
	EXPECT_EQ(frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn().bytes(),
		  (Frame{0x02, 0x22, 0x00, 0x00, 0x00, 0xfe, 0x02, 0x11, 0x01, 0x01, 0x01, 0x00, 0x08, 0x00,
			 0x45, 0x00, 0x00, 0x28, 0x12, 0x34, 0x00, 0x00, 0x40, 0x06, 0x6a, 0xde, 0xc0, 0xa8,
			 0x01, 0x0b, 0xcb, 0x00, 0x71, 0x0a, 0xc7, 0x38, 0x00, 0x50, 0x00, 0x00, 0x03, 0xe8,
			 0x00, 0x00, 0x00, 0x00, 0x50, 0x02, 0xfa, 0xf0, 0xeb, 0xc2, 0x00, 0x00}));
}

TEST(FrameBuilder, BuildsRightChecksums)
{
	const Frame frames[] = {
		frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn(),
		frame().from(access_point).to(client_of_wlan_3_8).tcp(10081, 51000).fin_ack().payload("odd"),
		frame().from(client_of_wlan_1_1)
			.to(upstream_server)
			.ip_options(std::array<uint8_t, 4>{1, 1, 1, 0})
			.tcp_options(std::array<uint8_t, 4>{2, 4, 5, 0xb4})
			.tcp(51000, 80),
		dns_answer(),
	};
	for (const Frame &bytes : frames) {
		EXPECT_TRUE(ipv4_header_checksum_is_right(bytes));
		EXPECT_TRUE(transport_checksum_is_right(bytes));
	}
}

TEST(FrameBuilder, PutsLengthsWhereTheyBelong)
{
	const Frame udp = network_of(dns_answer());
	EXPECT_EQ(udp[2] * 256 + udp[3], 34);
	EXPECT_EQ(udp[24] * 256 + udp[25], 14);
	const Frame tcp = network_of(frame().tcp(1, 2).tcp_options(std::array<uint8_t, 4>{}).payload("abc"));
	EXPECT_EQ(tcp[2] * 256 + tcp[3], 47);
	EXPECT_EQ(tcp[32], 0x60);
}

TEST(FrameBuilder, OverridesWhatItIsTold)
{
	const Frame bytes = network_of(frame().tcp(1, 2)
					       .version(6)
					       .ihl(15)
					       .total_length(0xabcd)
					       .fragment_offset(0x1234)
					       .more_fragments()
					       .protocol(47)
					       .header_checksum(0x1122)
					       .data_offset(3)
					       .flags(0xff)
					       .transport_checksum(0x3344));
	EXPECT_EQ(bytes[0], 0x6f);
	EXPECT_EQ(bytes[2] * 256 + bytes[3], 0xabcd);
	EXPECT_EQ(bytes[6] * 256 + bytes[7], 0x3234);
	EXPECT_EQ(bytes[9], 47);
	EXPECT_EQ(bytes[10] * 256 + bytes[11], 0x1122);
	EXPECT_EQ(bytes[32], 0x30);
	EXPECT_EQ(bytes[33], 0xff);
	EXPECT_EQ(bytes[36] * 256 + bytes[37], 0x3344);
	const Frame udp = network_of(dns_answer().udp_length(7));
	EXPECT_EQ(udp[24] * 256 + udp[25], 7);
}

TEST(FrameBuilder, TagsCutsAndPads)
{
	const Frame tagged = frame().from(client_of_wlan_1_1).to(upstream_server).vlan(100).vlan(0x2007).udp(1, 2);
	EXPECT_EQ(Frame(tagged.begin() + 12, tagged.begin() + 22),
		  (Frame{0x81, 0x00, 0x00, 0x64, 0x81, 0x00, 0x20, 0x07, 0x08, 0x00}));
	EXPECT_EQ(frame().udp(1, 2).truncate(3).bytes().size(), 3u);
	EXPECT_EQ(frame().udp(1, 2).truncate_network(9).bytes().size(), 23u);
	EXPECT_EQ(frame().udp(1, 2).pad(60).bytes().size(), 60u);
	EXPECT_ANY_THROW(static_cast<void>(frame().udp(1, 2).truncate(43).bytes()));
	EXPECT_ANY_THROW(static_cast<void>(frame().udp(1, 2).ip_options(Frame(3, 0)).bytes()));
}

TEST(FrameBuilder, BuildsOtherProtocols)
{
	const Frame ping = network_of(frame().from(client_of_wlan_1_1).to(access_point).icmp(8));
	EXPECT_EQ(Frame(ping.begin() + 20, ping.end()), (Frame{8, 0, 0xf7, 0xfd, 0, 1, 0, 1}));
	EXPECT_EQ(ping[9], 1);

	const Frame arp = frame().from(client_of_wlan_1_1).to(access_point).arp();
	EXPECT_EQ(arp.size(), 42u);
	EXPECT_EQ(Frame(arp.begin() + 12, arp.begin() + 22), (Frame{0x08, 0x06, 0, 1, 8, 0, 6, 4, 0, 1}));
	EXPECT_EQ(Frame(arp.begin() + 38, arp.end()), (Frame{192, 168, 1, 1}));

	const Frame ipv6 = frame().from(client_of_wlan_1_1).to(access_point).ipv6(17).payload("12345678");
	EXPECT_EQ(Frame(ipv6.begin() + 12, ipv6.begin() + 22), (Frame{0x86, 0xdd, 0x60, 0, 0, 0, 0, 8, 17, 64}));
	EXPECT_EQ(ipv6.size(), 14u + 40 + 8);

	EXPECT_EQ(frame().ether_type(0x888e).network_bytes(Frame{1, 2, 3}).bytes().size(), 17u);
}

// Each single flipped bit of a checked range is seen.
TEST(ChecksumValidator, SeesEveryFlippedBit)
{
	const Frame right = frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).payload("payload");
	for (size_t byte = 14; byte < right.size(); ++byte) {
		// The header length and the total length would only change where it looks.
		if (byte == 14 || byte == 16 || byte == 17) {
			continue;
		}
		for (unsigned bit = 0; bit < 8; ++bit) {
			Frame wrong = right;
			wrong[byte] = static_cast<uint8_t>(wrong[byte] ^ 1u << bit);
			EXPECT_FALSE(ipv4_header_checksum_is_right(wrong) && transport_checksum_is_right(wrong))
				<< byte;
		}
	}
}

TEST(ChecksumValidator, AcceptsEachKindOfPacketUntouched)
{
	const Frame right = frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).payload("payload");
	for (const auto state : {host::ChecksumState::finished, host::ChecksumState::verified,
				 host::ChecksumState::complete, host::ChecksumState::partial}) {
		const host::PacketBuffer packet = packet_of(right, state);
		EXPECT_TRUE(checksums_are_right(packet));
		EXPECT_EQ(frame_on_wire(packet), right);
	}
}

TEST(ChecksumValidator, CutsALargePacketAsTheStackDoes)
{
	const auto segment = [](size_t bytes) {
		return frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).payload(Frame(bytes, 'x'));
	};
	const std::vector<Frame> segments =
		segments_on_wire(packet_of(segment(250), host::ChecksumState::partial), 100);
	ASSERT_EQ(segments.size(), 3u);
	// The first is what the builder makes of it; the later ones differ in their sequence numbers.
	EXPECT_EQ(segments[0], segment(100).bytes());
	EXPECT_EQ(segments[1][14 + 20 + 6] * 256 + segments[1][14 + 20 + 7], 1100);
	for (const Frame &piece : segments) {
		EXPECT_TRUE(ipv4_header_checksum_is_right(piece));
		EXPECT_TRUE(transport_checksum_is_right(piece));
	}
}

TEST(ChecksumValidator, RefusesWhatIsNoWholePacket)
{
	EXPECT_ANY_THROW(static_cast<void>(ipv4_header_checksum_is_right(frame().tcp(1, 2).ihl(4))));
	EXPECT_ANY_THROW(static_cast<void>(transport_checksum_is_right(frame().tcp(1, 2).total_length(41))));
	EXPECT_ANY_THROW(static_cast<void>(transport_checksum_is_right(frame().tcp(1, 2).truncate(20))));
}

} // namespace captive_portal::test
