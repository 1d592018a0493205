// SPDX-License-Identifier: GPL-2.0-only
// Which packets the post-routing hook shows to the DNS parser, and what it gets to see of them.
#include <gtest/gtest.h>

#include "platform/platform.h"
#include "tests/support/frame_builder.h"
#include "tests/unit/dns_parser_fixture.h"

namespace captive_portal::test
{

namespace
{

using host::Layout;
using host::PacketBuffer;

// Header and question take 29 bytes, a record 16.
DnsMessage one_record()
{
	return answer_for("www.example", 1).pointer(12).a_record(60, 192, 0, 2, 1);
}

FrameBuilder answer_frame(const Bytes &message = one_record())
{
	return frame().from(upstream_dns).to(client_of_wlan_1_1).udp(53, 40000).payload(message);
}

class DnsHandoffTest : public DnsParserFixture
{
protected:
	DnsHandoffTest() { machine.log.clear(); }

	// Sends the frame out through the port; true when the parser saw an answer in it. The packet goes on unchanged
	// each time.
	[[nodiscard]] bool is_read(const Frame &bytes, const char *out_name = "wlan-1-1",
				   Layout layout = Layout::linear)
	{
		PacketBuffer packet(bytes, layout);
		packet.out_name = out_name;
		return is_read(packet);
	}
	[[nodiscard]] bool is_read(PacketBuffer &packet)
	{
		packet.mark = 5200;
		const Frame before = packet.frame();
		EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT);
		EXPECT_EQ(packet.frame(), before);
		EXPECT_EQ(packet.mark, 5200u);
		EXPECT_EQ(packet.type, host::PacketType::other_host);
		EXPECT_EQ(packet.make_writable_calls, 0u);
		const bool stored = !stored_addresses().empty();
		forget();
		return stored;
	}
	// The number of addresses that the parser found.
	[[nodiscard]] size_t addresses_in(const Frame &bytes, Layout layout)
	{
		PacketBuffer packet(bytes, layout);
		packet.out_name = "wlan-1-1";
		EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT);
		const size_t count = stored_addresses().size();
		forget();
		return count;
	}
};

// An answer of so many addresses, 10.0.0.0 and up.
Bytes answer_of(uint16_t count)
{
	DnsMessage message = answer_for("www.example", count);
	for (uint32_t i = 0; i < count; ++i) {
		message.pointer(12).record(dns_a, 60, 4).u32(0x0a000000 + i);
	}
	return message;
}

} // namespace

TEST_F(DnsHandoffTest, ReadsAnAnswerOnItsWayToAWirelessClient)
{
	PacketBuffer packet(answer_frame());
	EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT) << "without an egress device";
	expect_nothing_stored();
	packet.out_name = "wlan-1-1";
	EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT);
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
	EXPECT_LOG(debug_line("Get DNS response: www.example, is_match_wg=0\n"),
		   debug_line("(0/1, is_match_wg=0)Qerey: www.example, Answer: www.example, 192.0.2.1, "
			      "16908480 mod 1024=192, ttl: 60\n"),
		   debug_line("total_ip_count=1\n"));
}

TEST_F(DnsHandoffTest, GoesByTheFirstFourCharactersOfTheEgressName)
{
	for (const char *const name : {"wlan-1-1", "wlan-3-8", "wlan-1-15", "wlan0", "wlan", "wlanportnumber1"}) {
		EXPECT_TRUE(is_read(answer_frame(), name)) << name;
	}
	for (const char *const name : {"eth0", "br0", "wla", "Wlan-1-1", "xwlan-1-1", "vlan1", "lo", ""}) {
		EXPECT_FALSE(is_read(answer_frame(), name)) << name;
	}
	EXPECT_NO_LOG();
}

TEST_F(DnsHandoffTest, GoesByTheIpVersionAndNotByTheEtherType)
{
	EXPECT_TRUE(is_read(answer_frame().ether_type(0x86dd)));
	EXPECT_TRUE(is_read(answer_frame().ether_type(0x1234)));
	for (const uint8_t version : {0, 3, 5, 6, 15}) {
		EXPECT_FALSE(is_read(answer_frame().version(version))) << int{version};
	}
	// The address lies elsewhere behind a tag.
	EXPECT_FALSE(is_read(answer_frame().vlan(7)));
}

TEST_F(DnsHandoffTest, GoesByProtocolAndSourcePort)
{
	for (const uint8_t protocol : {0, 1, 6, 16, 18, 136}) {
		EXPECT_FALSE(is_read(answer_frame().protocol(protocol))) << int{protocol};
	}
	for (const uint16_t port : {0, 52, 54, 5353, 13568}) {
		EXPECT_FALSE(is_read(answer_frame().udp(port, 53))) << port;
	}
	EXPECT_TRUE(is_read(answer_frame().udp(53, 53)));
	EXPECT_FALSE(is_read(
		frame().from(upstream_dns).to(client_of_wlan_1_1).tcp(53, 40000).payload(one_record().bytes())));
}

