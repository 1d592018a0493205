// SPDX-License-Identifier: GPL-2.0-only
// Each request of each way of a packet through the hooks fails once. tests/support/fault_sweep.h says what is looked at.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "captive_portal/marks.h"
#include "garden/arecord_cache.h"
#include "platform/host/packet_buffer.h"
#include "tests/support/cast.h"
#include "tests/support/control.h"
#include "tests/support/fault_sweep.h"
#include "tests/support/frame_builder.h"
#include "tests/unit/dns_messages.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

using host::Layout;
using host::Machine;

const FrameBuilder http_syn = frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn();

std::function<long(Machine &)> in(const Frame &bytes, std::optional<uint32_t> mark = {})
{
	return [=](Machine &machine) { return pass_in(machine, bytes, "wlan-1-1", mark); };
}

std::function<long(Machine &)> out(const Frame &bytes, Layout layout = Layout::linear)
{
	return [=](Machine &machine) { return pass_out(machine, bytes, "wlan-1-1", layout); };
}

// The same client's segment that is no SYN: redirected, and nothing is recorded.
Deed redirected_without_record(FrameBuilder syn, std::optional<uint32_t> mark = {})
{
	return [=](Machine &machine) {
		EXPECT_EQ(pass_in(machine, FrameBuilder(syn).ack(), "wlan-1-1", mark), CP_ACCEPT);
	};
}

Deed connections_recorded(uint16_t count)
{
	return [=](Machine &) {
		for (uint16_t i = 0; i < count; ++i) {
			record({2, second_client_of_wlan_1_1.address, static_cast<uint16_t>(10000 + i),
				upstream_server.address, 80, router_mac});
		}
	};
}

// ---- Redirects ------------------------------------------------------------------------------------------------------

// The entry cannot be had: the packet is redirected all the same. The packet cannot be made writable: it is dropped, and
// its connection is known by then.
TEST(FaultsOfPackets, FirstSynOfAnUnadmittedClient)
{
	const Deed on = portal(0, CP_MODE_ON);
	Operation operation{
		.name = "SYN to HTTP",
		.state = {on},
		.run = in(http_syn),
		.result = CP_ACCEPT,
		.allocations = {{.what = "the connection's entry",
				 .result = CP_ACCEPT,
				 .leaves = {redirected_without_record(http_syn)}}},
		.make_writables = {{.what = "the packet", .result = CP_DROP, .leaves = all_of_it()}},
	};
	fail_each_request(operation);

	// 512 connections fill the index's first segment.
	operation.name = "SYN to HTTP, full segment";
	operation.state = {on, connections_recorded(512)};
	operation.allocations.push_back({.what = "the index's next segment",
					 .result = CP_ACCEPT,
					 .leaves = {redirected_without_record(http_syn)}});
	fail_each_request(operation);
}

TEST(FaultsOfPackets, SecondSynOfAConnection)
{
	fail_each_request(
		{.name = "SYN again",
		 .state = {portal(0, CP_MODE_ON),
			   [](Machine &machine) { EXPECT_EQ(pass_in(machine, http_syn, "wlan-1-1"), CP_ACCEPT); }},
		 .run = in(FrameBuilder(http_syn).destination(second_upstream_server.address)),
		 .result = CP_ACCEPT,
		 .make_writables = {{.what = "the packet", .result = CP_DROP, .leaves = all_of_it()}}});
}

// At debug level 3 the line that announces the entry is there, whether the entry can be had or not.
TEST(FaultsOfPackets, SynWithAMarkOfTheFirewall)
{
	const auto lines_of = [](const Operation &operation) {
		Machine machine;
		build_access_point(machine);
		load_module(machine);
		for (const Deed &deed : operation.state) {
			deed(machine);
		}
		machine.log.clear();
		EXPECT_EQ(operation.run(machine), operation.result);
		return machine.log.take();
	};
	for (const uint32_t mark : {uint32_t{MARK_LOGOUT}, uint32_t{MARK_REPUTATION_FIRST}}) {
		Operation operation{.name = "SYN with mark " + std::to_string(mark),
				    .state = {[](Machine &machine) { set_debug_level(machine, 3); }},
				    .run = in(http_syn, mark),
				    .result = CP_ACCEPT};
		const std::vector<LogLine> lines = lines_of(operation);
		EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const LogLine &line) {
			return line.text ==
			       "nf_cp_check: add to table_list, if_index=24  saddr=192.168.1.11 daddr=203.0.113.10  "
			       "src port=14535 dest port=20480\n";
		})) << "51000 and 80 as they lie in the packet";
		operation.allocations = {{.what = "the connection's entry",
					  .result = CP_ACCEPT,
					  .log = lines,
					  .leaves = {redirected_without_record(http_syn, mark)}}};
		operation.make_writables = {
			{.what = "the packet", .result = CP_DROP, .log = lines, .leaves = all_of_it()}};
		fail_each_request(operation);
	}
}

