// SPDX-License-Identifier: GPL-2.0-only
#include <climits>
#include <memory>

#include <gtest/gtest.h>

#include "base/debug_level.h"
#include "garden/arecord_table.h"
#include "garden/walled_garden.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_records.h"

namespace captive_portal::test
{

namespace
{

constexpr uint32_t all_rows = 0x0fffffff;
constexpr uint32_t all_bits = 0xffffffff;

class WalledGardenCommandsTest : public HostTest
{
protected:
	WalledGardenCommandsTest() { init_walled_garden_table(); }

	// Puts a name that no rule matches into the cache with every bit set: each refreshed row loses its bit.
	void cache_name(std::string_view name = "cached.example")
	{
		const ExactText exact(name);
		add_dns_arecord(arecord_bucket(cached_address), all_bits, exact.text(), cached_address, 60);
	}
	[[nodiscard]] uint32_t cached_mask() const
	{
		const dns_arecord *const entry = dns_aRecord[arecord_bucket(cached_address)].first();
		return entry != nullptr ? entry->is_match_wg : 0;
	}

	[[nodiscard]] static std::vector<std::string> patterns_of(uint32_t row)
	{
		std::vector<std::string> patterns;
		for (const wg_rule_node *node = walled_garden_table[row].rule_list; node != nullptr;
		     node = node->next) {
			patterns.emplace_back(node->domain_name);
		}
		return patterns;
	}
	[[nodiscard]] static std::string default_name(uint32_t slot)
	{
		return {default_rule[slot].domain_name, strnlen(default_rule[slot].domain_name, WG_DOMAIN_NAME_SIZE)};
	}

	const Ipv4Address cached_address = ipv4(198, 51, 100, 7);
};

using Patterns = std::vector<std::string>;

// Sub-command 0

TEST_F(WalledGardenCommandsTest, SwitchStoresTheValueAndLogsIt)
{
	EXPECT_EQ(WgRecord(WALLED_GARDEN, 5, 3).write(), 0);
	EXPECT_EQ(walled_garden_table[5].enable_value, 3u);
	EXPECT_EQ(walled_garden_table[4].enable_value, 0u);
	EXPECT_EQ(walled_garden_table[6].enable_value, 0u);
	EXPECT_LOG(debug_line("if_device_write_wg: WALLED_GARDEN wg_cmd->iface=5 wg_cmd->enable_value=3\n"));
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(WalledGardenCommandsTest, SwitchPrintsTheValueAsASignedNumber)
{
	EXPECT_EQ(WgRecord(WALLED_GARDEN, 0, 0xffffffff).write(), 0);
	EXPECT_EQ(walled_garden_table[0].enable_value, 0xffffffffu);
	EXPECT_LOG(debug_line("if_device_write_wg: WALLED_GARDEN wg_cmd->iface=0 wg_cmd->enable_value=-1\n"));
}

TEST_F(WalledGardenCommandsTest, SwitchTakesTheSpecialRows)
{
	for (const int32_t row : {24, 25, 26, 27}) {
		EXPECT_EQ(WgRecord(WALLED_GARDEN, row, 9).write(), 0);
		EXPECT_EQ(walled_garden_table[row].enable_value, 9u);
	}
}

TEST_F(WalledGardenCommandsTest, SwitchLogsAndRefusesARowOutOfRange)
{
	EXPECT_EQ(WgRecord(WALLED_GARDEN, 28, 1).write(), -1);
	EXPECT_EQ(WgRecord(WALLED_GARDEN, -1, 1).write(), -1);
	EXPECT_EQ(WgRecord(WALLED_GARDEN, INT_MIN, 1).write(), -1);
	EXPECT_LOG(debug_line("if_device_write_wg: WALLED_GARDEN wg_cmd->iface=28 wg_cmd->enable_value=1\n"),
		   debug_line("if_device_write_wg: WALLED_GARDEN wg_cmd->iface=-1 wg_cmd->enable_value=1\n"),
		   debug_line("if_device_write_wg: WALLED_GARDEN wg_cmd->iface=-2147483648 wg_cmd->enable_value=1\n"));
	for (const wg_row &row : walled_garden_table) {
		EXPECT_EQ(row.enable_value, 0u);
	}
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(WalledGardenCommandsTest, SwitchLooksAtNoRuleAndRefreshesNothing)
{
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("kept.example").write(), 0);
	cache_name();
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	EXPECT_EQ(WgRecord(WALLED_GARDEN, 5, 0).rule_number(25).write(), 0);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST), before);
	EXPECT_EQ(cached_mask(), all_bits);
	EXPECT_EQ(patterns_of(5), (Patterns{"kept.example"}));
}

// Sub-command 1

TEST_F(WalledGardenCommandsTest, DefaultRulesAreStoredAndLoggedOneByOne)
{
	EXPECT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a.example").domain("b.example").write(), 0);
	EXPECT_EQ(default_name(0), "a.example");
	EXPECT_EQ(default_name(1), "b.example");
	EXPECT_EQ(default_name(2), "");
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_DEFAULT_RULE wg_cmd->rule_number = 2\n"),
		   debug_line("default_rule[0].domain_name=a.example\n"),
		   debug_line("default_rule[1].domain_name=b.example\n"));
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(WalledGardenCommandsTest, DefaultRulesReplaceAllEarlierOnes)
{
	std::strcpy(default_rule[35].domain_name, "last.example");
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a.example").domain("b.example").write(), 0);
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("c").write(), 0);
	EXPECT_EQ(default_name(0), "c");
	EXPECT_EQ(default_rule[0].domain_name[2], '\0');
	for (uint32_t slot = 1; slot < 36; ++slot) {
		EXPECT_EQ(default_name(slot), "") << slot;
	}
}

