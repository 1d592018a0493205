// SPDX-License-Identifier: GPL-2.0-only
#include "tests/unit/cpctl_test.h"

namespace cpctl::test
{

namespace
{

constexpr size_t record_size = 3376;
constexpr size_t rule_size = 140;
constexpr size_t rules_offset = 16;

// "*.example.com" as a rule of type 0, and 10.1.2.0/24 as one of type 1.
const std::string domain_rule = joined("00000000", "00000000", "00000000", "2a2e6578616d706c652e636f6d", zeros(115));
const std::string address_rule = joined("01000000", "0a010200", "ffffff00", zeros(128));
// "portal.example"
const std::string default_rule = joined("00000000", "00000000", "00000000", "706f7274616c2e6578616d706c65", zeros(114));

class CpctlGarden : public CpctlTest
{
protected:
	// Command 4 answers what the last command 3 stored, less the rules behind `kept`.
	void answer_as_stored(int32_t kept = 24)
	{
		device.on(WALLED_GARDEN_IOCTL_GET, [this, kept](auto record, size_t) {
			const std::vector<std::byte> stored = device.of(WALLED_GARDEN_IOCTL_SET).back().record;
			const int32_t rules = std::min(static_cast<int32_t>(get32(stored, 12)), kept);
			put32(record, 8, get32(stored, 8));
			put32(record, 12, static_cast<uint32_t>(rules));
			std::ranges::copy(stored.begin() + rules_offset, stored.end(), record.begin() + rules_offset);
			return 0;
		});
	}