TEST(FaultsOfPackets, SynToTheSocialLogin)
{
	const FrameBuilder syn = FrameBuilder(http_syn).to(social_login);
	fail_each_request({.name = "SYN to the social login",
			   .state = {portal(0, CP_MODE_ON)},
			   .run = in(syn),
			   .result = CP_ACCEPT,
			   .allocations = {{.what = "the connection's entry",
					    .result = CP_ACCEPT,
					    .leaves = {redirected_without_record(syn)}}},
			   .make_writables = {{.what = "the packet", .result = CP_DROP, .leaves = all_of_it()}}});
}

TEST(FaultsOfPackets, FramesThatAskForNothing)
{
	const Deed on = portal(0, CP_MODE_ON);
	const Deed garden_on = garden(0, 1, {upstream_server.address});
	const struct {
		const char *name;
		std::vector<Deed> state;
		Frame bytes;
		cp_verdict verdict;
	} frames[] = {
		{"portal off", {}, http_syn, CP_ACCEPT},
		{"ARP", {on}, frame().from(client_of_wlan_1_1).to(access_point).arp(), CP_ACCEPT},
		{"DHCP", {on}, frame().from(client_of_wlan_1_1).to(broadcast).udp(68, 67), CP_ACCEPT},
		{"ICMP", {on}, frame().from(client_of_wlan_1_1).to(upstream_server).icmp(8), CP_DROP},
		{"other TCP", {on}, frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 22).syn(), CP_DROP},
		{"in the walled garden", {on, garden_on}, http_syn, CP_ACCEPT},
		{"in the cache", {on, garden(0, 1), resolved(upstream_server.address, 1)}, http_syn, CP_ACCEPT},
	};
	for (const auto &[name, state, bytes, verdict] : frames) {
		fail_each_request({.name = name, .state = state, .run = in(bytes), .result = verdict});
	}
}

// ---- Replies --------------------------------------------------------------------------------------------------------

TEST(FaultsOfPackets, RepliesOfThePortal)
{
	const std::vector<Deed> known = {portal(0, CP_MODE_ON), [](Machine &machine) {
						 EXPECT_EQ(pass_in(machine, http_syn, "wlan-1-1"), CP_ACCEPT);
					 }};
	// Unchanged, and accepted. An end of the connection is one whether the packet can be rewritten or not.
	const FrameBuilder reply = frame().from(access_point).to(client_of_wlan_1_1).tcp(10081, 51000);
	for (const uint8_t flags : {tcp_syn | tcp_ack, +tcp_ack, tcp_fin | tcp_ack}) {
		Operation operation{
			.name = "reply with flags " + std::to_string(flags),
			.state = known,
			.run = out(FrameBuilder(reply).flags(flags)),
			.result = CP_ACCEPT,
			.make_writables = {{.what = "the packet", .result = CP_ACCEPT, .leaves = all_of_it()}}};
		fail_each_request(operation);
	}
}

// ---- DNS answers ----------------------------------------------------------------------------------------------------

Frame answer_frame(const Bytes &message)
{
	return frame().from(upstream_dns).to(client_of_wlan_1_1).udp(53, 40000).payload(message);
}

Deed stored(std::string name, Ipv4Address address, uint32_t mask, uint32_t ttl = 60)
{
	return [=](Machine &) {
		add_dns_arecord(arecord_bucket(address), mask, {name.data(), name.size()}, address, ttl);
	};
}

Deed patterns(int32_t row, const char *pattern)
{
	return [=](Machine &machine) { set_garden(machine, UPDATE_RULE, row, 1, {domain_rule(pattern)}); };
}

const Ipv4Address first_address = ipv4(192, 0, 2, 1);
const Ipv4Address second_address = ipv4(198, 51, 100, 7); // in another bucket