TEST_F(WalledGardenCommandsTest, DefaultRulesKeepAndPrintAll128Bytes)
{
	const std::string name = std::string(127, 'n') + "x";
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain(name).domain("next").write(), 0);
	EXPECT_EQ(default_name(0), name);
	EXPECT_EQ(default_name(1), "next");
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_DEFAULT_RULE wg_cmd->rule_number = 2\n"),
		   debug_line("default_rule[0].domain_name=" + name + "\n"),
		   debug_line("default_rule[1].domain_name=next\n"));
}

TEST_F(WalledGardenCommandsTest, DefaultRulesTakeTheNameOfAnyRuleType)
{
	WgRecord record(UPDATE_DEFAULT_RULE, 0);
	record.domain("a.example");
	record.record.rules[0].rule_type = WG_RULE_ADDRESS;
	EXPECT_EQ(record.write(), 0);
	EXPECT_EQ(default_name(0), "a.example");
}

TEST_F(WalledGardenCommandsTest, DefaultRulesDoNotLookAtTheRow)
{
	for (const int32_t row : {-1, 28, INT_MIN, INT_MAX}) {
		EXPECT_EQ(WgRecord(UPDATE_DEFAULT_RULE, row, 1).domain("a.example").write(), 0);
	}
	EXPECT_EQ(default_name(0), "a.example");
	for (const wg_row &row : walled_garden_table) {
		EXPECT_EQ(row.enable_value, 0u);
	}
}

TEST_F(WalledGardenCommandsTest, NoDefaultRulesClearAllAndStillRefreshEveryRow)
{
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a.example").write(), 0);
	cache_name();
	machine.log.clear();
	EXPECT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).write(), 0);
	EXPECT_EQ(default_name(0), "");
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_DEFAULT_RULE wg_cmd->rule_number = 0\n"));
	EXPECT_EQ(cached_mask(), 0xf0000000u);
}

TEST_F(WalledGardenCommandsTest, ANegativeNumberOfDefaultRulesActsAsNone)
{
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a.example").write(), 0);
	cache_name();
	machine.log.clear();
	EXPECT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("b.example").rule_number(-3).write(), 0);
	EXPECT_EQ(default_name(0), "");
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_DEFAULT_RULE wg_cmd->rule_number = -3\n"));
	EXPECT_EQ(cached_mask(), 0xf0000000u);
}