TEST_F(DnsHandoffTest, DoesNotAskWhoSentTheAnswer)
{
	EXPECT_TRUE(is_read(answer_frame().from(second_client_of_wlan_1_1)));
	EXPECT_TRUE(is_read(answer_frame().from(access_point).to(wired_host)));
}

TEST_F(DnsHandoffTest, AsksTheTotalLengthForMoreThanTheHeaders)
{
	for (const uint16_t bytes : {0, 19, 20, 27, 28}) {
		EXPECT_FALSE(is_read(answer_frame().total_length(bytes))) << bytes;
	}
	// From there on it bounds nothing.
	for (const uint16_t bytes : {29, 30, 72, 73, 74, 1500, 65535}) {
		EXPECT_TRUE(is_read(answer_frame().total_length(bytes))) << bytes;
	}
}

TEST_F(DnsHandoffTest, TakesTheHeaderLengthAsItIs)
{
	const Bytes options(40, 1);
	const auto with_options = answer_frame().ip_options(options);
	EXPECT_TRUE(is_read(with_options));
	EXPECT_TRUE(is_read(answer_frame().ip_options(options).total_length(69)));
	EXPECT_FALSE(is_read(answer_frame().ip_options(options).total_length(68)));
	// The UDP header is looked for inside the IPv4 header, or behind its own.
	for (const uint8_t words : {0, 1, 4, 6, 15}) {
		EXPECT_FALSE(is_read(answer_frame().ihl(words))) << int{words};
	}
	// A header length of 16 bytes, with the ports where the destination address lies: 0.53 and 156.64.
	Frame bytes = answer_frame().ihl(4).destination(ipv4(0, 53, 156, 64));
	// UDP length, checksum, then the message: over the real UDP header and on.
	const Bytes message = one_record();
	bytes.resize(14 + 16 + 8 + message.size());
	bytes[14 + 20] = 0;
	bytes[14 + 21] = static_cast<uint8_t>(8 + message.size());
	std::copy(message.begin(), message.end(), bytes.begin() + 14 + 24);
	EXPECT_TRUE(is_read(bytes));
}

TEST_F(DnsHandoffTest, TakesNoPartOfTheUdpLengthThatIsNotThere)
{
	// Longer than the packet: what is there.
	for (const uint16_t bytes : {53, 54, 1000, 65535}) {
		EXPECT_TRUE(is_read(answer_frame().udp_length(bytes))) << bytes;
		EXPECT_TRUE(is_read(answer_frame().udp_length(bytes), "wlan-1-1", Layout::headers_only)) << bytes;
	}
	// Shorter than the answer: the answer is cut there, before the last byte of its address.
	for (const uint16_t bytes : {0, 1, 7, 8, 9, 20, 21, 37, 52}) {
		EXPECT_FALSE(is_read(answer_frame().udp_length(bytes))) << bytes;
		EXPECT_FALSE(is_read(answer_frame().udp_length(bytes), "wlan-1-1", Layout::headers_only)) << bytes;
	}
}

TEST_F(DnsHandoffTest, TakesNoPaddingForAnAnswer)
{
	// Without the last address byte, but padded to the shortest Ethernet frame and beyond.
	const Bytes message = one_record();
	const Bytes cut(message.begin(), message.end() - 1);
	EXPECT_FALSE(is_read(answer_frame(cut).pad(200)));
	EXPECT_TRUE(is_read(answer_frame(message).pad(200)));
}

TEST_F(DnsHandoffTest, TakesPaddingThatTheUdpLengthClaims)
{
	// As above, but a UDP length of 8 + 45 bytes: the last byte of the address is a zero of the padding.
	const Bytes message = one_record();
	const Bytes cut(message.begin(), message.end() - 1);
	for (const Layout layout : {Layout::linear, Layout::headers_only}) {
		PacketBuffer packet(answer_frame(cut).udp_length(53).pad(200), layout);
		packet.out_name = "wlan-1-1";
		EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT);
		expect_stored({{"192.0.2.0", "www.example", 0, start_time + 60}});
		forget();
	}
}

TEST_F(DnsHandoffTest, ReadsNoByteBeyondAPacketThatIsCutAnywhere)
{
	const Frame whole = answer_frame();
	for (size_t size = 0; size < whole.size(); ++size) {
		EXPECT_FALSE(is_read(answer_frame().truncate(size))) << size;
		EXPECT_FALSE(is_read(answer_frame().truncate(size), "wlan-1-1", Layout::headers_only)) << size;
	}
}

