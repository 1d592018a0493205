// SPDX-License-Identifier: GPL-2.0-only
#include "base/packet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>

#include "tests/support/checksum_validator.h"
#include "tests/support/frame_builder.h"
#include "tests/support/packets.h"

namespace captive_portal::test
{

namespace
{

using host::Layout;
using host::PacketBuffer;
using host::PacketView;

// A reader over a packet that lives as long as it.
class Reader
{
public:
	explicit Reader(const Frame &frame, Layout layout = Layout::linear)
	    : buffer_(frame, layout), view_(buffer_), packet(view_.seam())
	{
	}

private:
	PacketBuffer buffer_;
	PacketView view_;

public:
	Packet packet;
};

MacAddress mac(const Mac &bytes)
{
	return MacAddress::from(bytes.data());
}

Frame http_syn()
{
	return frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn();
}

// Behind the Ethernet header: byte i is i, but the first, which is version 4 with this header length, and the fragment
// word.
Frame numbered_bytes(uint8_t ihl, uint16_t fragment = 0, size_t size = 80)
{
	Frame bytes(size < 8 ? 8 : size);
	std::iota(bytes.begin(), bytes.end(), uint8_t{0});
	bytes[0] = static_cast<uint8_t>(0x40 | ihl);
	bytes[6] = static_cast<uint8_t>(fragment >> 8);
	bytes[7] = static_cast<uint8_t>(fragment);
	bytes.resize(size);
	return frame().network_bytes(bytes);
}

} // namespace

TEST(Packet, ReadsTheFieldsOfATcpSegment)
{
	const Reader reader(http_syn());
	const Packet &packet = reader.packet;
	EXPECT_TRUE(packet.destination_mac() == mac(upstream_server.mac));
	EXPECT_TRUE(packet.source_mac_word() == mac(client_of_wlan_1_1.mac).word());
	EXPECT_TRUE(packet.ether_type() == EtherType::ipv4);
	EXPECT_TRUE(packet.ip_version() == uint8_t{4});
	EXPECT_TRUE(packet.protocol() == IpProtocol::tcp);
	EXPECT_TRUE(packet.source_address() == ipv4(192, 168, 1, 11));
	EXPECT_TRUE(packet.destination_address() == ipv4(203, 0, 113, 10));
	EXPECT_TRUE(packet.source_port() == be16::from_host(51000));
	EXPECT_TRUE(packet.destination_port() == be16::from_host(80));
	EXPECT_TRUE(packet.tcp_flags().value().syn());
	EXPECT_TRUE(packet.is_rewritable());
}

// Each length from nothing to a whole segment and its payload, in a block of exactly that length.
class PacketCutTo : public ::testing::TestWithParam<size_t>
{
};

INSTANTIATE_TEST_SUITE_P(Bytes, PacketCutTo, ::testing::Range<size_t>(0, 91));

TEST_P(PacketCutTo, MissesExactlyTheFieldsThatLieOutside)
{
	const size_t bytes = GetParam();
	const Reader reader(frame().from(client_of_wlan_1_1)
				    .to(upstream_server)
				    .tcp(51000, 80)
				    .fin_ack()
				    .payload("GET / HTTP/1.1\r\n\r\n0123456789abcdefghij")
				    .truncate(bytes));
	const Packet &packet = reader.packet;
	EXPECT_EQ(packet.destination_mac().has_value(), bytes >= 6);
	EXPECT_EQ(packet.source_mac_word().has_value(), bytes >= 12);
	if (bytes >= 12) {
		EXPECT_EQ(packet.source_mac_word().value(), mac(client_of_wlan_1_1.mac).word()) << bytes;
	}
	EXPECT_EQ(packet.ether_type().has_value(), bytes >= 14);
	EXPECT_EQ(packet.ip_version().has_value(), bytes >= 15);
	EXPECT_EQ(packet.protocol().has_value(), bytes >= 24);
	EXPECT_EQ(packet.source_address().has_value(), bytes >= 30);
	EXPECT_EQ(packet.destination_address().has_value(), bytes >= 34);
	EXPECT_EQ(packet.source_port().has_value(), bytes >= 36);
	EXPECT_EQ(packet.destination_port().has_value(), bytes >= 38);
	EXPECT_EQ(packet.tcp_flags().has_value(), bytes >= 48);
	EXPECT_EQ(packet.is_rewritable(), bytes >= 52);
	if (bytes >= 48) {
		EXPECT_EQ(packet.tcp_flags().value().bits, 0x11);
		EXPECT_EQ(packet.destination_port().value().host(), 80);
	}
}

class PacketWithHeaderLength : public ::testing::TestWithParam<unsigned>
{
};

INSTANTIATE_TEST_SUITE_P(Words, PacketWithHeaderLength, ::testing::Range(0u, 16u));

TEST_P(PacketWithHeaderLength, FindsTheTransportHeaderFourTimesAsManyBytesBehind)
{
	// Source port, destination port, flags: what lies there in numbered bytes, by header length.
	static constexpr struct {
		uint16_t source;
		uint16_t destination;
		uint8_t flags;
	} expected[16] = {
		{0x4001, 0x0203, 13}, {0x0405, 0x0000, 17}, {0x0809, 0x0a0b, 21}, {0x0c0d, 0x0e0f, 25},
		{0x1011, 0x1213, 29}, {0x1415, 0x1617, 33}, {0x1819, 0x1a1b, 37}, {0x1c1d, 0x1e1f, 41},
		{0x2021, 0x2223, 45}, {0x2425, 0x2627, 49}, {0x2829, 0x2a2b, 53}, {0x2c2d, 0x2e2f, 57},
		{0x3031, 0x3233, 61}, {0x3435, 0x3637, 65}, {0x3839, 0x3a3b, 69}, {0x3c3d, 0x3e3f, 73},
	};
	const unsigned words = GetParam();
	const Reader reader(numbered_bytes(static_cast<uint8_t>(words)));
	EXPECT_EQ(reader.packet.source_port().value().host(), expected[words].source);
	EXPECT_EQ(reader.packet.destination_port().value().host(), expected[words].destination);
	EXPECT_EQ(reader.packet.tcp_flags().value().bits, expected[words].flags);
	EXPECT_EQ(reader.packet.is_rewritable(), words >= 5);
}

TEST(Packet, MissesATransportHeaderThatStartsBehindTheEnd)
{
	const Reader reader(numbered_bytes(15, 0, 20));
	EXPECT_TRUE(reader.packet.protocol().has_value());
	EXPECT_FALSE(reader.packet.source_port().has_value());
	EXPECT_FALSE(reader.packet.destination_port().has_value());
	EXPECT_FALSE(reader.packet.tcp_flags().has_value());
	EXPECT_FALSE(reader.packet.is_rewritable());
}

TEST(Packet, BelievesNoLengthThatAHeaderClaims)
{
	const Reader shorter(frame().from(client_of_wlan_1_1).to(upstream_server).tcp(1, 80).total_length(0));
	EXPECT_TRUE(shorter.packet.destination_port() == be16::from_host(80));
	const Reader longer(
		frame().from(client_of_wlan_1_1).to(upstream_server).tcp(1, 80).total_length(0xffff).truncate(36));
	EXPECT_TRUE(longer.packet.source_port() == be16::from_host(1));
	EXPECT_FALSE(longer.packet.destination_port().has_value());
}

TEST(Packet, HasNoTransportHeaderInALaterFragment)
{
	for (const uint16_t fragment : {0x0001, 0x1fff, 0x2001, 0x1000, 0xe001}) {
		const Reader reader(numbered_bytes(5, fragment));
		EXPECT_FALSE(reader.packet.source_port().has_value()) << fragment;
		EXPECT_FALSE(reader.packet.destination_port().has_value()) << fragment;
		EXPECT_FALSE(reader.packet.tcp_flags().has_value()) << fragment;
		EXPECT_FALSE(reader.packet.is_rewritable()) << fragment;
		EXPECT_TRUE(reader.packet.protocol().has_value()) << fragment;
	}
}

TEST(Packet, HasATransportHeaderInAFirstFragment)
{
	// More fragments, don't fragment, the reserved bit: none of them is an offset.
	for (const uint16_t fragment : {0x0000, 0x2000, 0x4000, 0x8000, 0xe000}) {
		const Reader reader(numbered_bytes(5, fragment));
		EXPECT_EQ(reader.packet.source_port().value().host(), 0x1415) << fragment;
		EXPECT_TRUE(reader.packet.is_rewritable()) << fragment;
	}
}

// A header length below 5 puts the ports inside the IPv4 header, where they are even in a packet that ends there.
TEST(Packet, FindsPortsInsideACutHeader)
{
	for (size_t bytes = 1; bytes < 24; ++bytes) {
		for (uint8_t ihl = 0; ihl < 5; ++ihl) {
			const Reader whole(numbered_bytes(ihl, 0, bytes));
			EXPECT_EQ(whole.packet.source_port().has_value(), bytes >= size_t{ihl} * 4 + 2) << bytes;
			// The fragment offset counts as soon as it is there whole.
			const Reader fragment(numbered_bytes(ihl, 0x0001, bytes < 8 ? 8 : bytes));
			EXPECT_FALSE(fragment.packet.source_port().has_value()) << bytes;
		}
	}
	EXPECT_EQ(Reader(numbered_bytes(2, 0, 10)).packet.source_port().value().host(), 0x0809);
	Frame cut = numbered_bytes(1, 0x0001, 8);
	cut.resize(cut.size() - 1);
	EXPECT_EQ(Reader(cut).packet.source_port().value().host(), 0x0405) << "half a fragment offset is none";
}

TEST(Packet, ReadsATagInTheBufferAsEtherType)
{
	const Reader reader(frame().from(client_of_wlan_1_1).to(upstream_server).vlan(7).tcp(1, 80));
	EXPECT_TRUE(reader.packet.ether_type() == static_cast<EtherType>(0x8100));
	EXPECT_FALSE(reader.packet.is_rewritable());
}

TEST(Packet, GivesTheBytesAtTheIpv4PlacesWhateverTheEtherType)
{
	const Frame payload(40, 0x06);
	const Reader reader(frame().from(client_of_wlan_1_1).to(upstream_server).ipv6(6).payload(payload));
	EXPECT_TRUE(reader.packet.ether_type() == EtherType::ipv6);
	EXPECT_TRUE(reader.packet.ip_version() == uint8_t{6});
	// Byte 9 of an IPv6 header is the second of the source address: 0x01 of 2001:db8::
	EXPECT_TRUE(reader.packet.protocol() == IpProtocol::icmp);
	EXPECT_FALSE(reader.packet.is_rewritable());
}

TEST(Packet, ReadsNothingOfWhatIsNotLinear)
{
	const Reader reader(
		frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).payload(Frame(200, 'x')),
		Layout::headers_only);
	EXPECT_TRUE(reader.packet.destination_port() == be16::from_host(80));
	EXPECT_TRUE(reader.packet.is_rewritable());
}