TEST_F(WalledGardenCommandsTest, ADefaultRuleMarksACachedNameForEveryRow)
{
	const ExactText name("a.example");
	add_dns_arecord(arecord_bucket(cached_address), 0, name.text(), cached_address, 60);
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a.example").write(), 0);
	EXPECT_EQ(cached_mask(), all_rows);
}

TEST_F(WalledGardenCommandsTest, Takes24DefaultRules)
{
	WgRecord record(UPDATE_DEFAULT_RULE, 0);
	for (int i = 0; i < 24; ++i) {
		record.domain("r" + std::to_string(i));
	}
	EXPECT_EQ(record.write(), 0);
	EXPECT_EQ(default_name(23), "r23");
	EXPECT_EQ(default_name(24), "");
	EXPECT_EQ(machine.log.lines().size(), 25u);
}

TEST_F(WalledGardenCommandsTest, RefusesMoreThan24DefaultRules)
{
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a.example").write(), 0);
	cache_name();
	machine.log.clear();
	EXPECT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("b.example").rule_number(25).write(), -22);
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_DEFAULT_RULE wg_cmd->rule_number = 25\n"),
		   error_line("[walled garden] rule_number 25 out of range\n"));
	EXPECT_EQ(default_name(0), "a.example");
	EXPECT_EQ(cached_mask(), all_bits);
}

// Sub-command 2

TEST_F(WalledGardenCommandsTest, RulesAreStoredInTheOrderReceivedAndSwitchTheRow)
{
	EXPECT_EQ(WgRecord(UPDATE_RULE, 5, 2)
			  .domain("*.a.example")
			  .address(ipv4(10, 1, 2, 0), ipv4(255, 255, 255, 0))
			  .domain("b.example")
			  .write(),
		  0);
	EXPECT_EQ(walled_garden_table[5].enable_value, 2u);
	const wg_rule_node *node = walled_garden_table[5].rule_list;
	ASSERT_NE(node, nullptr);
	EXPECT_EQ(node->rule_type, 0u);
	EXPECT_STREQ(node->domain_name, "*.a.example");
	node = node->next;
	ASSERT_NE(node, nullptr);
	EXPECT_EQ(node->rule_type, 1u);
	EXPECT_EQ(node->ip_addr, 0x0002010au);
	EXPECT_EQ(node->netmask, 0x00ffffffu);
	EXPECT_STREQ(node->domain_name, "");
	node = node->next;
	ASSERT_NE(node, nullptr);
	EXPECT_STREQ(node->domain_name, "b.example");
	EXPECT_EQ(node->next, nullptr);
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_RULE wg_cmd->iface=5 wg_cmd->rule_number = 3\n"));
	EXPECT_EQ(machine.live_allocations().size(), 3u);
}

TEST_F(WalledGardenCommandsTest, RulesReplaceAllEarlierOnesOfTheirRowOnly)
{
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("a.example").domain("b.example").write(), 0);
	ASSERT_EQ(WgRecord(UPDATE_RULE, 6, 1).domain("c.example").write(), 0);
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 0).domain("d.example").write(), 0);
	EXPECT_EQ(patterns_of(5), (Patterns{"d.example"}));
	EXPECT_EQ(patterns_of(6), (Patterns{"c.example"}));
	EXPECT_EQ(walled_garden_table[5].enable_value, 0u);
	EXPECT_EQ(walled_garden_table[6].enable_value, 1u);
	EXPECT_EQ(machine.live_allocations().size(), 2u);
}

TEST_F(WalledGardenCommandsTest, NoRulesEmptyTheRow)
{
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("a.example").write(), 0);
	EXPECT_EQ(WgRecord(UPDATE_RULE, 5, 1).write(), 0);
	EXPECT_EQ(walled_garden_table[5].rule_list, nullptr);
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(WalledGardenCommandsTest, ANegativeNumberOfRulesActsAsNone)
{
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 0).domain("a.example").write(), 0);
	cache_name();
	machine.log.clear();
	EXPECT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("b.example").rule_number(INT_MIN).write(), 0);
	EXPECT_EQ(walled_garden_table[5].rule_list, nullptr);
	EXPECT_EQ(walled_garden_table[5].enable_value, 1u);
	EXPECT_EQ(cached_mask(), 0xffffffdfu);
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_RULE wg_cmd->iface=5 wg_cmd->rule_number = -2147483648\n"));
}

