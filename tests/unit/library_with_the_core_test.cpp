// SPDX-License-Identifier: GPL-2.0-only
// The library and the module's own core together: what is stored is there, and what is not is said.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/debug_level.h"
#include "captiveportal.h"
#include "garden/walled_garden.h"
#include "portal/interface_table.h"
#include "tests/support/host_test.h"
#include "tests/support/user_buffer.h"

namespace captive_portal::test
{

namespace
{

// The machine's control device under the library, and what a test puts in its way.
struct MachineTransport {
	host::Machine &machine;
	// Replaces the answer to a command when it says so.
	std::function<bool(uint32_t command, std::span<std::byte> record)> instead = nullptr;
	int status_files = 0;
	int closed = 0;

	static long exchange(void *context, uint32_t command, void *record, size_t size)
	{
		auto &self = *static_cast<MachineTransport *>(context);
		const std::span bytes(static_cast<std::byte *>(record), size);
		if (self.instead && self.instead(command, bytes)) {
			return 0;
		}
		UserBuffer user(self.machine, size);
		user.write(bytes);
		const long result = self.machine.ioctl(command, user.address());
		std::ranges::copy(user.read(), bytes.begin());
		return result;
	}

	static long pass_value(void *context, uint32_t command, uint32_t value)
	{
		auto &self = *static_cast<MachineTransport *>(context);
		return self.instead && self.instead(command, {}) ? 0 : self.machine.ioctl(command, value);
	}

	static int read_status(void *context, const char *name, char **text, size_t *length)
	{
		auto &self = *static_cast<MachineTransport *>(context);
		if (self.status_files != 0) {
			return self.status_files;
		}
		const std::string content = self.machine.status_text(name);
		*text = static_cast<char *>(std::malloc(content.size() + 1));
		std::memcpy(*text, content.c_str(), content.size() + 1);
		*length = content.size();
		return 0;
	}

	static void close(void *context) { static_cast<MachineTransport *>(context)->closed++; }
};

class LibraryWithTheCore : public HostTest
{
protected:
	void SetUp() override
	{
		load_module();
		ASSERT_EQ(machine.open(), 0);
		const captiveportal_transport transport = {sizeof(transport), MachineTransport::exchange,
							   MachineTransport::pass_value, MachineTransport::read_status,
							   MachineTransport::close};
		ASSERT_EQ(captiveportal_open_transport(&transport, &device, &portal), CAPTIVEPORTAL_OK);
	}

	void TearDown() override
	{
		captiveportal_close(portal);
		EXPECT_EQ(device.closed, 1);
		EXPECT_EQ(machine.release(), 0);
		HostTest::TearDown();
	}

	// From now on stores are answered with "done" and dropped.
	void drop_stores()
	{
		device.instead = [](uint32_t command, std::span<std::byte>) {
			return command == 1 || command == 3 || command == 6 || command == 8 || command == 11;
		};
	}

	[[nodiscard]] bool listed(int table, const char *interface, const captiveportal_mac &mac)
	{
		int answer = -1;
		EXPECT_EQ(captiveportal_check_client(portal, table, interface, &mac, &answer), CAPTIVEPORTAL_OK);
		return answer == 1;
	}

