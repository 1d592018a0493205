// SPDX-License-Identifier: GPL-2.0-only
// What the library checks before the module sees a record, and what it says.
#include "captiveportal.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

extern "C" int library_header_in_c(uint32_t *row, size_t *sizes);

namespace
{

using namespace std::string_literals;

std::string mac_text(const captiveportal_mac &mac)
{
	char text[CAPTIVEPORTAL_MAC_SIZE];
	captiveportal_format_mac(&mac, text);
	return text;
}

TEST(LibraryHeader, IsTheSameInC)
{
	uint32_t row = 0;
	std::array<size_t, 4> sizes = {};
	EXPECT_EQ(library_header_in_c(&row, sizes.data()), CAPTIVEPORTAL_OK);
	EXPECT_EQ(row, 10U);
	EXPECT_EQ(sizes, (std::array<size_t, 4>{6, 140, 3368, 20}));
}

TEST(Library, SaysItsVersion)
{
	EXPECT_STREQ(captiveportal_version(), CAPTIVEPORTAL_VERSION);
}

TEST(LibraryMac, TakesColonsAndHyphens)
{
	captiveportal_mac mac = {};
	EXPECT_EQ(captiveportal_parse_mac("02:00:5E:10:00:0a", &mac), CAPTIVEPORTAL_OK);
	EXPECT_EQ(mac_text(mac), "02:00:5e:10:00:0a");
	EXPECT_EQ(captiveportal_parse_mac("02-00-5e-10-00-01", &mac), CAPTIVEPORTAL_OK);
	EXPECT_EQ(mac_text(mac), "02:00:5e:10:00:01");
}

TEST(LibraryMac, RefusesEverythingElse)
{
	for (const char *text : {"", "02:00:5e:10:00", "02:00:5e:10:00:0g", "02:00-5e:10:00:01", "02005e100001",
				 "02:00:5e:10:00:01 ", "02.00.5e.10.00.01"}) {
		captiveportal_mac mac = {{1, 2, 3, 4, 5, 6}};
		EXPECT_EQ(captiveportal_parse_mac(text, &mac), CAPTIVEPORTAL_INVALID) << text;
		EXPECT_EQ(captiveportal_error_text(), "'"s + text + "' is no MAC address: write 02:00:5e:10:00:01");
		EXPECT_EQ(mac_text(mac), "01:02:03:04:05:06");
	}
}

TEST(LibraryMac, KnowsWhatAStationCanSendFrom)
{
	const captiveportal_mac station = {{2, 0, 0x5e, 0x10, 0, 1}};
	const captiveportal_mac group = {{1, 0, 0x5e, 0x10, 0, 1}};
	const captiveportal_mac zero = {};
	EXPECT_EQ(captiveportal_check_station(&station), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_check_station(&group), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_check_station(&zero), CAPTIVEPORTAL_INVALID);
}

TEST(LibraryAddress, LiesInNetworkOrder)
{
	uint32_t address = 0;
	EXPECT_EQ(captiveportal_parse_address("192.0.2.1", &address), CAPTIVEPORTAL_OK);
	std::array<uint8_t, 4> bytes = {};
	std::memcpy(bytes.data(), &address, sizeof(address));
	EXPECT_EQ(bytes, (std::array<uint8_t, 4>{192, 0, 2, 1}));
	char text[CAPTIVEPORTAL_ADDRESS_SIZE];
	captiveportal_format_address(address, text);
	EXPECT_STREQ(text, "192.0.2.1");
	for (const char *wrong : {"", "1.2.3", "1.2.3.256", "01.2.3.4", "1.2.3.4.5", "1.2.3.4 "}) {
		EXPECT_EQ(captiveportal_parse_address(wrong, &address), CAPTIVEPORTAL_INVALID) << wrong;
	}
}

TEST(LibraryAddress, MasksHaveLengths)
{
	char text[CAPTIVEPORTAL_ADDRESS_SIZE];
	captiveportal_format_address(captiveportal_netmask(20), text);
	EXPECT_STREQ(text, "255.255.240.0");
	EXPECT_EQ(captiveportal_netmask(0), 0U);
	EXPECT_EQ(captiveportal_netmask(33), UINT32_MAX);
	EXPECT_EQ(captiveportal_prefix_length(captiveportal_netmask(20)), 20);
	uint32_t gap = 0;
	EXPECT_EQ(captiveportal_parse_address("255.0.255.0", &gap), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_prefix_length(gap), CAPTIVEPORTAL_INVALID);
}

TEST(LibraryInterface, HasOneSpelling)
{
	uint32_t row = 0;
	EXPECT_EQ(captiveportal_parse_interface("wlan-3-8", &row), CAPTIVEPORTAL_OK);
	EXPECT_EQ(row, 23U);
	EXPECT_EQ(captiveportal_parse_owe_interface("wlan-3-16", &row), CAPTIVEPORTAL_OK);
	EXPECT_EQ(row, 8U);
	for (const char *name : {"", "wlan-1-9", "wlan-2-0", "wlan-01-1", "wlan-4-1", "mirel", "all", "br0"}) {
		EXPECT_EQ(captiveportal_parse_interface(name, &row), CAPTIVEPORTAL_INVALID) << name;
		EXPECT_EQ(captiveportal_parse_owe_interface(name, &row), CAPTIVEPORTAL_INVALID) << name;
	}
}

TEST(LibraryInterface, RowsHaveNamesMarksAndPorts)
{
	char name[CAPTIVEPORTAL_INTERFACE_SIZE];
	EXPECT_EQ(captiveportal_interface_name(8, name), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(name, "wlan-2-1");
	EXPECT_EQ(captiveportal_interface_name(27, name), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(name, "mirel");
	EXPECT_EQ(captiveportal_interface_name(28, name), CAPTIVEPORTAL_INVALID);
	EXPECT_STREQ(name, "");
	EXPECT_EQ(captiveportal_owe_interface_name(3, name), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(name, "wlan-2-14");
	EXPECT_EQ(captiveportal_owe_interface_name(9, name), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_mark(8), 5220U);
	EXPECT_EQ(captiveportal_http_port(8), 20081);
	EXPECT_EQ(captiveportal_https_port(8), 20444);
	EXPECT_EQ(captiveportal_mark(24), 0U);
	EXPECT_EQ(captiveportal_http_port(24), 0);
	EXPECT_EQ(captiveportal_https_port(24), 0);
}

TEST(LibraryTable, HasAName)
{
	EXPECT_STREQ(captiveportal_table_name(CAPTIVEPORTAL_WHITE), "white");
	EXPECT_STREQ(captiveportal_table_name(CAPTIVEPORTAL_AUTH), "auth");
	EXPECT_STREQ(captiveportal_table_name(CAPTIVEPORTAL_LOGIN), "login");
	EXPECT_STREQ(captiveportal_table_name(CAPTIVEPORTAL_GA_WHITE), "ga-white");
	EXPECT_STREQ(captiveportal_table_name(CAPTIVEPORTAL_MAC_AUTH_FALLBACK), "mac-auth-fallback");
	EXPECT_STREQ(captiveportal_table_name(CAPTIVEPORTAL_MIREL_WHITE), "mirel-white");
	EXPECT_STREQ(captiveportal_table_name(CAPTIVEPORTAL_MIREL_BLACK), "mirel-black");
	EXPECT_EQ(captiveportal_table_name(-1), nullptr);
	EXPECT_EQ(captiveportal_table_name(CAPTIVEPORTAL_TABLES), nullptr);
}

std::string rule_text(const std::string &given)
{
	captiveportal_rule rule = {};
	if (captiveportal_parse_rule(given.c_str(), &rule) != CAPTIVEPORTAL_OK) {
		return "invalid";
	}
	char text[CAPTIVEPORTAL_RULE_SIZE];
	captiveportal_format_rule(&rule, text);
	return text;
}

TEST(LibraryRule, IsReadAsItIsWritten)
{
	for (const std::string &text : {"*.example.com"s, "a"s, "192.0.2.1"s, "198.51.100.0/24"s,
					"10.0.2.0/255.0.255.0"s, "0.0.0.0/0"s, std::string(127, 'a')}) {
		EXPECT_EQ(rule_text(text), text);
	}
	EXPECT_EQ(rule_text("198.51.100.0/255.255.255.0"), "198.51.100.0/24");
}

TEST(LibraryRule, RefusesWhatWouldMatchNothing)
{
	for (const std::string &text :
	     {""s, std::string(128, 'a'), "a b"s, "example.com."s, "1.2.3"s, "1.2.3.4/33"s, "example.com/24"s,
	      "b\xc3\xbc"
	      "cher.example"s}) {
		EXPECT_EQ(rule_text(text), "invalid") << text;
	}
}

TEST(LibraryRule, DefaultRulesAreExactNames)
{
	captiveportal_rule rule = {};
	EXPECT_EQ(captiveportal_parse_default_rule("portal.example", &rule), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(rule.pattern, "portal.example");
	for (const char *text : {"*.example", "a?.example", "192.0.2.1", ""}) {
		EXPECT_EQ(captiveportal_parse_default_rule(text, &rule), CAPTIVEPORTAL_INVALID) << text;
	}
}

TEST(LibraryErrors, HoldAnyText)
{
	captiveportal_mac mac = {};
	const std::string endless(100000, 'x');
	EXPECT_EQ(captiveportal_parse_mac(endless.c_str(), &mac), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_error_text(),
		  "'" + std::string(256, 'x') + "...' is no MAC address: write 02:00:5e:10:00:01");
	EXPECT_EQ(captiveportal_parse_mac("\x1b[31m\n", &mac), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_error_text(), "'?[31m?' is no MAC address: write 02:00:5e:10:00:01"s);
}

TEST(LibraryErrors, BelongToTheThread)
{
	captiveportal_mac mac = {};
	EXPECT_EQ(captiveportal_parse_mac("here", &mac), CAPTIVEPORTAL_INVALID);
	const std::string before = captiveportal_error_text();
	std::thread([&before] {
		EXPECT_NE(captiveportal_error_text(), before);
		captiveportal_mac other = {};
		EXPECT_EQ(captiveportal_parse_mac("there", &other), CAPTIVEPORTAL_INVALID);
	}).join();
	EXPECT_EQ(captiveportal_error_text(), before);
}

TEST(LibraryErrors, NullIsNoArgument)
{
	captiveportal *const none = nullptr;
	captiveportal_mac mac = {{2, 0, 0, 0, 0, 1}};
	int listed = 0;
	EXPECT_EQ(captiveportal_parse_mac(nullptr, &mac), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_parse_mac("02:00:5e:10:00:01", nullptr), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_open(nullptr, 0, nullptr), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_add_client(none, CAPTIVEPORTAL_LOGIN, "wlan-1-1", &mac), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_error_text(), "NULL is no handle"s);
	EXPECT_EQ(captiveportal_delete_client(none, CAPTIVEPORTAL_LOGIN, "wlan-1-1", &mac), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_check_client(none, CAPTIVEPORTAL_LOGIN, "wlan-1-1", &mac, &listed),
		  CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_flush_clients(none, CAPTIVEPORTAL_LOGIN, "wlan-1-1"), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_flush_interface(none, "all"), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_set_mode(none, "wlan-1-1", 1), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_unmap_owe(none, "wlan-1-14"), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_set_gateway(none, 0), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_replace_garden(none, "wlan-1-1", nullptr), CAPTIVEPORTAL_INVALID);
	captiveportal_close(none);
	captiveportal_free(nullptr);
}

TEST(LibraryOpen, SaysWhyNot)
{
	captiveportal *portal = nullptr;
	EXPECT_EQ(captiveportal_open("/nonexistent/CP_dev", 0, &portal), CAPTIVEPORTAL_UNAVAILABLE);
	EXPECT_EQ(errno, ENOENT);
	EXPECT_EQ(captiveportal_error_text(),
		  "/nonexistent/CP_dev: there is no such device: load the module (modprobe captive_portal)"s);
	EXPECT_EQ(captiveportal_open("/proc/self/cmdline", 0, &portal) < 0, true);
	EXPECT_EQ(portal, nullptr);
}

TEST(LibraryOpen, KnowsADeviceThatIsNotTheModules)
{
	captiveportal *portal = nullptr;
	ASSERT_EQ(captiveportal_open("/dev/null", 0, &portal), CAPTIVEPORTAL_OK);
	uint32_t gateway = 0;
	EXPECT_EQ(captiveportal_get_gateway(portal, &gateway), CAPTIVEPORTAL_UNAVAILABLE);
	EXPECT_EQ(captiveportal_error_text(),
		  "command 7 of the control device: not understood: is this the module's device?"s);
	EXPECT_EQ(captiveportal_exchange(portal, 7, &gateway, sizeof(gateway)), -ENOTTY);
	EXPECT_EQ(captiveportal_pass_value(portal, 11, 1), -ENOTTY);
	captiveportal_close(portal);
}

// The module takes the size from the command's number: it would write behind a record that is smaller.
TEST(LibraryOpen, SendsNoRecordThatIsTooSmall)
{
	captiveportal *portal = nullptr;
	ASSERT_EQ(captiveportal_open("/dev/null", 0, &portal), CAPTIVEPORTAL_OK);
	std::vector<char> record(32768);
	const std::pair<uint32_t, size_t> sizes[] = {{1, 28}, {2, 320}, {3, 3376},  {4, 3376}, {6, 4},
						     {7, 4},  {8, 52},  {9, 16592}, {10, 32}};
	for (const auto &[command, size] : sizes) {
		EXPECT_EQ(captiveportal_exchange(portal, command, record.data(), size - 1), -EINVAL) << command;
		EXPECT_EQ(captiveportal_exchange(portal, command, nullptr, size), -EINVAL) << command;
		// The kernel answers 2 itself, for every file.
		EXPECT_EQ(captiveportal_exchange(portal, command, record.data(), size), command == 2 ? 0 : -ENOTTY)
			<< command;
	}
	captiveportal_close(portal);
}

TEST(LibraryStatus, ReadsNoOtherFiles)
{
	char *text = nullptr;
	size_t length = 0;
	for (const char *name : {"", "../version", ".", "/proc/version"}) {
		EXPECT_EQ(captiveportal_read_status(nullptr, name, &text, &length), CAPTIVEPORTAL_INVALID) << name;
	}
	EXPECT_EQ(captiveportal_error_text(),
		  "'/proc/version' is no status file: choose status, clients, garden, counters or cache"s);
	EXPECT_EQ(captiveportal_read_status(nullptr, "nothing-of-the-kind", &text, &length), CAPTIVEPORTAL_UNAVAILABLE);
	EXPECT_EQ(text, nullptr);
}

TEST(LibraryStatus, WalksLinesAndValues)
{
	const char *cursor = "module format=1 gateway=0.0.0.0\n"
			     "rule pattern=a\\040b\\134 mark=0x1450 empty= number=-3";
	captiveportal_line line = {};
	char value[8];
	int64_t number = 0;
	ASSERT_EQ(captiveportal_next_line(&cursor, &line), 1);
	EXPECT_EQ(captiveportal_line_is(&line, "module"), 1);
	EXPECT_EQ(captiveportal_line_is(&line, "mod"), 0);
	EXPECT_EQ(captiveportal_line_text(&line, "gateway", value, sizeof(value)), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(value, "0.0.0.0");
	EXPECT_EQ(captiveportal_line_text(&line, "gateway", value, sizeof(value) - 1), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_error_text(), "the value of 'gateway' needs room for 8 bytes"s);
	EXPECT_EQ(captiveportal_line_text(&line, "gate", value, sizeof(value)), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_line_text(&line, "gateway", value, 0), CAPTIVEPORTAL_INVALID);
	ASSERT_EQ(captiveportal_next_line(&cursor, &line), 1);
	EXPECT_EQ(captiveportal_line_text(&line, "pattern", value, sizeof(value)), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(value, "a b\\");
	EXPECT_EQ(captiveportal_line_text(&line, "empty", value, sizeof(value)), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(value, "");
	EXPECT_EQ(captiveportal_line_number(&line, "mark", &number), CAPTIVEPORTAL_OK);
	EXPECT_EQ(number, 5200);
	EXPECT_EQ(captiveportal_line_number(&line, "number", &number), CAPTIVEPORTAL_OK);
	EXPECT_EQ(number, -3);
	EXPECT_EQ(captiveportal_line_number(&line, "pattern", &number), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_next_line(&cursor, &line), 0);
	EXPECT_EQ(captiveportal_next_line(&cursor, &line), 0);
}

TEST(LibraryTransport, IsWhole)
{
	captiveportal *portal = nullptr;
	captiveportal_transport transport = {};
	EXPECT_EQ(captiveportal_open_transport(&transport, nullptr, &portal), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_open_transport(nullptr, nullptr, &portal), CAPTIVEPORTAL_INVALID);
	transport.size = sizeof(transport);
	EXPECT_EQ(captiveportal_open_transport(&transport, nullptr, &portal), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(portal, nullptr);
}

} // namespace