TEST(Packet, FlagsAreTestedOneByOne)
{
	EXPECT_TRUE(TcpFlags{0x02}.syn());
	EXPECT_TRUE(TcpFlags{0xff}.syn());
	EXPECT_FALSE(TcpFlags{0xfd}.syn());
	EXPECT_TRUE(TcpFlags{0x11}.fin_and_ack());
	EXPECT_TRUE(TcpFlags{0xff}.fin_and_ack());
	EXPECT_FALSE(TcpFlags{0x01}.fin_and_ack());
	EXPECT_FALSE(TcpFlags{0x10}.fin_and_ack());
	EXPECT_FALSE(TcpFlags{0xee}.fin_and_ack());
}

TEST(PacketMark, IsReadAndWrittenThrough)
{
	PacketBuffer buffer(http_syn());
	buffer.mark = 5200;
	PacketView view(buffer);
	Packet packet(view.seam());
	EXPECT_EQ(packet.mark(), 5200u);
	packet.set_mark(5302);
	EXPECT_EQ(packet.mark(), 5302u);
	view.finish();
	EXPECT_EQ(buffer.mark, 5302u);
}

namespace
{

// Redirects the packet to the access point and returns what leaves.
Frame redirect(PacketBuffer &buffer, uint16_t port)
{
	PacketView view(buffer);
	Packet packet(view.seam());
	EXPECT_TRUE(packet.make_writable([&](WritablePacket &writable) {
		writable.write_destination(access_point.address, be16::from_host(port));
		writable.finish_ipv4_header();
		writable.write_destination_mac(mac(access_point.mac));
		writable.set_host();
	}));
	EXPECT_TRUE(packet.destination_address() == access_point.address);
	EXPECT_TRUE(packet.destination_port() == be16::from_host(port));
	view.finish();
	return frame_on_wire(buffer);
}

class PacketRewrite : public ::testing::TestWithParam<host::ChecksumState>
{
};

std::string checksum_name(const ::testing::TestParamInfo<host::ChecksumState> &info)
{
	static constexpr const char *names[] = {"Finished", "Verified", "Complete", "Partial"};
	return names[static_cast<size_t>(info.param)];
}

constexpr host::ChecksumState checksum_states[] = {host::ChecksumState::finished, host::ChecksumState::verified,
						   host::ChecksumState::complete, host::ChecksumState::partial};

INSTANTIATE_TEST_SUITE_P(Checksums, PacketRewrite, ::testing::ValuesIn(checksum_states), checksum_name);

} // namespace