	MachineTransport device{machine};
	captiveportal *portal = nullptr;
};

constexpr captiveportal_mac first = {{0x02, 0x00, 0x5e, 0x10, 0x00, 0x01}};
constexpr captiveportal_mac second = {{0x02, 0x00, 0x5e, 0x10, 0x00, 0x02}};

captiveportal_garden garden_of(uint32_t enabled, const std::vector<const char *> &rules)
{
	captiveportal_garden garden = {};
	garden.enabled = enabled;
	for (const char *rule : rules) {
		EXPECT_EQ(captiveportal_parse_rule(rule, &garden.rules[garden.count++]), CAPTIVEPORTAL_OK);
	}
	return garden;
}

std::vector<std::string> texts_of(const captiveportal_garden &garden)
{
	std::vector<std::string> texts;
	for (uint32_t i = 0; i < garden.count; i++) {
		char text[CAPTIVEPORTAL_RULE_SIZE];
		captiveportal_format_rule(&garden.rules[i], text);
		texts.emplace_back(text);
	}
	return texts;
}

TEST_F(LibraryWithTheCore, ClientsComeAndGoInEveryTable)
{
	for (int table = 0; table < CAPTIVEPORTAL_TABLES; table++) {
		SCOPED_TRACE(captiveportal_table_name(table));
		const char *const interface = table < CAPTIVEPORTAL_MIREL_WHITE ? "wlan-2-3" : nullptr;
		EXPECT_FALSE(listed(table, interface, first));
		EXPECT_EQ(captiveportal_delete_client(portal, table, interface, &first), CAPTIVEPORTAL_UNCHANGED);
		EXPECT_EQ(captiveportal_add_client(portal, table, interface, &first), CAPTIVEPORTAL_OK);
		EXPECT_EQ(captiveportal_add_client(portal, table, interface, &first), CAPTIVEPORTAL_UNCHANGED);
		EXPECT_EQ(captiveportal_add_client(portal, table, interface, &second), CAPTIVEPORTAL_OK);
		EXPECT_TRUE(listed(table, interface, first));
		std::vector<captiveportal_mac> macs(3);
		size_t count = 0;
		EXPECT_EQ(captiveportal_list_clients(portal, table, interface, macs.data(), 3, &count),
			  CAPTIVEPORTAL_OK);
		ASSERT_EQ(count, 2U);
		EXPECT_TRUE(std::ranges::equal(macs[1].octets, second.octets));
		EXPECT_EQ(captiveportal_list_clients(portal, table, interface, macs.data(), 1, &count),
			  CAPTIVEPORTAL_INCOMPLETE);
		EXPECT_EQ(count, 1U);
		EXPECT_EQ(captiveportal_delete_client(portal, table, interface, &first), CAPTIVEPORTAL_OK);
		EXPECT_FALSE(listed(table, interface, first));
		EXPECT_EQ(captiveportal_flush_clients(portal, table, interface), CAPTIVEPORTAL_OK);
		EXPECT_FALSE(listed(table, interface, second));
	}
}

TEST_F(LibraryWithTheCore, TheModuleSeesNoWrongClient)
{
	device.instead = [](uint32_t command, auto) {
		ADD_FAILURE() << "command " << command;
		return true;
	};
	const captiveportal_mac group = {{0x03, 0, 0, 0, 0, 1}};
	EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_LOGIN, "wlan-1-1", &group), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_LOGIN, "wlan-1-9", &first), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_LOGIN, nullptr, &first), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_LOGIN, "all", &first), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_MIREL_BLACK, "wlan-1-1", &first),
		  CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_TABLES, "wlan-1-1", &first), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_add_client(portal, -1, "wlan-1-1", &first), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_flush_clients(portal, CAPTIVEPORTAL_LOGIN, "wlan-9-9"), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_flush_interface(portal, "wlan-9-9"), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_set_mode(portal, "wlan-9-9", 1), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_set_logout(portal, "wlan-1-1", "0.0.0.0"), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_set_logout(portal, "wlan-1-1", "1.2.3"), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_set_debug_level(portal, 4), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_map_owe(portal, "wlan-1-1", "wlan-1-1"), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_map_owe(portal, "wlan-1-14", "wlan-1-14"), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_map_owe(portal, "wlan-1-14", nullptr), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_unmap_owe(portal, "wlan-1-1"), CAPTIVEPORTAL_INVALID);
	EXPECT_EQ(captiveportal_unmap_owe(portal, nullptr), CAPTIVEPORTAL_INVALID);
}

TEST_F(LibraryWithTheCore, DeletionTakesDuplicates)
{
	captiveportal_read_back(portal, 0);
	for (int i = 0; i < 3; i++) {
		EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_AUTH, "wlan-1-1", &first), CAPTIVEPORTAL_OK);
	}
	captiveportal_read_back(portal, 1);
	EXPECT_EQ(captiveportal_delete_client(portal, CAPTIVEPORTAL_AUTH, "wlan-1-1", &first), CAPTIVEPORTAL_OK);
	EXPECT_FALSE(listed(CAPTIVEPORTAL_AUTH, "wlan-1-1", first));
}

TEST_F(LibraryWithTheCore, TheMirelWhiteListTakesClientsOffTheBlackList)
{
	for (int round = 0; round < 2; round++) {
		EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_MIREL_BLACK, nullptr, &first),
			  CAPTIVEPORTAL_OK);
		EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_MIREL_WHITE, nullptr, &first),
			  round == 0 ? CAPTIVEPORTAL_OK : CAPTIVEPORTAL_UNCHANGED);
		EXPECT_FALSE(listed(CAPTIVEPORTAL_MIREL_BLACK, nullptr, first));
		EXPECT_TRUE(listed(CAPTIVEPORTAL_MIREL_WHITE, nullptr, first));
	}
}

