// SPDX-License-Identifier: GPL-2.0-only
// Each request of each command fails once. tests/support/fault_sweep.h says what is looked at.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/lock.h"
#include "garden/arecord_index.h"
#include "tests/support/cast.h"
#include "tests/support/control.h"
#include "tests/support/fault_sweep.h"

namespace captive_portal::test
{

namespace
{

using host::Machine;

constexpr long refused = -1;
constexpr long no_memory = -12;

const LogLine portal_copy_in = debug_line("[captive portal] get data from user space error\n");
const LogLine garden_copy_in = debug_line("[walled garden] get data from user space error\n");
const LogLine gatekeeper_copy_in = debug_line("[gatekeeper] get data from user space error\n");

// Sends the record; where the reply cannot be copied out the caller's stays as it was sent.
template <typename Record> auto send(int32_t number, Record record)
{
	return [=](Machine &machine) {
		Record reply = record;
		const long result = command(machine, number, reply);
		if (result != 0) {
			EXPECT_EQ(std::memcmp(&reply, &record, sizeof(record)), 0);
		}
		return result;
	};
}

// Of a command that is only read, and of one whose record is copied back.
Operation reading(std::string name, int32_t number, const auto &record, const LogLine &copy_in, long result = 0)
{
	return {.name = std::move(name),
		.run = send(number, record),
		.result = result,
		.allocations = {{.what = "the record's copy", .result = refused, .log = {copy_in}}},
		.user_copies = {{.what = "copy of the record", .result = refused, .log = {copy_in}}}};
}
Operation replying(std::string name, int32_t number, const auto &record, const LogLine &copy_in)
{
	Operation operation = reading(std::move(name), number, record, copy_in);
	operation.user_copies.push_back({.what = "copy of the reply", .result = sizeof(record), .leaves = all_of_it()});
	return operation;
}

gk_cmd gatekeeper_record(uint32_t number, const Host &client = client_of_wlan_1_1)
{
	gk_cmd record{};
	record.cmd = number;
	set_text(record.iface, "wlan-1-1");
	set_text(record.owe_iface, "wlan-1-14");
	record.behavior = OVRA_PASS_DHCP;
	record.status = OVRA_DISCONNECTED;
	std::memcpy(record.mac, client.mac.data(), sizeof(record.mac));
	return record;
}

wg_cmd garden_record(uint32_t number, int32_t row, std::initializer_list<wg_rule> rules)
{
	wg_cmd record{};
	record.cmd = number;
	record.iface = row;
	record.enable_value = 1;
	for (const wg_rule &rule : rules) {
		record.rules[record.rule_number++] = rule;
	}
	return record;
}

Deed garden(uint32_t number, int32_t row, std::initializer_list<wg_rule> rules)
{
	return [record = garden_record(number, row, rules)](Machine &machine) {
		ASSERT_EQ(command(machine, WALLED_GARDEN_IOCTL_SET, record), 0);
	};
}

Deed cached(std::string name, Ipv4Address address, uint32_t mask)
{
	return [=](Machine &) {
		add_dns_arecord(arecord_bucket(address), mask, {name.data(), name.size()}, address, 60);
	};
}

Deed clients_listed(gk_set_command number, uint32_t count)
{
	return [=](Machine &machine) {
		for (uint32_t i = 0; i < count; ++i) {
			change_clients(machine, number, "wlan-1-2",
				       {0x02, 0x44, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)});
		}
	};
}

// ---- Commands 1 and 2 -----------------------------------------------------------------------------------------------

TEST(FaultsOfCommands, PortalSettings)
{
	for (uint32_t number = 0; number <= 10; ++number) {
		cp_cmd record{.cmd = number, .iface = 2, .enable_value = 7, .value = "192.0.2.1"};
		const bool is_known = number <= 1 || number == 5 || (number >= 7 && number <= 9);
		fail_each_request(reading("command 1, " + std::to_string(number), CAPTIVE_PORTAL_IOCTL_SET, record,
					  portal_copy_in, is_known ? 0 : refused));
	}
}

TEST(FaultsOfCommands, PortalSettingsOfA32BitCaller)
{
	const cp_cmd record{.cmd = CAPTIVE_PORTAL, .iface = 2, .enable_value = 7, .value = ""};
	const LogLine first = debug_line("[walled garden] start to get compat ioctl\n");
	Operation operation = reading("command 1 of a 32-bit caller", CAPTIVE_PORTAL_IOCTL_SET, record, portal_copy_in);
	operation.run = [=](Machine &machine) {
		UserRecord<cp_cmd> user(machine, record);
		return machine.compat_ioctl(CAPTIVE_PORTAL_IOCTL_SET, user.address());
	};
	operation.allocations.front().log = {first, portal_copy_in};
	operation.user_copies.front().log = {first, portal_copy_in};
	fail_each_request(operation);
}

TEST(FaultsOfCommands, PortalStatus)
{
	cp_status record{};
	record.cmd = CP_GET_STATUS;
	record.iface = 3;
	fail_each_request(replying("command 2", CAPTIVE_PORTAL_IOCTL_GET, record, portal_copy_in));
}

// ---- Commands 3 and 4 -----------------------------------------------------------------------------------------------

Operation garden_setting(std::string name, const wg_cmd &record, long result = 0)
{
	Operation operation = reading(std::move(name), WALLED_GARDEN_IOCTL_SET, record, garden_copy_in, result);
	operation.allocations.push_back({.what = "the private copy", .result = no_memory});
	return operation;
}

TEST(FaultsOfCommands, GardenSwitch)
{
	fail_each_request(garden_setting("command 3, switch", garden_record(WALLED_GARDEN, 4, {})));
	fail_each_request(garden_setting("command 3, unknown", garden_record(4, 4, {}), refused));
}

TEST(FaultsOfCommands, DefaultRules)
{
	Operation operation =
		garden_setting("default rules", garden_record(UPDATE_DEFAULT_RULE, 0,
							      {domain_rule("a.example"), domain_rule("b.example")}));
	operation.state = {garden(UPDATE_DEFAULT_RULE, 0, {domain_rule("old.example")}),
			   cached("a.example", ipv4(192, 0, 2, 1), 0)};
	fail_each_request(operation);
}

// A rule that cannot be allocated ends the list there. The old rules are gone by then.
TEST(FaultsOfCommands, Rules)
{
	const wg_rule a = domain_rule("a.example");
	const wg_rule b = address_rule(ipv4(192, 0, 2, 0), ipv4(255, 255, 255, 0));
	const wg_rule c = domain_rule("c.example");
	const struct {
		uint32_t number;
		int32_t row;
	} commands[] = {{UPDATE_RULE, 4}, {UPDATE_MIREL_RULE, 27}};
	for (const auto &[number, row] : commands) {
		const LogLine line = debug_line("if_device_write_wg: UPDATE_RULE wg_cmd->iface=" + std::to_string(row) +
						" wg_cmd->rule_number = 3\n");
		Operation operation = garden_setting("rules", garden_record(number, row, {a, b, c}));
		operation.state = {garden(number, row, {domain_rule("old.example"), domain_rule("c.example")}),
				   cached("c.example", ipv4(192, 0, 2, 1), 1U << row)};
		operation.allocations.push_back({.what = "rule 1", .log = {line}, .leaves = {garden(number, row, {})}});
		operation.allocations.push_back(
			{.what = "rule 2", .log = {line}, .leaves = {garden(number, row, {a})}});
		operation.allocations.push_back(
			{.what = "rule 3", .log = {line}, .leaves = {garden(number, row, {a, b})}});
		fail_each_request(operation);
	}
}

// Cached names are matched anew. A pattern's copy that fails: that rule does not match that name.
TEST(FaultsOfCommands, RulesWithPatterns)
{
	const Ipv4Address first = ipv4(192, 0, 2, 1);
	const Ipv4Address second = ipv4(192, 0, 2, 2);
	const auto rules = {domain_rule("*.example"), domain_rule("a.*")};
	const LogLine line = debug_line("if_device_write_wg: UPDATE_RULE wg_cmd->iface=4 wg_cmd->rule_number = 2\n");
	const auto leaves = [&](uint32_t mask_of_first, uint32_t mask_of_second) {
		return std::vector<Deed>{garden(UPDATE_RULE, 4, rules), [=](Machine &) {
						 const auto set = [](Ipv4Address address, uint32_t mask) {
							 const LockGuard guard(Lock::dns_list);
							 find_entry(arecord_bucket(address), address)->is_match_wg =
								 mask;
						 };
						 set(first, mask_of_first);
						 set(second, mask_of_second);
					 }};
	};
	Operation operation = garden_setting("rules with patterns", garden_record(UPDATE_RULE, 4, rules));
	operation.state = {cached("a.example", first, 0), cached("b.example", second, 0)};
	operation.allocations.push_back({.what = "rule 1", .log = {line}, .leaves = {garden(UPDATE_RULE, 4, {})}});
	operation.allocations.push_back(
		{.what = "rule 2", .log = {line}, .leaves = {garden(UPDATE_RULE, 4, {domain_rule("*.example")})}});
	operation.allocations.push_back(
		{.what = "copy of *.example for a.example; a.* matches", .log = {line}, .leaves = all_of_it()});
	operation.allocations.push_back(
		{.what = "copy of *.example for b.example", .log = {line}, .leaves = leaves(16, 0)});
	fail_each_request(operation);
}

TEST(FaultsOfCommands, GardenReplies)
{
	for (uint32_t number = 0; number <= 7; ++number) {
		Operation operation = replying("command 4, " + std::to_string(number), WALLED_GARDEN_IOCTL_GET,
					       garden_record(number, 4, {}), garden_copy_in);
		operation.state = {garden(UPDATE_RULE, 4, {domain_rule("a.example")}),
				   garden(UPDATE_DEFAULT_RULE, 0, {domain_rule("d.example")})};
		fail_each_request(operation);
	}
}

// ---- Commands 5 to 7, 11, and unknown ones --------------------------------------------------------------------------

// The address is stored in every case: what could not be read is 0.
TEST(FaultsOfCommands, Gateway)
{
	const Deed known = [](Machine &machine) { set_gateway_address(machine, router.address); };
	fail_each_request(
		{.name = "command 6",
		 .state = {known},
		 .run = send(GATEWAY_IOCTL_SET, wired_host.address),
		 .user_copies = {{.what = "copy of the address",
				  .leaves = {[](Machine &machine) { set_gateway_address(machine, Ipv4Address{}); }}}}});
	fail_each_request({.name = "command 7",
			   .state = {known},
			   .run = send(GATEWAY_IOCTL_GET, Ipv4Address{}),
			   .user_copies = {{.what = "copy of the address", .result = sizeof(Ipv4Address)}}});
}

TEST(FaultsOfCommands, CommandsWithoutARecordAskForNothing)
{
	for (const int32_t number : {0, 5, 11, 12, -1}) {
		fail_each_request({.name = "command " + std::to_string(number),
				   .run = [=](Machine &machine) { return machine.ioctl(number, 3); },
				   .result = number == ENV_SET_DEBUG_LEVEL ? 0 : refused});
	}
	fail_each_request({.name = "open and release",
			   .run = [](Machine &machine) { return machine.open() + machine.release(); }});
}

// ---- Commands 8 to 10 -----------------------------------------------------------------------------------------------

struct Addition {
	uint32_t number;
	const char *name;
	const char *place;             // printed when there is no memory for the node
	std::vector<const char *> log; // before the node is asked for
};

const Addition additions[] = {
	{0, "ADD_WHITELIST_MAC", "1874", {}},
	{2, "ADD_AUTH_MAC", "2077", {"[gatekeeper] if_device_write: ADD_AUTH_MAC gk_cmd.iface=wlan-1-1 \n"}},
	{4,
	 "ADD_LOGIN_MAC",
	 "2147",
	 {"[gatekeeper] if_device_write: ADD_LOGIN_MAC gk_cmd.iface=wlan-1-1 \n",
	  "[gatekeeper] add mac= 02:11:01:01:01:00 \n"}},
	{22, "ADD_MIREL_BLACK_LIST_MAC", "2468", {}},
	{24, "ADD_MIREL_WHITE_LIST_MAC", "2518", {}},
	{26, "ADD_GA_WHITELIST_MAC", "1941", {}},
	{31,
	 "ADD_MAC_AUTH_FALLBACK",
	 "2008",
	 {"[gatekeeper] if_device_write: ADD_MAC_AUTH_FALLBACK gk_cmd.mac=02:11:01:01:01:00, gk_cmd.iface=wlan-1-1\n"}},
};

Operation adding(const Addition &addition)
{
	Operation operation =
		reading(addition.name, GATEKEEPER_IOCTL_SET, gatekeeper_record(addition.number), gatekeeper_copy_in);
	AfterFault node{.what = "the node"};
	for (const char *const line : addition.log) {
		node.log.push_back(debug_line(line));
	}
	node.log.push_back(
		debug_line(std::string("[gatekeeper] kmalloc fail(if_device_write_gk)(") + addition.place + ") \n"));
	operation.allocations.push_back(std::move(node));
	return operation;
}

TEST(FaultsOfCommands, ClientsThatAreAdded)
{
	for (const Addition &addition : additions) {
		fail_each_request(adding(addition));
	}
}

// What finds the clients of a list is as large as it need be: the 51st address asks for more. Without it, the node is of
// no use and goes too.
TEST(FaultsOfCommands, ClientsThatNeedALargerIndex)
{
	for (const Addition &addition : additions) {
		Operation operation = adding(addition);
		operation.state = {clients_listed(ADD_WHITELIST_MAC, 50)};
		AfterFault index = operation.allocations.back();
		index.what = "the index's array";
		operation.allocations.push_back(std::move(index));
		fail_each_request(operation);
	}
}

TEST(FaultsOfCommands, ClientsOnTheBlackListThatBecomeWhite)
{
	Operation operation = adding(additions[4]);
	operation.state = {[](Machine &machine) {
		change_clients(machine, ADD_MIREL_BLACK_LIST_MAC, "", client_of_wlan_1_1.mac);
	}};
	fail_each_request(operation);
}

TEST(FaultsOfCommands, AllOtherSettingsOfTheGatekeeper)
{
	for (uint32_t number = 0; number <= 40; ++number) {
		if (std::any_of(std::begin(additions), std::end(additions),
				[=](const Addition &addition) { return addition.number == number; })) {
			continue;
		}
		constexpr uint32_t known[] = {1, 3, 5, 9, 10, 12, 16, 23, 25, 27, 30, 32, 34};
		const bool is_known = std::find(std::begin(known), std::end(known), number) != std::end(known);
		Operation operation = reading("command 8, " + std::to_string(number), GATEKEEPER_IOCTL_SET,
					      gatekeeper_record(number), gatekeeper_copy_in, is_known ? 0 : refused);
		operation.state = {[](Machine &machine) {
			for (const Addition &addition : additions) {
				change_clients(machine, static_cast<gk_set_command>(addition.number), "wlan-1-1",
					       client_of_wlan_1_1.mac);
			}
		}};
		fail_each_request(operation);
	}
}

TEST(FaultsOfCommands, GatekeeperReplies)
{
	// All that are known, and some that are not.
	for (const uint32_t number : {0, 6, 7, 8, 11, 14, 18, 19, 20, 21, 28, 29, 33, 35, 36}) {
		gk_list_reply list{};
		list.cmd = number;
		set_text(list.iface, "wlan-1-2");
		set_text(list.owe_iface, "wlan-1-14");
		Operation operation = replying("command 9, " + std::to_string(number), GATEKEEPER_IOCTL_GET, list,
					       gatekeeper_copy_in);
		operation.state = {clients_listed(ADD_WHITELIST_MAC, 3)};
		fail_each_request(operation);

		gk_check_reply check{};
		check.cmd = number;
		set_text(check.iface, "wlan-1-2");
		std::memcpy(check.mac, client_of_wlan_1_2.mac.data(), sizeof(check.mac));
		operation = replying("command 10, " + std::to_string(number), GATEKEEPER_IOCTL_CHECK, check,
				     gatekeeper_copy_in);
		operation.state = {clients_listed(ADD_WHITELIST_MAC, 3)};
		fail_each_request(operation);
	}
}

[[maybe_unused]] const ::testing::Environment *const totals =
	::testing::AddGlobalTestEnvironment(new SweepTotals(114, 291));

} // namespace

} // namespace captive_portal::test