TEST_F(WalledGardenCommandsTest, ARuleKeeps127CharactersOfItsPattern)
{
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain(std::string(127, 'n') + "x").domain("next").write(), 0);
	EXPECT_EQ(patterns_of(5), (Patterns{std::string(127, 'n'), "next"}));
}

TEST_F(WalledGardenCommandsTest, NothingBehindThePatternsNulIsKept)
{
	WgRecord record(UPDATE_RULE, 5, 1);
	record.domain("abc");
	record.record.rules[0].domain_name[4] = 'x';
	record.record.rules[0].domain_name[127] = 'y';
	ASSERT_EQ(record.write(), 0);
	for (size_t i = 3; i < 128; ++i) {
		EXPECT_EQ(walled_garden_table[5].rule_list->domain_name[i], '\0') << i;
	}
}

TEST_F(WalledGardenCommandsTest, RulesOfTheSpecialRowsAreStored)
{
	for (const int32_t row : {24, 25, 26, 27}) {
		EXPECT_EQ(WgRecord(UPDATE_RULE, row, 1).domain("a.example").write(), 0);
		EXPECT_EQ(patterns_of(static_cast<uint32_t>(row)), (Patterns{"a.example"}));
	}
}

TEST_F(WalledGardenCommandsTest, RulesRefreshTheirRowOnly)
{
	cache_name();
	EXPECT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("other.example").write(), 0);
	EXPECT_EQ(cached_mask(), 0xffffffdfu);
	EXPECT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("*.example").write(), 0);
	EXPECT_EQ(cached_mask(), all_bits);
}

TEST_F(WalledGardenCommandsTest, RulesAreReplacedInOneHold)
{
	EXPECT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("a.example").write(), 0);
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
	EXPECT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("b.example").write(), 0);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), before + 1) << "the cache is empty: nobody asks";
}

TEST_F(WalledGardenCommandsTest, EveryCommandIsOneHold)
{
	for (const uint32_t sub_command : {0u, 1u, 2u, 3u, 99u}) {
		const uint64_t before = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
		EXPECT_EQ(WgRecord(sub_command, 5).write(), sub_command == 99 ? -1 : 0);
		EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), before + 1) << sub_command;
	}
	wg_cmd record{};
	for (const uint32_t sub_command : {4u, 5u, 99u}) {
		record.cmd = sub_command;
		const uint64_t before = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
		EXPECT_EQ(get_walled_garden_list(&record), 0);
		EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), before + 1) << sub_command;
	}
}

TEST_F(WalledGardenCommandsTest, RulesForARowOutOfRangeAreLoggedAndRefused)
{
	cache_name();
	EXPECT_EQ(WgRecord(UPDATE_RULE, 28, 1).domain("a.example").write(), -1);
	EXPECT_EQ(WgRecord(UPDATE_RULE, -1, 1).domain("a.example").write(), -1);
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_RULE wg_cmd->iface=28 wg_cmd->rule_number = 1\n"),
		   debug_line("if_device_write_wg: UPDATE_RULE wg_cmd->iface=-1 wg_cmd->rule_number = 1\n"));
	for (const wg_row &row : walled_garden_table) {
		EXPECT_EQ(row.enable_value, 0u);
		EXPECT_EQ(row.rule_list, nullptr);
	}
	EXPECT_EQ(cached_mask(), all_bits);
}

TEST_F(WalledGardenCommandsTest, TheRowIsTestedBeforeTheNumberOfRules)
{
	EXPECT_EQ(WgRecord(UPDATE_RULE, 28, 1).rule_number(25).write(), -1);
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_RULE wg_cmd->iface=28 wg_cmd->rule_number = 25\n"));
}

