// SPDX-License-Identifier: GPL-2.0-only
// The host kernel's packets: that they catch what a hook must not do.
#include "platform/host/packet_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "platform/host/registrations.h"
#include "tests/support/checksum_validator.h"
#include "tests/support/frame_builder.h"
#include "tests/support/packets.h"

namespace captive_portal::test
{

namespace
{

using host::ChecksumState;
using host::Layout;
using host::PacketBuffer;
using host::PacketView;

Frame segment()
{
	return frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).payload(Frame(100, 'x'));
}

// Hooks are plain functions: what they do is written here.
uint8_t *writable_network(cp_packet *packet)
{
	return const_cast<uint8_t *>(packet->network);
}

} // namespace

TEST(PacketBuffer, GivesBackTheFrameItWasMadeOf)
{
	for (size_t size = 0; size <= segment().size(); ++size) {
		Frame bytes = segment();
		bytes.resize(size);
		EXPECT_EQ(PacketBuffer(bytes).frame(), bytes);
		EXPECT_EQ(PacketBuffer(bytes, Layout::headers_only).frame(), bytes);
	}
}

TEST(PacketBuffer, ShowsAHookWhatIsReadable)
{
	const struct {
		size_t frame;
		Layout layout;
		uint32_t ethernet;
		uint32_t network;
	} rows[] = {
		{0, Layout::linear, 0, 0},          {13, Layout::linear, 13, 0},
		{14, Layout::linear, 14, 0},        {15, Layout::linear, 14, 1},
		{94, Layout::linear, 14, 80},       {95, Layout::linear, 14, 81},
		{95, Layout::headers_only, 14, 80}, {94, Layout::headers_only, 14, 80},
		{30, Layout::headers_only, 14, 16},
	};
	for (const auto &row : rows) {
		PacketBuffer packet(Frame(row.frame, 7), row.layout);
		PacketView view(packet);
		EXPECT_EQ(view.seam()->ethernet_bytes, row.ethernet) << row.frame;
		EXPECT_EQ(view.seam()->network_bytes, row.network) << row.frame;
		EXPECT_EQ(view.seam()->network_length, row.frame < 14 ? 0 : row.frame - 14) << row.frame;
	}
}

TEST(PacketBuffer, HasNoNamesUntilTheyAreSet)
{
	PacketBuffer packet(segment());
	packet.out_name = "wlan-1-1";
	PacketView view(packet);
	EXPECT_EQ(view.ports()->in_name, nullptr);
	EXPECT_STREQ(view.ports()->out_name, "wlan-1-1");
}

TEST(PacketBuffer, MovesItsDataWhenMadeWritable)
{
	PacketBuffer packet(segment(), Layout::headers_only);
	PacketView view(packet);
	const uint8_t *const before = view.seam()->network;
	EXPECT_EQ(view.make_writable(100), 0);
	EXPECT_NE(view.seam()->network, before);
	EXPECT_EQ(view.seam()->network_bytes, 100u);
	writable_network(view.seam())[99] = 0xff;
	view.finish();
	EXPECT_EQ(packet.frame()[14 + 99], 0xff);
}

// 140 bytes behind the Ethernet header, 80 of them linear; the first of "xxx..." is at 40.
TEST(PacketBuffer, GivesACopyOfBytesWhereverTheyLie)
{
	for (const Layout layout : {Layout::linear, Layout::headers_only}) {
		PacketBuffer packet(segment(), layout);
		PacketView view(packet);
		const struct {
			uint32_t offset;
			uint32_t bytes;
			int result;
		} rows[] = {
			{0, 140, 0},   {79, 1, 0},    {79, 2, 0},    {80, 60, 0},          {140, 0, 0},
			{0, 141, -14}, {140, 1, -14}, {141, 0, -14}, {0xffffffff, 2, -14}, {2, 0xffffffff, -14},
		};
		for (const auto &row : rows) {
			Frame to(row.result == 0 ? row.bytes : 1);
			EXPECT_EQ(cp_packet_copy(view.seam(), row.offset, to.data(), row.bytes), row.result);
			if (row.result == 0) {
				const Frame whole = segment();
				EXPECT_TRUE(std::equal(to.begin(), to.end(), whole.begin() + 14 + row.offset));
			}
		}
		view.finish();
	}
}

TEST(PacketBuffer, RefusesOnOrderToCopyBytesThatAreNotLinear)
{
	PacketBuffer packet(segment(), Layout::headers_only);
	packet.fail_copy = true;
	PacketView view(packet);
	Frame to(2);
	EXPECT_EQ(cp_packet_copy(view.seam(), 78, to.data(), 2), 0);
	EXPECT_EQ(cp_packet_copy(view.seam(), 79, to.data(), 2), -14);
}