TEST_P(PacketRewrite, OfTheDestinationIsRightOnTheWire)
{
	PacketBuffer buffer = packet_of(http_syn(), GetParam());
	EXPECT_EQ(redirect(buffer, 10081),
		  frame().from(client_of_wlan_1_1).to(access_point).tcp(51000, 10081).syn().bytes());
	EXPECT_TRUE(checksums_are_right(buffer));
	EXPECT_EQ(buffer.type, host::PacketType::host);
}

TEST_P(PacketRewrite, OfAnIpHeaderWithOptionsIsRightOnTheWire)
{
	static constexpr std::array<uint8_t, 8> options = {0x94, 0x04, 0, 0, 1, 1, 1, 0};
	const auto segment = [](const Host &to, uint16_t port) {
		return frame().from(client_of_wlan_1_1).to(to).ip_options(options).tcp(51000, port).payload("odd");
	};
	PacketBuffer buffer = packet_of(segment(upstream_server, 443), GetParam(), Layout::headers_only);
	EXPECT_EQ(redirect(buffer, 30451), segment(access_point, 30451).bytes());
	EXPECT_TRUE(checksums_are_right(buffer));
}

TEST_P(PacketRewrite, OfTheSourceIsRightOnTheWire)
{
	PacketBuffer buffer = packet_of(
		frame().from(access_point).to(client_of_wlan_1_1).tcp(10081, 51000).payload("HTTP/1.1 302 Found"),
		GetParam());
	PacketView view(buffer);
	Packet packet(view.seam());
	EXPECT_TRUE(packet.make_writable([&](WritablePacket &writable) {
		writable.write_source(upstream_server.address, be16::from_host(80));
		writable.finish_ipv4_header();
		writable.write_source_mac(mac(upstream_server.mac));
	}));
	view.finish();
	EXPECT_EQ(frame_on_wire(buffer), frame().from(upstream_server)
						 .to(client_of_wlan_1_1)
						 .tcp(80, 51000)
						 .payload("HTTP/1.1 302 Found")
						 .bytes());
	EXPECT_TRUE(checksums_are_right(buffer));
	EXPECT_EQ(buffer.type, host::PacketType::other_host);
}

