// SPDX-License-Identifier: GPL-2.0-only
// What the status files say.
#include "core/status.h"

#include <array>
#include <sstream>
#include <string>
#include <vector>

#include "base/lock.h"
#include "gatekeeper/client_status.h"
#include "portal/connections.h"
#include "portal/interface_table.h"
#include "tests/support/control.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

namespace
{

using Lines = std::vector<std::string>;
using Mac = std::array<uint8_t, CP_MAC_SIZE>;

constexpr Mac first_client = {0x02, 0xab, 0x00, 0x0c, 0xde, 0xf0};
constexpr Mac second_client = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};

class Status : public HostTest
{
protected:
	void SetUp() override { load_module(); }

	[[nodiscard]] Lines lines_of(const std::string &file)
	{
		std::istringstream text(machine.status_text(file));
		Lines lines;
		for (std::string line; std::getline(text, line);) {
			lines.push_back(line);
		}
		return lines;
	}
	// Line 0 is the module's, 1 to 28 are the rows', 29 to 37 the OWE companions'.
	[[nodiscard]] std::string line(uint32_t number) { return lines_of("status").at(number); }
	[[nodiscard]] std::string line_of_row(uint32_t row) { return line(1 + row); }
};

TEST_F(Status, HasADirectoryOfItsOwnThatRootAndItsGroupMayRead)
{
	const cp_status_directory *const directory = machine.status.directory();
	ASSERT_NE(directory, nullptr);
	EXPECT_STREQ(directory->name, "captive_portal");
	EXPECT_EQ(directory->mode, 0440);
	ASSERT_EQ(directory->file_count, 5u);
	EXPECT_STREQ(directory->files[0].name, "status");
	EXPECT_STREQ(directory->files[1].name, "clients");
	EXPECT_STREQ(directory->files[2].name, "garden");
	EXPECT_STREQ(directory->files[3].name, "counters");
	EXPECT_STREQ(directory->files[4].name, "cache");
}

TEST_F(Status, SaysWhatAFreshModuleHas)
{
	const Lines lines = lines_of("status");
	ASSERT_EQ(lines.size(), 1u + 28 + 9);
	EXPECT_EQ(lines[0], "module format=1 debug_level=1 dns_filter=0 gateway=0.0.0.0 ap_address=0.0.0.0 "
			    "ap_mac=00:00:00:00:00:00 cached_addresses=0 mirel-white=0 mirel-black=0");
	EXPECT_EQ(lines[1],
		  "interface index=0 name=wlan-1-1 mark=0x1450 http_port=10081 https_port=10444 mode=0 "
		  "walled_garden=0 block_https=1 logout= garden=0 rules=0 connections=0 white=0 auth=0 login=0 "
		  "ga-white=0 mac-auth-fallback=0 disconnection_behavior=0 disconnection_status=0");
	EXPECT_EQ(lines[24].substr(0, 33), "interface index=23 name=wlan-3-8 ");
	EXPECT_EQ(lines[25].substr(0, 37), "interface index=24 name=special-mark ");
	EXPECT_EQ(lines[26].substr(0, 31), "interface index=25 name=mode-7 ");
	EXPECT_EQ(lines[27].substr(0, 37), "interface index=26 name=social-login ");
	EXPECT_EQ(lines[28].substr(0, 30), "interface index=27 name=mirel ");
	EXPECT_EQ(lines[28].substr(lines[28].find(" logout=")), " logout= garden=0 rules=0 connections=0");
	EXPECT_EQ(lines[29], "owe name=wlan-1-14 interface=");
	EXPECT_EQ(lines[37], "owe name=wlan-3-16 interface=");
	EXPECT_EQ(lines_of("clients"), Lines());
	EXPECT_EQ(lines_of("garden"), Lines());
	EXPECT_EQ(lines_of("cache"), Lines());
}

TEST_F(Status, SaysWhatTheDaemonHasSet)
{
	set_debug_level(machine, -3);
	set_gateway_address(machine, ipv4(192, 168, 100, 254));
	set_portal(machine, DNS_FILTER_ENABLE, 0, 1);
	set_portal(machine, CAPTIVE_PORTAL, 9, 8);
	set_portal(machine, CP_WALLED_GARDEN, 9, 17);
	set_portal(machine, BLOCK_HTTPS, 9, 0xffffffff);
	set_logout_address(machine, 9, "192.0.2.1");
	set_portal(machine, CAPTIVE_PORTAL_MIREL, 0, 7);
	set_behavior(machine, "wlan-2-2", 2, 5);
	map_owe_interface(machine, "wlan-2-15", "wlan-2-2");
	set_garden(machine, UPDATE_RULE, 9, 3, {domain_rule("a"), domain_rule("b")});
	EXPECT_EQ(line(0).substr(0, 62), "module format=1 debug_level=-3 dns_filter=1 gateway=192.168.10");
	const std::string row = line_of_row(9);
	EXPECT_EQ(row.substr(0, 33), "interface index=9 name=wlan-2-2 m");
	EXPECT_EQ(row.substr(row.find(" mode=")),
		  " mode=8 walled_garden=17 block_https=4294967295 logout=192.0.2.1 garden=3 rules=2 connections=0 "
		  "white=0 auth=0 "
		  "login=0 ga-white=0 mac-auth-fallback=0 disconnection_behavior=2 disconnection_status=5");
	EXPECT_NE(line_of_row(27).find(" mode=7 "), std::string::npos);
	EXPECT_EQ(line(33), "owe name=wlan-2-15 interface=wlan-2-2");
}

