// SPDX-License-Identifier: GPL-2.0-only
#include "garden/walled_garden.h"

#include <gtest/gtest.h>

#include "base/debug_level.h"
#include "base/fixed_addresses.h"
#include "base/lock.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_records.h"

namespace captive_portal::test
{

namespace
{

constexpr char social_login_host[] = "social-login.example.com";

class WalledGardenTest : public HostTest
{
protected:
	WalledGardenTest()
	{
		init_social_login_address();
		init_dns_filter_address();
		init_walled_garden_table();
		debug_level = 3;
	}

	// Stores the rules and forgets what the command logged.
	void store(const WgRecord &record)
	{
		ASSERT_EQ(record.write(), 0);
		machine.log.clear();
	}
};

TEST_F(WalledGardenTest, NamesAndMarksTheWirelessRows)
{
	EXPECT_STREQ(walled_garden_table[0].iface, "wlan-1-1");
	EXPECT_STREQ(walled_garden_table[7].iface, "wlan-1-8");
	EXPECT_STREQ(walled_garden_table[8].iface, "wlan-2-1");
	EXPECT_STREQ(walled_garden_table[13].iface, "wlan-2-6");
	EXPECT_STREQ(walled_garden_table[16].iface, "wlan-3-1");
	EXPECT_STREQ(walled_garden_table[23].iface, "wlan-3-8");
	EXPECT_EQ(walled_garden_table[0].mark, 5200u);
	EXPECT_EQ(walled_garden_table[7].mark, 5207u);
	EXPECT_EQ(walled_garden_table[8].mark, 5220u);
	EXPECT_EQ(walled_garden_table[13].mark, 5225u);
	EXPECT_EQ(walled_garden_table[16].mark, 5240u);
	EXPECT_EQ(walled_garden_table[23].mark, 5247u);
	for (const wg_row &row : walled_garden_table) {
		EXPECT_EQ(row.enable_value, 0u);
		EXPECT_EQ(row.rule_list, nullptr);
	}
}

TEST_F(WalledGardenTest, LeavesTheSpecialRowsWithoutNameAndMark)
{
	for (const uint32_t row : {24u, 25u, 26u, 27u}) {
		EXPECT_STREQ(walled_garden_table[row].iface, "");
		EXPECT_EQ(walled_garden_table[row].mark, 0u);
	}
}

// The device can be opened before the table is filled.
TEST_F(WalledGardenTest, StartClearsWhatACommandStoredBeforeIt)
{
	store(WgRecord(UPDATE_RULE, 3, 1).domain("a.example").domain("b.example"));
	store(WgRecord(UPDATE_MIREL_RULE, 0, 1).domain("c.example"));
	init_walled_garden_table();
	for (const uint32_t row : {3u, 27u}) {
		EXPECT_EQ(walled_garden_table[row].enable_value, 0u);
		EXPECT_EQ(walled_garden_table[row].rule_list, nullptr);
	}
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(WalledGardenTest, StartLeavesRows24To26Alone)
{
	store(WgRecord(UPDATE_RULE, 25, 7).domain("a.example"));
	init_walled_garden_table();
	EXPECT_EQ(walled_garden_table[25].enable_value, 7u);
	EXPECT_TRUE(domain_matches("a.example", 25));
}

TEST_F(WalledGardenTest, StopFreesTheRulesOfEveryRow)
{
	for (int32_t row = 0; row < 28; ++row) {
		store(WgRecord(UPDATE_RULE, row, 1).domain("a.example").address(ipv4(10, 0, 0, 0), ipv4(255, 0, 0, 0)));
	}
	EXPECT_EQ(machine.live_allocations().size(), 56u);
	free_walled_garden_rules();
	EXPECT_TRUE(machine.live_allocations().empty());
	EXPECT_FALSE(domain_matches("a.example", 0));
	EXPECT_FALSE(domain_matches("a.example", 27));
}

TEST_F(WalledGardenTest, FindsTheSwitchOfARowByItsMark)
{
	store(WgRecord(WALLED_GARDEN, 0, 11));
	store(WgRecord(WALLED_GARDEN, 7, 12));
	store(WgRecord(WALLED_GARDEN, 8, 13));
	store(WgRecord(WALLED_GARDEN, 23, 14));
	EXPECT_EQ(is_walled_garden_enable(5200), 11u);
	EXPECT_EQ(is_walled_garden_enable(5207), 12u);
	EXPECT_EQ(is_walled_garden_enable(5220), 13u);
	EXPECT_EQ(is_walled_garden_enable(5247), 14u);
	EXPECT_EQ(is_walled_garden_enable(5201), 0u);
}

TEST_F(WalledGardenTest, AnUnknownMarkHasNoWalledGarden)
{
	for (int32_t row = 0; row < 28; ++row) {
		store(WgRecord(WALLED_GARDEN, row, 1));
	}
	for (const uint32_t mark :
	     {0u, 1u, 5199u, 5208u, 5219u, 5248u, 5301u, 5303u, 5304u, 5307u, 5324u, 0xffffffffu}) {
		EXPECT_EQ(is_walled_garden_enable(mark), 0u) << mark;
	}
}

TEST_F(WalledGardenTest, TheSwitchIsReadWithoutTheLockAndTheMirelMarkAsksRow27)
{
	store(WgRecord(WALLED_GARDEN, 27, 0xfffffffe));
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
	EXPECT_EQ(is_walled_garden_enable(5302), 0xfffffffeu);
	EXPECT_EQ(is_walled_garden_enable(5200), 0u);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), before);
}

TEST_F(WalledGardenTest, RefusesAnAddressQueryForAddressZero)
{
	store(WgRecord(UPDATE_RULE, 0, 1).address({}, {}));
	debug_level = 1;
	EXPECT_FALSE(address_matches({}, 0));
	EXPECT_LOG(debug_line("Wrong type(0) and input\n"));
}

TEST_F(WalledGardenTest, RefusesADomainQueryWithoutADomain)
{
	store(WgRecord(UPDATE_RULE, 0, 1).domain("*"));
	debug_level = 1;
	EXPECT_FALSE(match_garden_list(GardenQuery::domain, ipv4(10, 1, 2, 3), nullptr, 0));
	EXPECT_LOG(debug_line("Wrong type(1) and input\n"));
}

TEST_F(WalledGardenTest, RefusesSilentlyAtDebugLevel0)
{
	debug_level = 0;
	EXPECT_FALSE(address_matches({}, 0));
	EXPECT_FALSE(match_garden_list(GardenQuery::domain, {}, nullptr, 0));
	EXPECT_NO_LOG();
}

TEST_F(WalledGardenTest, AQueryOfAnotherTypePassesTheCheckAndMatchesNothing)
{
	store(WgRecord(UPDATE_RULE, 0, 1).domain("*").address(ipv4(10, 0, 0, 0), {}));
	const ExactText name("a.example");
	const Text text = name.text();
	EXPECT_FALSE(match_garden_list(static_cast<GardenQuery>(2), ipv4(10, 1, 2, 3), &text, 0));
	EXPECT_FALSE(match_garden_list(static_cast<GardenQuery>(2), {}, nullptr, 0));
	EXPECT_NO_LOG();
}

TEST_F(WalledGardenTest, AnAddressRuleMatchesUnderItsMask)
{
	store(WgRecord(UPDATE_RULE, 4, 1).address(ipv4(10, 1, 2, 0), ipv4(255, 255, 255, 0)));
	EXPECT_TRUE(address_matches(ipv4(10, 1, 2, 77), 4));
	EXPECT_FALSE(address_matches(ipv4(10, 1, 3, 1), 4));
	EXPECT_FALSE(address_matches(ipv4(10, 1, 2, 77), 5));
}

TEST_F(WalledGardenTest, HostBitsOfAnAddressRuleDoNotCount)
{
	store(WgRecord(UPDATE_RULE, 4, 1).address(ipv4(10, 1, 2, 99), ipv4(255, 255, 255, 0)));
	EXPECT_TRUE(address_matches(ipv4(10, 1, 2, 77), 4));
}

TEST_F(WalledGardenTest, AMaskOfZeroMatchesEveryAddress)
{
	store(WgRecord(UPDATE_RULE, 4, 1).address(ipv4(10, 1, 2, 0), {}));
	EXPECT_TRUE(address_matches(ipv4(203, 0, 113, 9), 4));
}

TEST_F(WalledGardenTest, TheSocialLoginAddressNeverMatches)
{
	store(WgRecord(UPDATE_RULE, 4, 1).address(ipv4(2, 2, 2, 2), ipv4(255, 255, 255, 255)).address({}, {}));
	EXPECT_FALSE(address_matches(ipv4(2, 2, 2, 2), 4));
	EXPECT_TRUE(address_matches(ipv4(2, 2, 2, 3), 4));
	EXPECT_NO_LOG();
}

TEST_F(WalledGardenTest, EveryRuleTypeButZeroIsAnAddressRule)
{
	WgRecord record(UPDATE_RULE, 4, 1);
	record.address(ipv4(10, 1, 2, 3), ipv4(255, 255, 255, 255));
	record.record.rules[0].rule_type = 0x80000000;
	store(record);
	EXPECT_TRUE(address_matches(ipv4(10, 1, 2, 3), 4));
}

TEST_F(WalledGardenTest, AnAddressQueryIgnoresTheAddressOfADomainRule)
{
	WgRecord record(UPDATE_RULE, 4, 1);
	record.domain("a.example");
	record.record.rules[0].ip_addr = ipv4(10, 1, 2, 3).raw;
	record.record.rules[0].netmask = 0xffffffff;
	store(record);
	EXPECT_FALSE(address_matches(ipv4(10, 1, 2, 3), 4));
}

TEST_F(WalledGardenTest, ADomainQueryAsksTheNameOfAnAddressRuleToo)
{
	WgRecord record(UPDATE_RULE, 4, 1);
	record.domain("*.example");
	record.record.rules[0].rule_type = WG_RULE_ADDRESS;
	store(record);
	EXPECT_TRUE(domain_matches("a.example", 4));
}

TEST_F(WalledGardenTest, TheEmptyNameOfAnAddressRuleMatchesTheEmptyDomainOnly)
{
	store(WgRecord(UPDATE_RULE, 4, 1).address(ipv4(10, 1, 2, 0), ipv4(255, 255, 255, 0)));
	EXPECT_TRUE(domain_matches("", 4));
	EXPECT_FALSE(domain_matches("a", 4));
	EXPECT_FALSE(domain_matches("", 5));
}

TEST_F(WalledGardenTest, DomainRulesMatchByPatternForTheirRowOnly)
{
	store(WgRecord(UPDATE_RULE, 4, 1).domain("*.example.com").domain("login.*").domain("a?c"));
	for (const char *name : {"cdn.example.com", ".example.com", "login.anything", "ac", "abc", "abbbc"}) {
		EXPECT_TRUE(domain_matches(name, 4)) << name;
		EXPECT_FALSE(domain_matches(name, 3)) << name;
	}
	for (const char *name : {"example.com", "x.login.a", "abcd"}) {
		EXPECT_FALSE(domain_matches(name, 4)) << name;
	}
}

TEST_F(WalledGardenTest, OneWildcardMatchesEveryDomainButTheExceptionHost)
{
	for (const char *pattern : {"*", "?"}) {
		store(WgRecord(UPDATE_RULE, 4, 1).domain(pattern));
		EXPECT_TRUE(domain_matches("a.example", 4)) << pattern;
		EXPECT_TRUE(domain_matches("", 4)) << pattern;
		EXPECT_FALSE(domain_matches(social_login_host, 4)) << pattern;
	}
}

TEST_F(WalledGardenTest, TheExceptionHostWinsOverEveryRule)
{
	store(WgRecord(UPDATE_DEFAULT_RULE, 0).domain(social_login_host));
	store(WgRecord(UPDATE_RULE, 4, 1).domain(social_login_host).domain("social-login.*"));
	EXPECT_FALSE(domain_matches(social_login_host, 4));
	EXPECT_NO_LOG();
}

TEST_F(WalledGardenTest, TheExceptionIsExact)
{
	store(WgRecord(UPDATE_RULE, 4, 1).domain("*"));
	EXPECT_TRUE(domain_matches("Social-login.example.com", 4));
	EXPECT_TRUE(domain_matches("a.social-login.example.com", 4));
	EXPECT_TRUE(domain_matches("social-login.example.co", 4));
}

TEST_F(WalledGardenTest, RulesAreAskedInTheOrderReceived)
{
	store(WgRecord(UPDATE_RULE, 4, 1).domain("*.a").domain("*.ab").domain("*").domain("*.abc"));
	EXPECT_TRUE(domain_matches("x.abcd", 4));
	// The last rule is never reached.
	EXPECT_LOG(debug_line("wildcard case : isLastCharWC=[0], strlen(url_src_ptr)=[3]\n"),
		   debug_line("wildcard case : isLastCharWC=[0], strlen(url_src_ptr)=[2]\n"));
}

TEST_F(WalledGardenTest, ARuleWhosePatternCannotBeCopiedFailsAlone)
{
	store(WgRecord(UPDATE_RULE, 4, 1).domain("*.example").domain("a.*"));
	machine.memory.fail_allocation(1);
	EXPECT_TRUE(domain_matches("a.example", 4));
	EXPECT_EQ(machine.live_allocations().size(), 2u);
	machine.memory.fail_all_allocations(true);
	EXPECT_FALSE(domain_matches("a.example", 4));
	machine.memory.fail_all_allocations(false);
	EXPECT_EQ(machine.live_allocations().size(), 2u);
}

TEST_F(WalledGardenTest, DefaultRulesHoldForEveryRow)
{
	store(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("example.com"));
	for (uint32_t row = 0; row < 28; ++row) {
		EXPECT_TRUE(domain_matches("example.com", row)) << row;
		EXPECT_LOG(debug_line("http_match: match default rule\n")) << row;
	}
}

TEST_F(WalledGardenTest, DefaultRulesAreAskedBeforeTheRowsOwn)
{
	store(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("cdn.example.com"));
	// Asked first, the first rule would say that it has text left over, and the second would match without a line.
	store(WgRecord(UPDATE_RULE, 4, 1).domain("*.example").domain("*.example.com"));
	EXPECT_TRUE(domain_matches("cdn.example.com", 4));
	EXPECT_LOG(debug_line("http_match: match default rule\n"));
	EXPECT_TRUE(domain_matches("www.example.com", 4));
	EXPECT_LOG(debug_line("wildcard case : isLastCharWC=[0], strlen(url_src_ptr)=[4]\n"));
}

TEST_F(WalledGardenTest, ADefaultMatchIsNotLoggedBelowDebugLevel3)
{
	store(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("example.com"));
	debug_level = 2;
	EXPECT_TRUE(domain_matches("example.com", 0));
	EXPECT_NO_LOG();
}

TEST_F(WalledGardenTest, DefaultRulesAreExact)
{
	store(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("example.com").domain("*.example.org").domain("*"));
	for (const char *name : {"Example.com", "a.example.com", "example.co", "example.comm", "a.example.org", ""}) {
		EXPECT_FALSE(domain_matches(name, 0)) << name;
	}
	EXPECT_TRUE(domain_matches("*.example.org", 0));
}

TEST_F(WalledGardenTest, DefaultRulesBehindAnEmptySlotStillMatch)
{
	store(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("a.example").domain("").domain("c.example"));
	EXPECT_TRUE(domain_matches("a.example", 0));
	EXPECT_TRUE(domain_matches("c.example", 0));
	EXPECT_FALSE(domain_matches("", 0));
}

TEST_F(WalledGardenTest, TheLastOf36DefaultSlotsCounts)
{
	std::strcpy(default_rule[35].domain_name, "last.example");
	EXPECT_TRUE(domain_matches("last.example", 0));
}

TEST_F(WalledGardenTest, ADefaultRuleOf128CharactersEndsAtItsField)
{
	const std::string name(128, 'n');
	store(WgRecord(UPDATE_DEFAULT_RULE, 0).domain(name).domain("nn"));
	EXPECT_TRUE(domain_matches(name, 0));
	EXPECT_FALSE(domain_matches(name + "nn", 0));
	EXPECT_FALSE(domain_matches(name.substr(1), 0));
}

TEST_F(WalledGardenTest, ADefaultRuleIsNoAddress)
{
	store(WgRecord(UPDATE_DEFAULT_RULE, 0).address(ipv4(10, 1, 2, 3), {}));
	EXPECT_FALSE(address_matches(ipv4(10, 1, 2, 3), 0));
}

TEST_F(WalledGardenTest, CanBeAskedWhileTheCacheIsLocked)
{
	store(WgRecord(UPDATE_RULE, 4, 1).domain("a.example"));
	const LockGuard guard(Lock::dns_list);
	EXPECT_TRUE(domain_matches("a.example", 4));
}

} // namespace

} // namespace captive_portal::test