TEST_F(WalledGardenCommandsTest, Takes24Rules)
{
	WgRecord record(UPDATE_RULE, 5, 1);
	Patterns expected;
	for (int i = 0; i < 24; ++i) {
		expected.push_back("r" + std::to_string(i));
		record.domain(expected.back());
	}
	EXPECT_EQ(record.write(), 0);
	EXPECT_EQ(patterns_of(5), expected);
}

TEST_F(WalledGardenCommandsTest, RefusesMoreThan24Rules)
{
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("a.example").write(), 0);
	cache_name();
	machine.log.clear();
	EXPECT_EQ(WgRecord(UPDATE_RULE, 5, 0).domain("b.example").rule_number(25).write(), -22);
	EXPECT_EQ(WgRecord(UPDATE_RULE, 5, 0).domain("b.example").rule_number(INT_MAX).write(), -22);
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_RULE wg_cmd->iface=5 wg_cmd->rule_number = 25\n"),
		   error_line("[walled garden] rule_number 25 out of range\n"),
		   debug_line("if_device_write_wg: UPDATE_RULE wg_cmd->iface=5 wg_cmd->rule_number = 2147483647\n"),
		   error_line("[walled garden] rule_number 2147483647 out of range\n"));
	EXPECT_EQ(walled_garden_table[5].enable_value, 1u);
	EXPECT_EQ(patterns_of(5), (Patterns{"a.example"}));
	EXPECT_EQ(cached_mask(), all_bits);
}

// Sub-command 3

TEST_F(WalledGardenCommandsTest, MirelRulesGoToRow27WhateverTheRecordSays)
{
	for (const int32_t row : {5, 27, 99, -5}) {
		machine.log.clear();
		const WgRecord record = WgRecord(UPDATE_MIREL_RULE, row, 1).domain("row" + std::to_string(row));
		EXPECT_EQ(record.write(), 0);
		EXPECT_EQ(patterns_of(27), (Patterns{"row" + std::to_string(row)}));
		EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_RULE wg_cmd->iface=27 wg_cmd->rule_number = 1\n"));
		// The row is forced in the private copy alone.
		EXPECT_EQ(record.record.iface, row);
	}
	EXPECT_EQ(walled_garden_table[27].enable_value, 1u);
	EXPECT_EQ(walled_garden_table[5].enable_value, 0u);
	EXPECT_EQ(walled_garden_table[5].rule_list, nullptr);
}

TEST_F(WalledGardenCommandsTest, MirelRulesRefreshRow27Only)
{
	cache_name();
	EXPECT_EQ(WgRecord(UPDATE_MIREL_RULE, 5, 1).domain("other.example").write(), 0);
	EXPECT_EQ(cached_mask(), 0xf7ffffffu);
}

TEST_F(WalledGardenCommandsTest, RefusesMoreThan24MirelRules)
{
	ASSERT_EQ(WgRecord(UPDATE_MIREL_RULE, 0, 1).domain("a.example").write(), 0);
	cache_name();
	machine.log.clear();
	EXPECT_EQ(WgRecord(UPDATE_MIREL_RULE, -1, 0).rule_number(25).write(), -22);
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_RULE wg_cmd->iface=27 wg_cmd->rule_number = 25\n"),
		   error_line("[walled garden] rule_number 25 out of range\n"));
	EXPECT_EQ(patterns_of(27), (Patterns{"a.example"}));
	EXPECT_EQ(walled_garden_table[27].enable_value, 1u);
	EXPECT_EQ(cached_mask(), all_bits);
}

// Every sub-command of command 3

TEST_F(WalledGardenCommandsTest, LogLinesDoNotDependOnTheDebugLevel)
{
	debug_level = -1;
	EXPECT_EQ(WgRecord(WALLED_GARDEN, 0, 1).write(), 0);
	EXPECT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a").write(), 0);
	EXPECT_EQ(WgRecord(UPDATE_RULE, 0, 1).rule_number(25).write(), -22);
	EXPECT_EQ(machine.log.lines().size(), 5u);
}