// An entry that cannot be had, or its name, or the name's copy: nothing of the address is stored, the next one is. A
// pattern's copy that cannot be had: that rule does not match. The answer itself always passes.
TEST(FaultsOfPackets, DnsAnswerWithNewAddresses)
{
	const Frame answer = answer_frame(answer_for("www.example", 2)
						  .pointer(12)
						  .a_record(60, 192, 0, 2, 1)
						  .pointer(12)
						  .a_record(60, 198, 51, 100, 7));
	const std::vector<Deed> both = {stored("www.example", first_address, 5),
					stored("www.example", second_address, 5)};
	const std::vector<Deed> only_first = {both[0]};
	const std::vector<Deed> only_second = {both[1]};
	const auto with_mask = [](uint32_t mask) {
		return std::vector<Deed>{stored("www.example", first_address, mask),
					 stored("www.example", second_address, mask)};
	};
	Operation operation{
		.name = "DNS answer, two addresses",
		.state = {patterns(0, "*.example"), patterns(2, "www.*"), patterns(3, "ftp.*")},
		.run = out(answer),
		.result = CP_ACCEPT,
		.allocations =
			{
				{.what = "pattern of row 0",
				 .result = CP_ACCEPT,
				 .leaves = with_mask(4),
				 .second_try_heals = false},
				{.what = "pattern of row 2",
				 .result = CP_ACCEPT,
				 .leaves = with_mask(1),
				 .second_try_heals = false},
				{.what = "pattern of row 3", .result = CP_ACCEPT, .leaves = all_of_it()},
				{.what = "first entry", .result = CP_ACCEPT, .leaves = only_second},
				{.what = "first name", .result = CP_ACCEPT, .leaves = only_second},
				{.what = "copy of the first name", .result = CP_ACCEPT, .leaves = only_second},
				{.what = "second entry", .result = CP_ACCEPT, .leaves = only_first},
				{.what = "second name", .result = CP_ACCEPT, .leaves = only_first},
				{.what = "copy of the second name", .result = CP_ACCEPT, .leaves = only_first},
			},
	};
	fail_each_request(operation);

	// An answer whose bytes lie elsewhere is copied first, or not read.
	operation.name = "DNS answer, not linear";
	operation.run = out(answer, Layout::headers_only);
	operation.allocations.insert(operation.allocations.begin(),
				     {.what = "memory for the answer", .result = CP_ACCEPT});
	operation.packet_copies = {{.what = "copy of the answer", .result = CP_ACCEPT}};
	fail_each_request(operation);
}

// Mask and names as before, the deadline is raised all the same.
TEST(FaultsOfPackets, DnsAnswerWithANewName)
{
	const std::vector<Deed> raised = {stored("old.example", first_address, 0, 600)};
	fail_each_request({
		.name = "DNS answer, a new name",
		.state = {patterns(0, "www.example"), stored("old.example", first_address, 2)},
		.run = out(answer_frame(answer_for("www.example", 1).pointer(12).a_record(600, 192, 0, 2, 1))),
		.result = CP_ACCEPT,
		.allocations = {{.what = "the name", .result = CP_ACCEPT, .leaves = raised},
				{.what = "the name's copy", .result = CP_ACCEPT, .leaves = raised}},
	});
}

TEST(FaultsOfPackets, DnsAnswersThatAskForNothing)
{
	fail_each_request(
		{.name = "DNS answer, known",
		 .state = {stored("www.example", first_address, 0)},
		 .run = out(answer_frame(answer_for("www.example", 1).pointer(12).a_record(600, 192, 0, 2, 1))),
		 .result = CP_ACCEPT});
	fail_each_request({.name = "DNS answer without addresses",
			   .run = out(answer_frame(answer_for("www.example", 0))),
			   .result = CP_ACCEPT});
}

// Names that are dear to follow are noted down; without the notes they are followed each time, to the same end.
TEST(FaultsOfPackets, DnsAnswerWithNamesThatAreDearToFollow)
{
	constexpr uint32_t labels = 100;
	constexpr uint32_t records = 60;
	DnsMessage message = answer_for("www.example", records + 2);
	message.pointer(12).record(dns_txt, 60, 2 * labels + 1);
	const auto run = static_cast<uint32_t>(message.size());
	for (uint32_t i = 0; i < labels; ++i) {
		message.label("a");
	}
	message.end_of_name();
	for (uint32_t i = 0; i < records; ++i) {
		message.pointer(run).record(dns_txt, 60, 0);
	}
	message.pointer(run).a_record(60, 192, 0, 2, 1);
	const std::vector<AfterFault> rows = {
		{.what = "the notes", .result = CP_ACCEPT, .leaves = all_of_it()},
		{.what = "entry", .result = CP_ACCEPT},
		{.what = "name", .result = CP_ACCEPT},
		{.what = "the name's copy", .result = CP_ACCEPT},
	};
	fail_each_request({.name = "DNS answer, dear names",
			   .run = out(answer_frame(message)),
			   .result = CP_ACCEPT,
			   .allocations = rows});
}

[[maybe_unused]] const ::testing::Environment *const totals =
	::testing::AddGlobalTestEnvironment(new SweepTotals(22, 41));

} // namespace

} // namespace captive_portal::test