	// What the status files have of the MIREL row.
	void tell_mirel_garden(const std::string &enable_value, const std::string &rules)
	{
		status_files["status"] =
			"module format=1 debug_level=1 dns_filter=0 gateway=0.0.0.0\n"
			"interface index=27 name=mirel mode=0 walled_garden=0 block_https=0 logout= garden=" +
			enable_value + "\n";
		status_files["garden"] = rules;
	}
};

TEST_F(CpctlGarden, ReplaceSendsSwitchAndRules)
{
	answer_as_stored();
	EXPECT_EQ(run({"garden", "replace", "wlan-1-2", "on", "*.example.com", "10.1.2.0/24"}), 0) << err;
	EXPECT_EQ(device.commands(), (std::vector{3, 4}));
	EXPECT_EQ(device.calls.at(0).hex(), joined("02000000", "01000000", "01000000", "02000000", domain_rule,
						   address_rule, zeros(record_size - rules_offset - 2 * rule_size)));
	EXPECT_EQ(device.calls.at(1).hex(),
		  joined("04000000", "01000000", "00000000", "ffffffff", zeros(record_size - rules_offset)));
	EXPECT_EQ(out + err, "");
}

TEST_F(CpctlGarden, ReplaceWithoutRulesEmptiesThem)
{
	answer_as_stored();
	EXPECT_EQ(run({"garden", "replace", "wlan-1-1", "off"}), 0) << err;
	EXPECT_EQ(device.calls.at(0).hex(), joined("02000000", zeros(record_size - 4)));
}

// Words that are objects of cpctl, too.
TEST_F(CpctlGarden, ReplaceTakesAnyNameForARule)
{
	answer_as_stored();
	EXPECT_EQ(run({"garden", "replace", "wlan-1-1", "on", "debug", "default", "client", "show"}), 0) << err;
	EXPECT_EQ(get32(device.calls.at(0).record, 12), 4U);
}

TEST_F(CpctlGarden, ReplaceSaysWhenRulesAreMissing)
{
	answer_as_stored(1);
	EXPECT_EQ(run({"garden", "replace", "wlan-1-1", "on", "*.example.com", "10.1.2.0/24"}), 2);
	EXPECT_EQ(err, "cpctl: wlan-1-1: the module kept 1 of 2 rules: is the kernel out of memory? See dmesg\n");
}

TEST_F(CpctlGarden, ReplaceSaysWhenARuleIsAnother)
{
	device.on(WALLED_GARDEN_IOCTL_GET, [](auto record, size_t) {
		put32(record, 8, 1);
		put32(record, 12, 1);
		put_text(record, 28, "*.example.net");
		return 0;
	});
	EXPECT_EQ(run({"garden", "replace", "wlan-1-1", "on", "*.example.com"}), 2);
	EXPECT_EQ(err, "cpctl: wlan-1-1: the module kept '*.example.net' in the place of '*.example.com'\n");
}

TEST_F(CpctlGarden, ReplaceSaysWhenTheSwitchIsAnother)
{
	device.on(WALLED_GARDEN_IOCTL_GET, [](auto record, size_t) {
		put32(record, 12, 0);
		return 0;
	});
	EXPECT_EQ(run({"garden", "replace", "wlan-1-1", "on"}), 2);
	EXPECT_EQ(err, "cpctl: wlan-1-1: the garden is not switched as was set\n");
}

TEST_F(CpctlGarden, ReplaceChecksItsWords)
{
	std::vector<std::string> too_many = {"garden", "replace", "wlan-1-1", "on"};
	too_many.insert(too_many.end(), 25, "a.example");
	expect_usage_failure(too_many, "25 rules: the module takes 24 at most");
	expect_usage_failure({"garden", "replace", "wlan-1-9", "on", "a.example"}, "no wireless interface");
	expect_usage_failure({"garden", "replace", "wlan-1-1", "a.example"}, "'a.example' is no switch");
	expect_usage_failure({"garden", "replace", "wlan-1-1", "on", ""}, "an empty rule");
	expect_usage_failure({"garden", "replace", "wlan-1-1", "on", "10.0.0.0/33"}, "neither an address");
	expect_usage_failure({"garden", "replace", "wlan-1-1", "on", std::string(128, 'a')}, "128 characters");
	expect_usage_failure({"garden", "default", "replace", "*.example.com"}, "has a wildcard");
	expect_usage_failure({"garden", "show", "br0"}, "no wireless interface");
}

TEST_F(CpctlGarden, TwentyFourRulesFillTheRecord)
{
	answer_as_stored();
	std::vector<std::string> words = {"garden", "replace", "wlan-1-1", "on"};
	words.insert(words.end(), 24, "*.example.com");
	EXPECT_EQ(run(words), 0) << err;
	EXPECT_EQ(device.calls.at(0).hex().substr(2 * (rules_offset + 23 * rule_size)), domain_rule);
}

TEST_F(CpctlGarden, DefaultReplaceSendsNames)
{
	answer_as_stored();
	EXPECT_EQ(run({"garden", "default", "replace", "portal.example"}), 0) << err;
	EXPECT_EQ(device.calls.at(0).hex(), joined("01000000", "00000000", "00000000", "01000000", default_rule,
						   zeros(record_size - rules_offset - rule_size)));
	EXPECT_EQ(device.calls.at(1).hex(), joined("05000000", zeros(record_size - 4)));
}

TEST_F(CpctlGarden, DefaultReplaceSaysWhenNamesAreMissing)
{
	answer_as_stored(0);
	EXPECT_EQ(run({"garden", "default", "replace", "portal.example"}), 2);
	EXPECT_EQ(err, "cpctl: default rules: the module kept 0 of 1 rules: is the kernel out of memory? See dmesg\n");
}

TEST_F(CpctlGarden, ShowListsTheRulesAsTheyAreWritten)
{
	device.on(WALLED_GARDEN_IOCTL_GET, [](auto record, size_t) {
		put32(record, 8, 5);
		put32(record, 12, 2);
		put_text(record, 28, "*.example.com");
		put32(record, 156, 1);
		put32(record, 160, 0x0002010a);
		put32(record, 164, 0x00ffffff);
		return 0;
	});
	EXPECT_EQ(run({"garden", "show", "wlan-1-1"}), 0);
	EXPECT_EQ(out, "wlan-1-1: garden on rules 2\n    *.example.com\n    10.1.2.0/24\n");
}

TEST_F(CpctlGarden, ShowOfTheDefaultRules)
{
	EXPECT_EQ(run({"garden", "show", "default"}), 0);
	EXPECT_EQ(out, "default: rules 0\n");
	device.on(WALLED_GARDEN_IOCTL_GET, [](auto record, size_t) {
		put32(record, 12, 1);
		put_text(record, 28, "portal.example");
		return 0;
	});
	EXPECT_EQ(run({"garden", "show", "default"}), 0);
	EXPECT_EQ(out, "default: rules 1\n    portal.example\n");
}

TEST_F(CpctlGarden, MirelReplaceSendsItsOwnSubCommand)
{
	tell_mirel_garden("1", "rule interface=mirel type=0 pattern=*.example.com\n");
	EXPECT_EQ(run({"mirel", "garden", "replace", "*.example.com"}), 0) << err;
	EXPECT_EQ(device.commands(), (std::vector{3}));
	EXPECT_EQ(device.calls.at(0).hex(), joined("03000000", "1b000000", "01000000", "01000000", domain_rule,
						   zeros(record_size - rules_offset - rule_size)));
	tell_mirel_garden("0", "rule interface=mirel type=1 address=10.1.2.0 netmask=255.255.255.0 pattern=\n");
	EXPECT_EQ(run({"mirel", "garden", "replace", "off", "10.1.2.0/24"}), 0) << err;
	EXPECT_EQ(device.calls.at(0).hex(), joined("03000000", "1b000000", "00000000", "01000000", address_rule,
						   zeros(record_size - rules_offset - rule_size)));
	tell_mirel_garden("1", "");
	EXPECT_EQ(run({"mirel", "garden", "replace", "on"}), 0) << err;
	EXPECT_EQ(device.calls.at(0).hex(),
		  joined("03000000", "1b000000", "01000000", "00000000", zeros(record_size - rules_offset)));
}

TEST_F(CpctlGarden, MirelReplaceSaysWhatIsNotThere)
{
	tell_mirel_garden("1", "");
	EXPECT_EQ(run({"mirel", "garden", "replace", "*.example.com"}), 2);
	EXPECT_EQ(err, "cpctl: mirel: the module kept 0 of 1 rules: is the kernel out of memory? See dmesg\n");
	tell_mirel_garden("0", "");
	EXPECT_EQ(run({"mirel", "garden", "replace", "on"}), 2);
	EXPECT_EQ(err, "cpctl: mirel: the garden is not switched as was set\n");
}

TEST_F(CpctlGarden, MirelReplaceSaysWhenTheModuleHasNoMemory)
{
	device.on(WALLED_GARDEN_IOCTL_SET, [](auto, size_t) { return -12; });
	EXPECT_EQ(run({"mirel", "garden", "replace", "*.example.com"}), 2);
	EXPECT_EQ(err,
		  "cpctl: command 3 of the control device: the kernel has no memory for it now; nothing was changed\n");
}

} // namespace

} // namespace cpctl::test