TEST_F(WalledGardenCommandsTest, AnUnknownSubCommandChangesAndLogsNothing)
{
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("a.example").write(), 0);
	cache_name();
	machine.log.clear();
	for (const uint32_t command : {4u, 5u, 6u, 0x80000000u, 0xffffffffu}) {
		EXPECT_EQ(WgRecord(command, 5, 0).domain("b.example").write(), -1) << command;
	}
	EXPECT_NO_LOG();
	EXPECT_EQ(patterns_of(5), (Patterns{"a.example"}));
	EXPECT_EQ(walled_garden_table[5].enable_value, 1u);
	EXPECT_EQ(cached_mask(), all_bits);
}

TEST_F(WalledGardenCommandsTest, WithoutMemoryForThePrivateCopyNothingHappens)
{
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("default.example").write(), 0);
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("a.example").write(), 0);
	ASSERT_EQ(WgRecord(UPDATE_MIREL_RULE, 0, 1).domain("m.example").write(), 0);
	cache_name();
	machine.log.clear();
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
	for (const uint32_t command : {0u, 1u, 2u, 3u, 4u, 0xffffffffu}) {
		machine.memory.fail_allocation(1);
		EXPECT_EQ(WgRecord(command, 5, 0).domain("b.example").write(), -12) << command;
	}
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), before);
	EXPECT_NO_LOG();
	EXPECT_EQ(default_name(0), "default.example");
	EXPECT_EQ(patterns_of(5), (Patterns{"a.example"}));
	EXPECT_EQ(patterns_of(27), (Patterns{"m.example"}));
	EXPECT_EQ(walled_garden_table[5].enable_value, 1u);
	EXPECT_EQ(cached_mask(), all_bits);
}

TEST_F(WalledGardenCommandsTest, ThePrivateCopyIsTheOnlyAllocationOfASwitchAndOfDefaultRules)
{
	const uint64_t before = machine.memory.attempts();
	EXPECT_EQ(WgRecord(WALLED_GARDEN, 5, 1).write(), 0);
	EXPECT_EQ(machine.memory.attempts(), before + 1);
	EXPECT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a").domain("b").write(), 0);
	EXPECT_EQ(machine.memory.attempts(), before + 2);
	EXPECT_TRUE(machine.live_allocations().empty());
}

// Rows 5 and 27, rules 1 to 4, and each allocation behind that of the private copy.
TEST_F(WalledGardenCommandsTest, ARuleThatCannotBeAllocatedEndsTheListThere)
{
	const Patterns all = {"r1", "r2", "r3", "r4"};
	for (const uint32_t command : {2u, 3u}) {
		const uint32_t row = command == 3 ? 27 : 5;
		for (size_t kept = 0; kept < all.size(); ++kept) {
			ASSERT_EQ(WgRecord(command, 5, 1).domain("old.example").write(), 0);
			WgRecord record(command, 5, 8);
			for (const std::string &pattern : all) {
				record.domain(pattern);
			}
			// The private copy, the rules before it, and then this one.
			machine.memory.fail_allocation(kept + 2);
			EXPECT_EQ(record.write(), 0);
			EXPECT_EQ(patterns_of(row), Patterns(all.begin(), all.begin() + static_cast<long>(kept)));
			EXPECT_EQ(walled_garden_table[row].enable_value, 8u);
			EXPECT_TRUE(machine.lost_allocations().empty());
		}
	}
}

TEST_F(WalledGardenCommandsTest, TheRefreshFollowsARuleThatCannotBeAllocated)
{
	cache_name();
	machine.memory.fail_allocation(2);
	EXPECT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("cached.example").write(), 0);
	EXPECT_EQ(cached_mask(), 0xffffffdfu);
}

TEST_F(WalledGardenCommandsTest, APatternThatCannotBeCopiedInTheRefreshDoesNotMatch)
{
	cache_name();
	// The private copy, one rule, and then the copy of its pattern.
	machine.memory.fail_allocation(3);
	EXPECT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("*.example").write(), 0);
	EXPECT_EQ(cached_mask(), 0xffffffdfu);
	EXPECT_EQ(patterns_of(5), (Patterns{"*.example"}));
}