TEST_F(Status, SaysWhatThePacketPathHasLearned)
{
	store_word(ap_addr, ipv4(192, 168, 100, 1));
	store_ap_mac({{2, 0, 0, 0, 0, 0xfe}});
	add(ipv4(192, 0, 2, 1), "a.example");
	add(ipv4(192, 0, 2, 2), "a.example");
	EXPECT_EQ(line(0), "module format=1 debug_level=1 dns_filter=0 gateway=0.0.0.0 ap_address=192.168.100.1 "
			   "ap_mac=02:00:00:00:00:fe cached_addresses=2 mirel-white=0 mirel-black=0");
}

TEST_F(Status, CountsConnections)
{
	const auto connections = [this](uint32_t row) {
		const std::string text = line_of_row(row);
		const size_t at = text.find(" connections=") + 13;
		return text.substr(at, text.find(' ', at) - at);
	};
	const auto client = [](uint16_t port) { return Client{ipv4(192, 168, 100, 91), be16::from_host(port)}; };
	const Destination server = {ipv4(203, 0, 113, 10), be16::from_host(80)};
	for (uint16_t port = 1000; port < 1012; ++port) {
		add_connection(3, client(port), server, {first_client[0]});
	}
	add_connection(27, client(1000), server, {first_client[0]});
	EXPECT_EQ(connections(3), "12");
	EXPECT_EQ(connections(27), "1");
	EXPECT_EQ(connections(4), "0");
	{
		const LockGuard guard(Lock::change_ip_port);
		remove_connection(*find_connection(3, client(1005)));
	}
	EXPECT_EQ(connections(3), "11");
	free_connections();
	EXPECT_EQ(connections(3), "0");
	EXPECT_EQ(connections(27), "0");
	add_connection(27, client(1000), server, {first_client[0]});
	EXPECT_EQ(connections(27), "1");
}

TEST_F(Status, ListsTheClientsOfEachTableInTheirOrder)
{
	change_clients(machine, ADD_LOGIN_MAC, "wlan-1-2", first_client);
	change_clients(machine, ADD_LOGIN_MAC, "wlan-1-2", second_client);
	change_clients(machine, ADD_LOGIN_MAC, "wlan-1-2", first_client);
	change_clients(machine, ADD_WHITELIST_MAC, "wlan-3-8", first_client);
	change_clients(machine, ADD_AUTH_MAC, "wlan-3-8", second_client);
	change_clients(machine, ADD_GA_WHITELIST_MAC, "wlan-3-8", first_client);
	change_clients(machine, ADD_MAC_AUTH_FALLBACK, "wlan-3-8", first_client);
	change_clients(machine, ADD_MIREL_BLACK_LIST_MAC, "", first_client);
	change_clients(machine, ADD_MIREL_WHITE_LIST_MAC, "", second_client);
	const Lines expected = {
		"client table=login mac=02:ab:00:0c:de:f0 interface=wlan-1-2",
		"client table=login mac=02:00:00:00:00:01 interface=wlan-1-2",
		"client table=login mac=02:ab:00:0c:de:f0 interface=wlan-1-2",
		"client table=white mac=02:ab:00:0c:de:f0 interface=wlan-3-8",
		"client table=auth mac=02:00:00:00:00:01 interface=wlan-3-8",
		"client table=ga-white mac=02:ab:00:0c:de:f0 interface=wlan-3-8",
		"client table=mac-auth-fallback mac=02:ab:00:0c:de:f0 interface=wlan-3-8",
		"client table=mirel-white mac=02:00:00:00:00:01",
		"client table=mirel-black mac=02:ab:00:0c:de:f0",
	};
	EXPECT_EQ(lines_of("clients"), expected);
	const auto counts = [this](uint32_t row) {
		const std::string text = line_of_row(row);
		const size_t at = text.find(" white=");
		return text.substr(at, text.find(" disconnection_") - at);
	};
	EXPECT_EQ(counts(1), " white=0 auth=0 login=3 ga-white=0 mac-auth-fallback=0");
	EXPECT_EQ(counts(23), " white=1 auth=1 login=0 ga-white=1 mac-auth-fallback=1");
	EXPECT_EQ(line(0).substr(line(0).find(" mirel-white")), " mirel-white=1 mirel-black=1");
}