TEST_F(LibraryWithTheCore, LongListsAreVerifiedInTheStatusFile)
{
	captiveportal_read_back(portal, 0);
	for (unsigned i = 0; i < 1040; i++) {
		const captiveportal_mac mac = {{0x02, 0, 0, 1, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)}};
		ASSERT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_AUTH, "wlan-1-1", &mac), CAPTIVEPORTAL_OK);
	}
	captiveportal_read_back(portal, 1);
	int answer = -1;
	EXPECT_EQ(captiveportal_check_client(portal, CAPTIVEPORTAL_AUTH, "wlan-1-1", &first, &answer),
		  CAPTIVEPORTAL_INCOMPLETE);
	EXPECT_EQ(answer, 0);
	EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_AUTH, "wlan-1-1", &first), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_AUTH, "wlan-1-1", &first), CAPTIVEPORTAL_UNCHANGED);
	EXPECT_EQ(captiveportal_delete_client(portal, CAPTIVEPORTAL_AUTH, "wlan-1-1", &first), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_delete_client(portal, CAPTIVEPORTAL_AUTH, "wlan-1-1", &first), CAPTIVEPORTAL_UNCHANGED);
	device.status_files = -ENOENT;
	EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_AUTH, "wlan-1-1", &first), CAPTIVEPORTAL_UNVERIFIED);
	EXPECT_EQ(captiveportal_flush_clients(portal, CAPTIVEPORTAL_AUTH, "wlan-1-1"), CAPTIVEPORTAL_OK);
	EXPECT_FALSE(listed(CAPTIVEPORTAL_AUTH, "wlan-1-1", first));
}

TEST_F(LibraryWithTheCore, FlushesTakeAllInterfaces)
{
	for (const char *interface : {"wlan-1-1", "wlan-3-8"}) {
		for (int table = 0; table < CAPTIVEPORTAL_MIREL_WHITE; table++) {
			ASSERT_EQ(captiveportal_add_client(portal, table, interface, &first), CAPTIVEPORTAL_OK);
		}
	}
	EXPECT_EQ(captiveportal_flush_clients(portal, CAPTIVEPORTAL_GA_WHITE, "all"), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_flush_clients(portal, CAPTIVEPORTAL_LOGIN, "all"), CAPTIVEPORTAL_OK);
	EXPECT_FALSE(listed(CAPTIVEPORTAL_GA_WHITE, "wlan-3-8", first));
	EXPECT_FALSE(listed(CAPTIVEPORTAL_LOGIN, "wlan-3-8", first));
	EXPECT_EQ(captiveportal_flush_interface(portal, "wlan-1-1"), CAPTIVEPORTAL_OK);
	EXPECT_FALSE(listed(CAPTIVEPORTAL_WHITE, "wlan-1-1", first));
	EXPECT_TRUE(listed(CAPTIVEPORTAL_WHITE, "wlan-3-8", first));
	EXPECT_EQ(captiveportal_flush_interface(portal, "all"), CAPTIVEPORTAL_OK);
	EXPECT_FALSE(listed(CAPTIVEPORTAL_WHITE, "wlan-3-8", first));
}

// What a reply shows is the same before and after it was deleted.
TEST_F(LibraryWithTheCore, FlushesTakeAFullReplyTwice)
{
	captiveportal_read_back(portal, 0);
	for (unsigned i = 0; i < 2 * 1034; i++) {
		const captiveportal_mac mac = {
			{0x02, 0, 0, 1, static_cast<uint8_t>(i % 1034 >> 8), static_cast<uint8_t>(i % 1034)}};
		ASSERT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_LOGIN, "wlan-1-1", &mac), CAPTIVEPORTAL_OK);
	}
	captiveportal_read_back(portal, 1);
	EXPECT_EQ(captiveportal_flush_clients(portal, CAPTIVEPORTAL_LOGIN, "wlan-1-1"), CAPTIVEPORTAL_OK)
		<< captiveportal_error_text();
	EXPECT_EQ(machine.status_text("clients"), "");
}