TEST_F(WalledGardenCommandsTest, NoByteBehindTheGivenLengthIsRead)
{
	const WgRecord record = WgRecord(UPDATE_RULE, 5, 1).domain("abc").domain("def");
	const size_t length = 16 + 140 + 12; // up to the name of the second rule
	const std::unique_ptr<unsigned char[]> bytes(new unsigned char[length]);
	std::memcpy(bytes.get(), &record.record, length);
	EXPECT_EQ(if_device_write_wg(reinterpret_cast<const wg_cmd *>(bytes.get()), static_cast<uint32_t>(length)), 0);
	EXPECT_EQ(patterns_of(5), (Patterns{"abc", ""}));
}

// Command 4

// A record in which every byte shows whether it was written.
[[nodiscard]] wg_cmd sent(uint32_t command, int32_t iface)
{
	wg_cmd record;
	std::memset(&record, 0xee, sizeof(record));
	record.cmd = command;
	record.iface = iface;
	return record;
}

[[nodiscard]] bool same(const wg_cmd &a, const wg_cmd &b)
{
	return std::memcmp(&a, &b, sizeof(a)) == 0;
}

TEST_F(WalledGardenCommandsTest, GetWritesOfEachRuleWhatItsTypeNeeds)
{
	WgRecord rules(UPDATE_RULE, 5, 6);
	rules.domain("abc").address(ipv4(10, 1, 2, 0), ipv4(255, 255, 255, 0));
	rules.record.rules[1].rule_type = 7;
	ASSERT_EQ(rules.write(), 0);
	machine.log.clear();

	wg_cmd record = sent(GET_WALLED_GARDEN_RULE, 5);
	wg_cmd expected = record;
	expected.enable_value = 6;
	expected.rule_number = 2;
	expected.rules[0].rule_type = 0;
	std::memcpy(expected.rules[0].domain_name, "abc", 4);
	expected.rules[1].rule_type = 7;
	expected.rules[1].ip_addr = 0x0002010a;
	expected.rules[1].netmask = 0x00ffffff;
	EXPECT_EQ(get_walled_garden_list(&record), 0);
	EXPECT_TRUE(same(record, expected));
	EXPECT_NO_LOG();
}

TEST_F(WalledGardenCommandsTest, GetOfARowWithoutRulesWritesSwitchAndNumber)
{
	ASSERT_EQ(WgRecord(WALLED_GARDEN, 23, 1).write(), 0);
	wg_cmd record = sent(GET_WALLED_GARDEN_RULE, 23);
	wg_cmd expected = record;
	expected.enable_value = 1;
	expected.rule_number = 0;
	EXPECT_EQ(get_walled_garden_list(&record), 0);
	EXPECT_TRUE(same(record, expected));
}

TEST_F(WalledGardenCommandsTest, GetReads24RulesAndAPatternOf127Characters)
{
	WgRecord rules(UPDATE_RULE, 0, 1);
	for (int i = 0; i < 24; ++i) {
		rules.domain(std::string(128, static_cast<char>('a' + i)));
	}
	ASSERT_EQ(rules.write(), 0);
	wg_cmd record = sent(GET_WALLED_GARDEN_RULE, 0);
	EXPECT_EQ(get_walled_garden_list(&record), 0);
	EXPECT_EQ(record.rule_number, 24);
	EXPECT_EQ(std::string(record.rules[0].domain_name), std::string(127, 'a'));
	EXPECT_EQ(std::string(record.rules[23].domain_name), std::string(127, 'x'));
}

TEST_F(WalledGardenCommandsTest, GetOfARowThatIsNotWirelessWritesNothing)
{
	for (const int32_t row : {24, 25, 26, 27}) {
		ASSERT_EQ(WgRecord(UPDATE_RULE, row, 1).domain("a.example").write(), 0);
	}
	for (const int32_t row : {24, 25, 26, 27, 28, -1, INT_MIN, INT_MAX}) {
		wg_cmd record = sent(GET_WALLED_GARDEN_RULE, row);
		const wg_cmd before = record;
		EXPECT_EQ(get_walled_garden_list(&record), 0) << row;
		EXPECT_TRUE(same(record, before)) << row;
	}
}