TEST_P(PacketRewrite, DoesNotShowInAClone)
{
	PacketBuffer buffer = packet_of(http_syn(), GetParam());
	const PacketBuffer clone = buffer.clone();
	const Frame before = clone.frame();
	EXPECT_NE(redirect(buffer, 10081), before);
	EXPECT_EQ(clone.frame(), before);
}

TEST(LargePacketRewrite, IsRightInEverySegment)
{
	PacketBuffer buffer =
		packet_of(frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).payload(Frame(4001, 'x')),
			  host::ChecksumState::partial, Layout::headers_only);
	redirect(buffer, 10081);
	const std::vector<Frame> segments = segments_on_wire(buffer, 1460);
	ASSERT_EQ(segments.size(), 3u);
	EXPECT_EQ(segments[2].size(), 14u + 20 + 20 + 1081);
	for (const Frame &segment : segments) {
		EXPECT_TRUE(ipv4_header_checksum_is_right(segment));
		EXPECT_TRUE(transport_checksum_is_right(segment));
	}
}

// Worked by hand: 4500 + 0073 + 4000 + 4011 + c0a8 + 0001 + c0a8 + 00c7 = 2479c, 479c + 2 = 479e, inverted b861.
TEST(Ipv4HeaderChecksum, IsThatOfTheHandWorkedExample)
{
	Frame bytes = {0x45, 0x00, 0x00, 0x73, 0x00, 0x00, 0x40, 0x00, 0x40, 0x11,
		       0xde, 0xad, 0xc0, 0xa8, 0x00, 0x01, 0xc0, 0xa8, 0x00, 0xc7};
	bytes.resize(40, 0xee);
	PacketBuffer buffer(frame().network_bytes(bytes));
	PacketView view(buffer);
	Packet packet(view.seam());
	ASSERT_TRUE(packet.make_writable([](WritablePacket &writable) { writable.finish_ipv4_header(); }));
	view.finish();
	const Frame after = buffer.frame();
	EXPECT_EQ(after[24], 0xb8);
	EXPECT_EQ(after[25], 0x61);
	bytes[10] = 0xb8;
	bytes[11] = 0x61;
	EXPECT_EQ(after, frame().network_bytes(bytes).bytes());
}