TEST_F(LibraryWithTheCore, SettingsAreStored)
{
	EXPECT_EQ(captiveportal_set_mode(portal, "wlan-1-2", CAPTIVEPORTAL_MODE_DROP_TCP), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captive_portal_table[1].cp_mode, 8U);
	EXPECT_EQ(captiveportal_set_https(portal, "wlan-1-2", CAPTIVEPORTAL_HTTPS_REDIRECTED), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_set_stored_number(portal, "wlan-1-2", 77), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_set_logout(portal, "wlan-1-2", "192.0.2.1"), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(captive_portal_table[1].logout_ip, "192.0.2.1");
	EXPECT_EQ(captiveportal_set_logout(portal, "wlan-1-2", nullptr), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(captive_portal_table[1].logout_ip, "");
	EXPECT_EQ(captiveportal_set_mode(portal, "mirel", CAPTIVEPORTAL_MODE_ON), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captive_portal_table[27].cp_mode, 1U);
	EXPECT_EQ(captiveportal_set_mode(portal, "mode-7", 3), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captive_portal_table[25].cp_mode, 3U);
	EXPECT_EQ(captiveportal_set_dns_filter(portal, 1), CAPTIVEPORTAL_OK);
	EXPECT_EQ(dns_filter_activate, 1U);
	EXPECT_EQ(captiveportal_set_debug_level(portal, 3), CAPTIVEPORTAL_OK);
	EXPECT_EQ(debug_level, 3);

	captiveportal_status status = {};
	EXPECT_EQ(captiveportal_get_status(portal, "wlan-1-2", &status), CAPTIVEPORTAL_OK);
	EXPECT_EQ(status.mark, 5201U);
	EXPECT_EQ(status.mode, 8U);
	EXPECT_EQ(status.https, 2U);
}

TEST_F(LibraryWithTheCore, DisconnectionOweAndGatewayComeBack)
{
	uint32_t behavior = 0;
	uint32_t uplink = 0;
	EXPECT_EQ(captiveportal_set_disconnection(portal, "wlan-2-1", CAPTIVEPORTAL_PASS_DHCP,
						  CAPTIVEPORTAL_DISCONNECTED),
		  CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_get_disconnection(portal, "wlan-2-1", &behavior, &uplink), CAPTIVEPORTAL_OK);
	EXPECT_EQ(behavior, 2U);
	EXPECT_EQ(uplink, 2U);

	char interface[CAPTIVEPORTAL_INTERFACE_SIZE] = "x";
	EXPECT_EQ(captiveportal_get_owe(portal, "wlan-1-14", interface), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(interface, "");
	EXPECT_EQ(captiveportal_map_owe(portal, "wlan-1-14", "wlan-3-8"), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_get_owe(portal, "wlan-1-14", interface), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(interface, "wlan-3-8");
	EXPECT_EQ(captiveportal_map_owe(portal, "wlan-1-15", "wlan-1-1"), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_unmap_owe(portal, "wlan-1-15"), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_get_owe(portal, "wlan-1-15", interface), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(interface, "");
	EXPECT_EQ(captiveportal_unmap_owe(portal, "wlan-1-15"), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_get_owe(portal, "wlan-1-14", interface), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(interface, "wlan-3-8");
	EXPECT_EQ(captiveportal_flush_owe(portal), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_get_owe(portal, "wlan-1-14", interface), CAPTIVEPORTAL_OK);
	EXPECT_STREQ(interface, "");

	uint32_t wanted = 0;
	uint32_t gateway = 0;
	EXPECT_EQ(captiveportal_parse_address("192.0.2.254", &wanted), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_set_gateway(portal, wanted), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_get_gateway(portal, &gateway), CAPTIVEPORTAL_OK);
	EXPECT_EQ(gateway, wanted);
}

TEST_F(LibraryWithTheCore, GardensComeBack)
{
	const std::vector<const char *> rules = {"*.example.com", "10.1.2.0/24", "192.0.2.1", "10.0.2.0/255.0.255.0"};
	captiveportal_garden garden = garden_of(1, rules);
	captiveportal_garden stored = {};
	EXPECT_EQ(captiveportal_replace_garden(portal, "wlan-2-1", &garden), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_get_garden(portal, "wlan-2-1", &stored), CAPTIVEPORTAL_OK);
	EXPECT_EQ(stored.enabled, 1U);
	EXPECT_EQ(texts_of(stored), std::vector<std::string>(rules.begin(), rules.end()));
	EXPECT_EQ(captiveportal_switch_garden(portal, "wlan-2-1", 0), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_get_garden(portal, "wlan-2-1", &stored), CAPTIVEPORTAL_OK);
	EXPECT_EQ(stored.enabled, 0U);
	EXPECT_EQ(stored.count, 4U);

	EXPECT_EQ(captiveportal_replace_garden(portal, "mirel", &garden), CAPTIVEPORTAL_OK);
	EXPECT_EQ(walled_garden_table[27].enable_value, 1U);
	EXPECT_EQ(captiveportal_switch_garden(portal, "mirel", 0), CAPTIVEPORTAL_OK);
	EXPECT_EQ(walled_garden_table[27].enable_value, 0U);
	EXPECT_EQ(captiveportal_get_garden(portal, "mirel", &stored), CAPTIVEPORTAL_INVALID);

	const captiveportal_garden names = garden_of(0, {"portal.example", "www.example"});
	EXPECT_EQ(captiveportal_replace_default_rules(portal, &names), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_get_default_rules(portal, &stored), CAPTIVEPORTAL_OK);
	EXPECT_EQ(texts_of(stored), (std::vector<std::string>{"portal.example", "www.example"}));
	garden = {};
	EXPECT_EQ(captiveportal_replace_default_rules(portal, &garden), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_get_default_rules(portal, &stored), CAPTIVEPORTAL_OK);
	EXPECT_EQ(stored.count, 0U);
}

TEST_F(LibraryWithTheCore, GardensAreCheckedFirst)
{
	captiveportal_garden garden = {};
	garden.count = CAPTIVEPORTAL_RULES_MOST + 1;
	EXPECT_EQ(captiveportal_replace_garden(portal, "wlan-1-1", &garden), CAPTIVEPORTAL_INVALID);
	EXPECT_STREQ(captiveportal_error_text(), "25 rules: the module takes 24 at most");
	garden.count = 1;
	EXPECT_EQ(captiveportal_replace_garden(portal, "wlan-1-1", &garden), CAPTIVEPORTAL_INVALID);
	EXPECT_STREQ(captiveportal_error_text(), "an empty rule: leave it out");
	std::fill(std::begin(garden.rules[0].pattern), std::end(garden.rules[0].pattern), 'a');
	EXPECT_EQ(captiveportal_replace_garden(portal, "wlan-1-1", &garden), CAPTIVEPORTAL_INVALID);
	garden = garden_of(1, {"*.example"});
	EXPECT_EQ(captiveportal_replace_default_rules(portal, &garden), CAPTIVEPORTAL_INVALID);
	garden = garden_of(1, {"192.0.2.1"});
	EXPECT_EQ(captiveportal_replace_default_rules(portal, &garden), CAPTIVEPORTAL_INVALID);
}

TEST_F(LibraryWithTheCore, StoresThatLeaveNothingAreRefused)
{
	const captiveportal_garden garden = garden_of(1, {"a.example"});
	ASSERT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_LOGIN, "wlan-1-1", &second), CAPTIVEPORTAL_OK);
	ASSERT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_GA_WHITE, "wlan-1-1", &second), CAPTIVEPORTAL_OK);
	ASSERT_EQ(captiveportal_map_owe(portal, "wlan-1-15", "wlan-1-1"), CAPTIVEPORTAL_OK);
	drop_stores();
	EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_LOGIN, "wlan-1-1", &first), CAPTIVEPORTAL_REFUSED);
	EXPECT_STREQ(captiveportal_error_text(),
		     "02:00:5e:10:00:01 is not in login of wlan-1-1 though the module took the command: see the kernel "
		     "log (dmesg)");
	EXPECT_EQ(captiveportal_delete_client(portal, CAPTIVEPORTAL_LOGIN, "wlan-1-1", &second), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_flush_clients(portal, CAPTIVEPORTAL_LOGIN, "wlan-1-1"), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_flush_clients(portal, CAPTIVEPORTAL_GA_WHITE, "all"), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_flush_interface(portal, "wlan-1-1"), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_set_mode(portal, "wlan-1-1", 1), CAPTIVEPORTAL_REFUSED);
	EXPECT_STREQ(captiveportal_error_text(),
		     "wlan-1-1: mode is not what was set though the module took the command: see the kernel log "
		     "(dmesg)");
	EXPECT_EQ(captiveportal_set_https(portal, "wlan-1-1", 2), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_set_stored_number(portal, "wlan-1-1", 2), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_set_logout(portal, "wlan-1-1", "192.0.2.1"), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_set_mode(portal, "mirel", 1), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_set_dns_filter(portal, 1), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_set_debug_level(portal, 2), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_set_gateway(portal, 1), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_set_disconnection(portal, "wlan-1-1", 1, 2), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_map_owe(portal, "wlan-1-14", "wlan-1-1"), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_unmap_owe(portal, "wlan-1-15"), CAPTIVEPORTAL_REFUSED);
	EXPECT_STREQ(captiveportal_error_text(),
		     "wlan-1-15: its interface is not what was set though the module took the command: see the kernel "
		     "log (dmesg)");
	EXPECT_EQ(captiveportal_flush_owe(portal), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_replace_garden(portal, "wlan-1-1", &garden), CAPTIVEPORTAL_REFUSED);
	EXPECT_STREQ(captiveportal_error_text(),
		     "wlan-1-1: the module kept 0 of 1 rules: is the kernel out of memory? See dmesg");
	EXPECT_EQ(captiveportal_replace_garden(portal, "mirel", &garden), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_switch_garden(portal, "wlan-1-1", 1), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_switch_garden(portal, "mirel", 1), CAPTIVEPORTAL_REFUSED);
	EXPECT_EQ(captiveportal_replace_default_rules(portal, &garden), CAPTIVEPORTAL_REFUSED);
}