TEST_F(WalledGardenCommandsTest, GetOfDefaultRulesWritesNamesAndTheirNumber)
{
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a.example").domain("b").write(), 0);
	wg_cmd record = sent(GET_DEFAULT_RULE, -1);
	wg_cmd expected = record;
	expected.rule_number = 2;
	std::memcpy(expected.rules[0].domain_name, "a.example", 10);
	std::memcpy(expected.rules[1].domain_name, "b", 2);
	EXPECT_EQ(get_walled_garden_list(&record), 0);
	EXPECT_TRUE(same(record, expected));
}

TEST_F(WalledGardenCommandsTest, GetOfDefaultRulesKeepsTheNumberWhenThereAreNone)
{
	wg_cmd record = sent(GET_DEFAULT_RULE, 0);
	record.rule_number = 17;
	const wg_cmd before = record;
	EXPECT_EQ(get_walled_garden_list(&record), 0);
	EXPECT_TRUE(same(record, before));
}

TEST_F(WalledGardenCommandsTest, GetOfDefaultRulesStopsAtTheFirstEmptySlot)
{
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a.example").domain("").domain("c.example").write(), 0);
	wg_cmd record = sent(GET_DEFAULT_RULE, 0);
	wg_cmd expected = record;
	expected.rule_number = 1;
	std::memcpy(expected.rules[0].domain_name, "a.example", 10);
	EXPECT_EQ(get_walled_garden_list(&record), 0);
	EXPECT_TRUE(same(record, expected));
}

TEST_F(WalledGardenCommandsTest, GetOfDefaultRulesWrites128CharactersWithoutNul)
{
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain(std::string(128, 'n')).write(), 0);
	wg_cmd record = sent(GET_DEFAULT_RULE, 0);
	wg_cmd expected = record;
	expected.rule_number = 1;
	std::memset(expected.rules[0].domain_name, 'n', 128);
	EXPECT_EQ(get_walled_garden_list(&record), 0);
	EXPECT_TRUE(same(record, expected));
}

TEST_F(WalledGardenCommandsTest, GetOfDefaultRulesStopsWhereTheRecordEnds)
{
	for (wg_default_rule &slot : default_rule) {
		std::strcpy(slot.domain_name, "full.example");
	}
	const auto record = std::make_unique<wg_cmd>(sent(GET_DEFAULT_RULE, 0));
	EXPECT_EQ(get_walled_garden_list(record.get()), 0);
	EXPECT_EQ(record->rule_number, 24);
	EXPECT_STREQ(record->rules[23].domain_name, "full.example");
}

TEST_F(WalledGardenCommandsTest, GetWithAnotherSubCommandWritesNothing)
{
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("a.example").write(), 0);
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a.example").write(), 0);
	machine.log.clear();
	for (const uint32_t command : {0u, 1u, 2u, 3u, 6u, 0xffffffffu}) {
		wg_cmd record = sent(command, 5);
		const wg_cmd before = record;
		EXPECT_EQ(get_walled_garden_list(&record), 0) << command;
		EXPECT_TRUE(same(record, before)) << command;
	}
	EXPECT_NO_LOG();
}

TEST_F(WalledGardenCommandsTest, GetAllocatesNothing)
{
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("*.example").write(), 0);
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a.example").write(), 0);
	machine.memory.fail_all_allocations(true);
	wg_cmd rules = sent(GET_WALLED_GARDEN_RULE, 5);
	EXPECT_EQ(get_walled_garden_list(&rules), 0);
	EXPECT_EQ(rules.rule_number, 1);
	wg_cmd defaults = sent(GET_DEFAULT_RULE, 5);
	EXPECT_EQ(get_walled_garden_list(&defaults), 0);
	EXPECT_EQ(defaults.rule_number, 1);
	machine.memory.fail_all_allocations(false);
}

} // namespace

} // namespace captive_portal::test