// 4f00 + 29 x ffff, the checksum's place left out: ones' complement sum 4f00, inverted b0ff. Carries in many words.
TEST(Ipv4HeaderChecksum, CoversTheOptionsAndFoldsItsCarries)
{
	Frame bytes(80, 0xff);
	bytes[0] = 0x4f;
	bytes[1] = 0x00;
	bytes[6] = 0x00; // the fragment word: 0000 adds as much as ffff
	bytes[7] = 0x00;
	PacketBuffer buffer(frame().network_bytes(bytes));
	PacketView view(buffer);
	Packet packet(view.seam());
	ASSERT_TRUE(packet.make_writable([](WritablePacket &writable) { writable.finish_ipv4_header(); }));
	view.finish();
	EXPECT_EQ(buffer.frame()[24], 0xb0);
	EXPECT_EQ(buffer.frame()[25], 0xff);
}

// Summed as little-endian words, 2fffe: the first fold, fffe + 2, carries once more. Summed as big-endian words by hand:
// 4500 + 0028 + ade3 + 4000 + 4006 + c0a8 + 010b + cb71 + 00c8 = 300fd, 00fd + 3 = 0100, inverted feff.
TEST(Ipv4HeaderChecksum, FoldsTheCarryOfItsFold)
{
	Frame bytes = {0x45, 0x00, 0x00, 0x28, 0xad, 0xe3, 0x40, 0x00, 0x40, 0x06,
		       0x00, 0x00, 0xc0, 0xa8, 0x01, 0x0b, 0xcb, 0x71, 0x00, 0xc8};
	bytes.resize(40, 0xee);
	PacketBuffer buffer(frame().network_bytes(bytes));
	PacketView view(buffer);
	Packet packet(view.seam());
	ASSERT_TRUE(packet.make_writable([](WritablePacket &writable) { writable.finish_ipv4_header(); }));
	view.finish();
	EXPECT_EQ(buffer.frame()[24], 0xfe);
	EXPECT_EQ(buffer.frame()[25], 0xff);
}

TEST(PacketMakeWritable, FailsWithoutTouchingThePacket)
{
	PacketBuffer buffer(http_syn());
	buffer.fail_make_writable = true;
	PacketView view(buffer);
	Packet packet(view.seam());
	bool called = false;
	EXPECT_FALSE(packet.make_writable([&](WritablePacket &) { called = true; }));
	EXPECT_FALSE(called);
	// The pointers were set anew, and reading goes on.
	EXPECT_TRUE(packet.destination_port() == be16::from_host(80));
	view.finish();
	EXPECT_EQ(buffer.frame(), http_syn());
	EXPECT_EQ(buffer.make_writable_calls, 1u);
}

} // namespace captive_portal::test
