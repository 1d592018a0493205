// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/garden_rules.h"

#include <gtest/gtest.h>

#include "cpctl/failure.h"
#include "cpctl/interface_names.h"

namespace cpctl
{

namespace
{

// Addresses as words of a little-endian machine that keep network order.
constexpr uint32_t address_10_1_2_0 = 0x0002010a;
constexpr uint32_t address_192_0_2_1 = 0x010200c0;

TEST(GardenRule, TakesADomainPatternAsItIs)
{
	const wg_rule rule = parse_rule("*.Example.com");
	EXPECT_EQ(rule.rule_type, 0U);
	EXPECT_EQ(rule.ip_addr, 0U);
	EXPECT_EQ(rule.netmask, 0U);
	EXPECT_EQ(text_of(rule.domain_name), "*.Example.com");
}

TEST(GardenRule, TakesAnAddressWithItsMask)
{
	const wg_rule host = parse_rule("192.0.2.1");
	EXPECT_EQ(host.rule_type, 1U);
	EXPECT_EQ(host.ip_addr, address_192_0_2_1);
	EXPECT_EQ(host.netmask, 0xffffffffU);
	EXPECT_EQ(text_of(host.domain_name), "");

	for (const char *text : {"10.1.2.0/24", "10.1.2.0/255.255.255.0"}) {
		const wg_rule network = parse_rule(text);
		EXPECT_EQ(network.rule_type, 1U) << text;
		EXPECT_EQ(network.ip_addr, address_10_1_2_0) << text;
		EXPECT_EQ(network.netmask, 0x00ffffffU) << text;
	}
	EXPECT_EQ(parse_rule("0.0.0.0/0").netmask, 0U);
	EXPECT_EQ(parse_rule("10.0.2.0/255.0.255.0").netmask, 0x00ff00ffU);
}

TEST(GardenRule, KeepsAPatternOf127Characters)
{
	const std::string longest(127, 'a');
	EXPECT_EQ(text_of(parse_rule(longest).domain_name), longest);
	EXPECT_THROW((void)parse_rule(longest + "a"), Failure);
}

TEST(GardenRule, RefusesWhatIsNeitherPatternNorAddress)
{
	for (const char *text : {"", "10.1.2", "10.1.2.256", "10.1.2.0/33", "10.1.2.0/-1", "10.1.2.0/",
				 "10.1.2.0/255.255", "10.1.2.0/24/8", "/24", "1", "https://example.com",
				 "example.com/index.html", "two words.example", "tab\t.example",
				 "b\xc3\xbc"
				 "cher.example",
				 "example.com."}) {
		EXPECT_THROW((void)parse_rule(text), Failure) << text;
	}
}

TEST(DefaultGardenRule, IsAnExactName)
{
	EXPECT_EQ(text_of(parse_default_rule("portal.example.com").domain_name), "portal.example.com");
	for (const char *text : {"", "*", "*.example.com", "www?.example.com", "192.0.2.1", "10.0.0.0/8"}) {
		EXPECT_THROW((void)parse_default_rule(text), Failure) << text;
	}
}

TEST(GardenRules, AreTwentyFourAtMost)
{
	EXPECT_EQ(parse_rules(std::vector<std::string>(24, "a.example"), parse_rule).size(), 24U);
	EXPECT_THROW((void)parse_rules(std::vector<std::string>(25, "a.example"), parse_rule), Failure);
}

TEST(GardenRule, IsShownAsItIsWritten)
{
	EXPECT_EQ(format_rule(parse_rule("*.example.com")), "*.example.com");
	EXPECT_EQ(format_rule(parse_rule("192.0.2.1/32")), "192.0.2.1");
	EXPECT_EQ(format_rule(parse_rule("10.1.2.0/255.255.255.0")), "10.1.2.0/24");
	EXPECT_EQ(format_rule(parse_rule("10.0.2.0/255.0.255.0")), "10.0.2.0/255.0.255.0");
	EXPECT_EQ(format_rule(parse_rule("0.0.0.0/0")), "0.0.0.0/0");
}

TEST(GardenRule, OpensTheSameAsAnotherOfTheSameAddresses)
{
	EXPECT_TRUE(opens_same(parse_rule("10.1.2.3/24"), parse_rule("10.1.2.0/255.255.255.0")));
	EXPECT_TRUE(opens_same(parse_rule("192.0.2.1"), parse_rule("192.0.2.1/32")));
	EXPECT_TRUE(opens_same(parse_rule("192.0.2.1/0"), parse_rule("0.0.0.0/0")));
	EXPECT_FALSE(opens_same(parse_rule("10.1.2.0/24"), parse_rule("10.1.2.0/25")));
	EXPECT_FALSE(opens_same(parse_rule("10.1.2.0/24"), parse_rule("10.1.3.0/24")));
	EXPECT_TRUE(opens_same(parse_rule("*.example.com"), parse_rule("*.example.com")));
	EXPECT_FALSE(opens_same(parse_rule("*.example.com"), parse_rule("*.Example.com")));
	// An address rule that a daemon has given a pattern too.
	wg_rule both = parse_rule("192.0.2.1");
	store_name(both.domain_name, "a.example");
	EXPECT_TRUE(opens_same(both, parse_rule("192.0.2.1")));
	EXPECT_FALSE(opens_same(both, parse_rule("a.example")));
}

TEST(GardenRules, HaveARuleThatOpensTheSame)
{
	const std::vector<wg_rule> rules = {parse_rule("a.example"), parse_rule("10.1.2.3/24")};
	EXPECT_TRUE(has_rule(rules, parse_rule("10.1.2.0/24")));
	EXPECT_FALSE(has_rule(rules, parse_rule("b.example")));
	EXPECT_FALSE(has_rule({}, parse_rule("a.example")));
}

} // namespace

} // namespace cpctl