TEST_F(LibraryWithTheCore, SaysWhatCouldNotBeReadBack)
{
	device.status_files = -EACCES;
	EXPECT_EQ(captiveportal_set_mode(portal, "wlan-1-1", 1), CAPTIVEPORTAL_UNVERIFIED);
	EXPECT_EQ(captive_portal_table[0].cp_mode, 1U);
	const captiveportal_garden garden = garden_of(1, {"a.example"});
	EXPECT_EQ(captiveportal_replace_garden(portal, "mirel", &garden), CAPTIVEPORTAL_UNVERIFIED);
	char *text = nullptr;
	size_t length = 0;
	EXPECT_EQ(captiveportal_read_status(portal, "status", &text, &length), CAPTIVEPORTAL_NO_PERMISSION);
}

TEST_F(LibraryWithTheCore, AStoreIsOneRecordWithoutReadingBack)
{
	captiveportal_read_back(portal, 0);
	std::vector<uint32_t> commands;
	device.instead = [&commands](uint32_t command, auto) {
		commands.push_back(command);
		return false;
	};
	const captiveportal_garden garden = garden_of(1, {"a.example"});
	EXPECT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_LOGIN, "wlan-1-1", &first), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_delete_client(portal, CAPTIVEPORTAL_LOGIN, "wlan-1-1", &first), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_flush_interface(portal, "all"), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_set_mode(portal, "wlan-1-1", 1), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_set_gateway(portal, 1), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_replace_garden(portal, "wlan-1-1", &garden), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_set_debug_level(portal, 2), CAPTIVEPORTAL_OK);
	EXPECT_EQ(captiveportal_unmap_owe(portal, "wlan-1-14"), CAPTIVEPORTAL_OK);
	EXPECT_EQ(commands, (std::vector<uint32_t>{8, 8, 8, 1, 6, 3, 11, 8}));
}