TEST(PacketBuffer, CannotBeMadeWritableBeyondItsEnd)
{
	PacketBuffer packet(segment());
	PacketView view(packet);
	EXPECT_EQ(view.make_writable(140), 0);
	EXPECT_EQ(view.make_writable(141), -12);
	view.finish();
	EXPECT_EQ(packet.make_writable_calls, 2u);
	EXPECT_EQ(packet.frame(), segment());
}

TEST(PacketBuffer, CannotBeMadeWritableWithoutAWholeEthernetHeader)
{
	PacketBuffer packet(Frame(13, 0));
	PacketView view(packet);
	EXPECT_EQ(view.make_writable(0), -12);
}

TEST(PacketBuffer, OfAWriterIsSharedWithCloneNoLonger)
{
	PacketBuffer packet(segment());
	PacketBuffer clone = packet.clone();
	clone.mark = 9;
	PacketView view(packet);
	ASSERT_EQ(view.make_writable(20), 0);
	writable_network(view.seam())[0] = 0;
	view.finish();
	EXPECT_EQ(clone.frame(), segment());
	EXPECT_NE(packet.frame(), segment());
	EXPECT_EQ(packet.mark, 0u);
}

TEST(PacketBufferDeathTest, DiesWhenAHookWritesWithoutAsking)
{
	const auto hook = [](cp_packet *packet, const cp_ports *) {
		writable_network(packet)[0] = 0;
		return CP_ACCEPT;
	};
	PacketBuffer packet(segment());
	EXPECT_DEATH(static_cast<void>(host::run_hook(hook, packet)), "had not made writable");
}

TEST(PacketBufferDeathTest, DiesWhenAHookWritesFurtherThanItAskedFor)
{
	const auto hook = [](cp_packet *packet, const cp_ports *) {
		static_cast<void>(PacketView::of(packet).make_writable(20));
		writable_network(packet)[20] ^= 1;
		return CP_ACCEPT;
	};
	PacketBuffer packet(segment());
	EXPECT_DEATH(static_cast<void>(host::run_hook(hook, packet)), "had not made writable");
}

TEST(PacketBufferDeathTest, DiesWhenAChecksumIsReplacedWhereItIsNotWritable)
{
	PacketBuffer packet(segment());
	PacketView view(packet);
	EXPECT_DEATH(view.replace_checksum(36, 1, 2, CP_CHECKSUM_PAYLOAD), "not writable there");
	ASSERT_EQ(view.make_writable(37), 0);
	EXPECT_DEATH(view.replace_checksum(36, 1, 2, CP_CHECKSUM_PAYLOAD), "not writable there");
}

#ifdef __SANITIZE_ADDRESS__
TEST(PacketBufferDeathTest, DiesWhenAHookReadsPastTheEnd)
{
	PacketBuffer packet(Frame(14 + 20, 0));
	PacketView view(packet);
	const volatile uint8_t *const network = view.seam()->network;
	const volatile uint8_t *const ethernet = view.seam()->ethernet;
	EXPECT_DEATH(static_cast<void>(network[20]), "heap-buffer-overflow");
	EXPECT_DEATH(static_cast<void>(ethernet[14]), "heap-buffer-overflow");
}

// Also when the packet could not be made writable, and while a clone keeps the data.
TEST(PacketBufferDeathTest, DiesWhenAHookUsesAPointerFromBeforeTheMove)
{
	for (const bool fail : {false, true}) {
		PacketBuffer packet(segment());
		const PacketBuffer clone = packet.clone();
		packet.fail_make_writable = fail;
		PacketView view(packet);
		const volatile uint8_t *const old = view.seam()->network;
		EXPECT_EQ(view.make_writable(20), fail ? -12 : 0);
		EXPECT_DEATH(static_cast<void>(old[0]), "heap-use-after-free");
	}
}
#endif

// A wrong way to fix a checksum shows: each part taken for the other.
TEST(PacketBuffer, TellsThePartsOfAChecksumApart)
{
	for (const ChecksumState state : {ChecksumState::partial, ChecksumState::complete}) {
		PacketBuffer packet = packet_of(segment(), state);
		EXPECT_TRUE(checksums_are_right(packet));
		PacketView view(packet);
		ASSERT_EQ(view.make_writable(40), 0);
		// The destination port, bytes 22 and 23, from 80 to 81, said to lie in the pseudo header.
		writable_network(view.seam())[23] = 81;
		view.replace_checksum(36, 0x5000, 0x5100, CP_CHECKSUM_PSEUDO_HEADER);
		view.finish();
		EXPECT_FALSE(checksums_are_right(packet));
	}
}

TEST(PacketBufferDeathTest, DiesWhenAPartialChecksumHasNoPlace)
{
	PacketBuffer packet(segment());
	EXPECT_DEATH(packet.set_checksum_state(ChecksumState::partial), "has a place");
}

} // namespace captive_portal::test