TEST_F(Status, CountsClientsThatGo)
{
	for (uint8_t i = 0; i < 3; ++i) {
		change_clients(machine, ADD_LOGIN_MAC, "wlan-1-2", Mac{2, 0, 0, 0, 0, i});
	}
	const auto logins = [this] {
		const std::string text = line_of_row(1);
		return text.substr(text.find(" login="), 8);
	};
	change_clients(machine, DEL_LOGIN_MAC, "wlan-1-2", Mac{2, 0, 0, 0, 0, 1});
	EXPECT_EQ(logins(), " login=2");
	change_clients(machine, DEL_LOGIN_MAC, "wlan-1-2", Mac{2, 0, 0, 0, 0, 1});
	EXPECT_EQ(logins(), " login=2");
	change_clients(machine, FLUSH_CAPTIVE_PORTAL_TABLE, "wlan-1-2");
	EXPECT_EQ(logins(), " login=0");
	EXPECT_EQ(lines_of("clients"), Lines());
}

TEST_F(Status, ListsEveryRule)
{
	set_garden(machine, UPDATE_RULE, 23, 1,
		   {domain_rule("*.example.com"), address_rule(ipv4(203, 0, 113, 20), ipv4(255, 255, 255, 0))});
	set_garden(machine, UPDATE_MIREL_RULE, 0, 1, {domain_rule("m.example")});
	// An empty one is no rule, and its slot stays.
	set_garden(machine, UPDATE_DEFAULT_RULE, 0, 0,
		   {domain_rule("a.example"), domain_rule(""), domain_rule("c.example")});
	const Lines expected = {
		"default-rule slot=0 name=a.example",
		"default-rule slot=2 name=c.example",
		"rule interface=wlan-3-8 type=0 pattern=*.example.com",
		"rule interface=wlan-3-8 type=1 address=203.0.113.20 netmask=255.255.255.0 pattern=",
		"rule interface=mirel type=0 pattern=m.example",
	};
	EXPECT_EQ(lines_of("garden"), expected);
}

TEST_F(Status, ShowsTypesAndPatternsAsTheyWereStored)
{
	wg_rule rule = address_rule(ipv4(203, 0, 113, 20), ipv4(255, 255, 255, 255));
	rule.rule_type = 4294967295;
	set_text(rule.domain_name, "a b\\c\n\x7f\xe4~!=");
	set_garden(machine, UPDATE_RULE, 0, 1, {rule, domain_rule(std::string(128, 'x'))});
	const Lines expected = {
		"rule interface=wlan-1-1 type=4294967295 address=203.0.113.20 netmask=255.255.255.255 "
		"pattern=a\\040b\\134c\\012\\177\\344~!=",
		"rule interface=wlan-1-1 type=0 pattern=" + std::string(127, 'x'),
	};
	EXPECT_EQ(lines_of("garden"), expected);
	// A default name may fill its field, and needs four times as many characters here when all are escaped.
	set_garden(machine, UPDATE_RULE, 0, 1);
	set_garden(machine, UPDATE_DEFAULT_RULE, 0, 0, {domain_rule(std::string(128, '\t'))});
	std::string tabs = "default-rule slot=0 name=";
	for (int i = 0; i < 128; ++i) {
		tabs += "\\011";
	}
	EXPECT_EQ(lines_of("garden"), Lines{tabs});
}

TEST_F(Status, EscapesALogoutAddressThatIsNone)
{
	set_logout_address(machine, 0, "no address\x01");
	const std::string row = line_of_row(0);
	EXPECT_EQ(row.substr(row.find(" logout="), 25), " logout=no\\040address\\001");
}

TEST_F(Status, GoesBeforeTheDnsSide)
{
	bool looked = false;
	machine.after(host::Event::status_removed, [&] {
		looked = true;
		EXPECT_TRUE(machine.proc.file().has_value());
		EXPECT_FALSE(machine.misc.registered().has_value());
	});
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(looked);
	EXPECT_EQ(machine.status.directory(), nullptr);
}

TEST_F(Status, IsDoneWithoutWhereItCannotBeMade)
{
	EXPECT_EQ(machine.unload(), 0);
	machine.status.fail_next_creation(-12);
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(machine.status.directory(), nullptr);
	EXPECT_TRUE(machine.proc.file().has_value());
	EXPECT_EQ(machine.unload(), 0);
}

} // namespace

} // namespace captive_portal::test