TEST_F(LibraryWithTheCore, SaysWhenTheModuleHasNoMemory)
{
	machine.memory.fail_allocation(1);
	EXPECT_EQ(captiveportal_set_mode(portal, "wlan-1-1", 1), CAPTIVEPORTAL_REFUSED);
}

TEST_F(LibraryWithTheCore, KnowsTheFileLayersAnswerForAStatus)
{
	device.instead = [](uint32_t command, std::span<std::byte> record) {
		const uint32_t block_size = 4096;
		if (command == 2) {
			std::memcpy(record.data(), &block_size, sizeof(block_size));
		}
		return command == 2;
	};
	captiveportal_status status = {};
	EXPECT_EQ(captiveportal_get_status(portal, "wlan-1-1", &status), CAPTIVEPORTAL_UNANSWERED);
	device.instead = [](uint32_t, auto) { return true; };
	EXPECT_EQ(captiveportal_get_status(portal, "wlan-1-1", &status), CAPTIVEPORTAL_REFUSED);
}

TEST_F(LibraryWithTheCore, StatusFilesAreReadWhole)
{
	ASSERT_EQ(captiveportal_add_client(portal, CAPTIVEPORTAL_LOGIN, "wlan-1-1", &first), CAPTIVEPORTAL_OK);
	char *text = nullptr;
	size_t length = 0;
	ASSERT_EQ(captiveportal_read_status(portal, "clients", &text, &length), CAPTIVEPORTAL_OK);
	EXPECT_EQ(std::string(text, length), "client table=login mac=02:00:5e:10:00:01 interface=wlan-1-1\n");
	EXPECT_EQ(text[length], '\0');
	captiveportal_free(text);
}

} // namespace

} // namespace captive_portal::test