TEST_F(DnsHandoffTest, ReadsAFirstFragmentAsFarAsItGoes)
{
	const Bytes message = answer_of(100);
	const Bytes part(message.begin(), message.begin() + 29 + 50 * 16 + 7);
	const auto fragment = answer_frame(part).udp_length(static_cast<uint16_t>(8 + message.size())).more_fragments();
	EXPECT_EQ(addresses_in(fragment, Layout::linear), 50u);
	EXPECT_EQ(addresses_in(fragment, Layout::headers_only), 50u);
	// A later one has no UDP header, even if it looks like one.
	EXPECT_FALSE(is_read(answer_frame().fragment_offset(1)));
	EXPECT_FALSE(is_read(answer_frame().fragment_offset(0x1fff)));
	EXPECT_TRUE(is_read(answer_frame().fragment_offset(0)));
}

TEST_F(DnsHandoffTest, ReadsAnswersWhereverTheirBytesLie)
{
	// 52 bytes of the message are linear in the one layout: more than the first, less than the others.
	for (const uint16_t count : {1, 2, 3, 85, 4000}) {
		const Frame bytes = answer_frame(answer_of(count));
		EXPECT_EQ(addresses_in(bytes, Layout::linear), count);
		EXPECT_EQ(addresses_in(bytes, Layout::headers_only), count);
	}
	// As long as UDP can be.
	Bytes longest = answer_of(4000);
	longest.resize(65507);
	EXPECT_EQ(addresses_in(answer_frame(longest), Layout::linear), 4000u);
	EXPECT_EQ(addresses_in(answer_frame(longest), Layout::headers_only), 4000u);
}

TEST_F(DnsHandoffTest, AllocatesForWhatIsNotLinearOnly)
{
	// A query asks the cache for nothing.
	DnsMessage query;
	query.header(1, 0x0100).name("www.example").question().fill(500, 0);
	const uint64_t before = machine.memory.attempts();
	EXPECT_FALSE(is_read(answer_frame(query)));
	EXPECT_EQ(machine.memory.attempts(), before);
	EXPECT_FALSE(is_read(answer_frame(query), "wlan-1-1", Layout::headers_only));
	EXPECT_EQ(machine.memory.attempts(), before + 1);
	EXPECT_TRUE(machine.live_allocations().empty());
	// Not for other packets.
	EXPECT_FALSE(is_read(answer_frame(query).udp(5353, 53), "wlan-1-1", Layout::headers_only));
	EXPECT_FALSE(is_read(answer_frame(query), "eth0", Layout::headers_only));
	EXPECT_EQ(machine.memory.attempts(), before + 1);
}

TEST_F(DnsHandoffTest, LeavesAnAnswerUnreadWithoutMemoryForACopy)
{
	const Frame bytes = answer_frame(answer_of(4));
	machine.memory.fail_allocation(1);
	EXPECT_EQ(addresses_in(bytes, Layout::headers_only), 0u);
	EXPECT_NO_LOG();
	EXPECT_EQ(addresses_in(bytes, Layout::headers_only), 4u);
	// Linear: the first allocation is the first entry's.
	machine.memory.fail_allocation(1);
	EXPECT_EQ(addresses_in(bytes, Layout::linear), 3u);
}

TEST_F(DnsHandoffTest, LeavesAnAnswerUnreadThatCannotBeCopied)
{
	PacketBuffer packet(answer_frame(answer_of(4)), Layout::headers_only);
	packet.out_name = "wlan-1-1";
	packet.fail_copy = true;
	EXPECT_FALSE(is_read(packet));
	EXPECT_TRUE(machine.live_allocations().empty());
	packet.fail_copy = false;
	EXPECT_TRUE(is_read(packet));
}

TEST_F(DnsHandoffTest, ReadsSharedData)
{
	PacketBuffer packet(answer_frame(answer_of(4)), Layout::headers_only);
	const PacketBuffer clone = packet.clone();
	packet.out_name = "wlan-1-1";
	EXPECT_TRUE(is_read(packet));
	EXPECT_EQ(clone.frame(), packet.frame());
}

TEST_F(DnsHandoffTest, RunsBehindTheBridgesHookPoint)
{
	load_module();
	PacketBuffer packet(answer_frame());
	EXPECT_EQ(machine.post_routing(packet, "eth0"), CP_ACCEPT);
	expect_nothing_stored();
	EXPECT_EQ(machine.post_routing(packet, "wlan-2-3"), CP_ACCEPT);
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
	EXPECT_EQ(machine.unload(), 0);
}

} // namespace captive_portal::test
