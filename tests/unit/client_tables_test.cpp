// SPDX-License-Identifier: GPL-2.0-only
#include "gatekeeper/client_tables.h"

#include <cstring>
#include <string>
#include <vector>

#include "base/memory.h"
#include "tests/support/control.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

constexpr MacAddress mac_a = {{0x02, 0x00, 0x00, 0x00, 0x00, 0x0a}};
constexpr MacAddress mac_b = {{0x02, 0x00, 0x00, 0x00, 0x00, 0x0b}};
constexpr MacAddress mac_c = {{0x02, 0x00, 0x00, 0x00, 0x00, 0x0c}};

constexpr const char *interface_names[] = {
	"wlan-1-1", "wlan-1-2", "wlan-1-3", "wlan-1-4", "wlan-1-5", "wlan-1-6", "wlan-1-7", "wlan-1-8",
	"wlan-2-1", "wlan-2-2", "wlan-2-3", "wlan-2-4", "wlan-2-5", "wlan-2-6", "wlan-2-7", "wlan-2-8",
	"wlan-3-1", "wlan-3-2", "wlan-3-3", "wlan-3-4", "wlan-3-5", "wlan-3-6", "wlan-3-7", "wlan-3-8",
};

constexpr const char *owe_names[] = {
	"wlan-1-14", "wlan-1-15", "wlan-1-16", "wlan-2-14", "wlan-2-15",
	"wlan-2-16", "wlan-3-14", "wlan-3-15", "wlan-3-16",
};

std::string text(const AtomicName &name)
{
	char field[CP_INTERFACE_NAME_SIZE];
	name.load(field);
	return std::string(field, strnlen(field, sizeof(field)));
}

class ClientTables : public HostTest
{
protected:
	void SetUp() override { list = MacList(); }
	void TearDown() override
	{
		list.flush();
		HostTest::TearDown();
	}

	static void append(MacList &to, const MacAddress &mac)
	{
		mac_entry *const node = allocate_zeroed<mac_entry>();
		node->mac = mac;
		to.append(node);
	}

	// The last byte of each address, in the order of the list.
	[[nodiscard]] static std::vector<int> last_bytes(const MacList &of)
	{
		gk_list_slot slots[8] = {};
		const uint32_t count = of.copy_out(slots, 8);
		std::vector<int> bytes;
		for (uint32_t i = 0; i < count; ++i) {
			bytes.push_back(slots[i].mac[5]);
		}
		return bytes;
	}

	MacList list;
};

TEST_F(ClientTables, AListKeepsTheOrderOfAdding)
{
	append(list, mac_b);
	append(list, mac_a);
	append(list, mac_c);
	EXPECT_EQ(last_bytes(list), (std::vector{0x0b, 0x0a, 0x0c}));
}

TEST_F(ClientTables, AppendEndsTheListAtTheNewNodeWhateverItPointedTo)
{
	mac_entry stray{};
	mac_entry *const node = allocate_zeroed<mac_entry>();
	node->mac = mac_a;
	node->next = &stray;
	list.append(node);
	EXPECT_EQ(last_bytes(list), (std::vector{0x0a}));
}

TEST_F(ClientTables, AnAddressMayBeListedTwiceAndIsDeletedOnceAtATime)
{
	append(list, mac_a);
	append(list, mac_b);
	append(list, mac_a);
	list.delete_first_match(mac_a);
	EXPECT_EQ(last_bytes(list), (std::vector{0x0b, 0x0a}));
	EXPECT_TRUE(list.contains(mac_a));
	list.delete_first_match(mac_a);
	EXPECT_EQ(last_bytes(list), (std::vector{0x0b}));
	EXPECT_FALSE(list.contains(mac_a));
	EXPECT_EQ(machine.live_allocations().size(), 1U);
}

TEST_F(ClientTables, DeletesInTheMiddleAndAtTheTail)
{
	append(list, mac_a);
	append(list, mac_b);
	append(list, mac_c);
	list.delete_first_match(mac_b);
	EXPECT_EQ(last_bytes(list), (std::vector{0x0a, 0x0c}));
	list.delete_first_match(mac_c);
	EXPECT_EQ(last_bytes(list), (std::vector{0x0a}));
	append(list, mac_b);
	EXPECT_EQ(last_bytes(list), (std::vector{0x0a, 0x0b}));
}

TEST_F(ClientTables, DeletingAMissingAddressChangesNothing)
{
	list.delete_first_match(mac_a);
	append(list, mac_b);
	list.delete_first_match(mac_a);
	EXPECT_EQ(last_bytes(list), (std::vector{0x0b}));
}

TEST_F(ClientTables, FlushFreesEveryNode)
{
	append(list, mac_a);
	append(list, mac_b);
	append(list, mac_a);
	list.flush();
	EXPECT_EQ(last_bytes(list), std::vector<int>());
	EXPECT_TRUE(machine.live_allocations().empty());
	list.flush();
}

TEST_F(ClientTables, AllSixBytesOfAnAddressAreCompared)
{
	append(list, mac_a);
	for (unsigned i = 0; i < CP_MAC_SIZE; ++i) {
		MacAddress other = mac_a;
		other.bytes[i] ^= 0x80;
		EXPECT_FALSE(list.contains(other)) << "byte " << i;
		list.delete_first_match(other);
	}
	EXPECT_TRUE(list.contains(mac_a));
}

TEST_F(ClientTables, AnEmptyListContainsNothing)
{
	EXPECT_FALSE(list.contains(MacAddress{}));
}

TEST_F(ClientTables, CopyOutWritesTheAddressBytesOfASlotOnly)
{
	append(list, mac_a);
	append(list, mac_b);
	gk_list_slot slots[3];
	std::memset(slots, 0x5a, sizeof(slots));
	EXPECT_EQ(list.copy_out(slots, 3), 2U);

	const uint8_t expected[48] = {
		0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x02, 0x00, 0x00, 0x00, 0x00, 0x0a, 0x5a, 0x5a,
		0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x02, 0x00, 0x00, 0x00, 0x00, 0x0b, 0x5a, 0x5a,
		0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a,
	};
	EXPECT_EQ(std::memcmp(slots, expected, sizeof(slots)), 0);
}

TEST_F(ClientTables, CopyOutStopsWhereTheSlotsEnd)
{
	append(list, mac_a);
	append(list, mac_b);
	append(list, mac_c);
	gk_list_slot slots[3] = {};
	EXPECT_EQ(list.copy_out(slots, 2), 2U);
	EXPECT_EQ(slots[1].mac[5], 0x0b);
	EXPECT_EQ(slots[2].mac[5], 0x00);
	EXPECT_EQ(list.copy_out(slots, 0), 0U);
}

TEST_F(ClientTables, StartNamesTheRowsAndLeavesThemEmpty)
{
	ovra_behavior[0] = {.iface = {}, .behavior = 3, .status = 2};
	ovra_behavior[23] = {.iface = {}, .behavior = 3, .status = 2};
	init_client_tables();
	for (uint32_t row = 0; row < 24; ++row) {
		for (const iface_mac_list *table :
		     {auth_mac_table, login_mac_table, white_list, ga_white_list, mac_auth_fallback}) {
			EXPECT_STREQ(table[row].iface, interface_names[row]);
			EXPECT_EQ(last_bytes(table[row].list), std::vector<int>());
		}
		EXPECT_STREQ(ovra_behavior[row].iface, interface_names[row]);
		EXPECT_EQ(ovra_behavior[row].behavior, 0U);
		EXPECT_EQ(ovra_behavior[row].status, 0U);
	}
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEKEEPER), 1U);
}

TEST_F(ClientTables, StartNamesTheOweInterfacesAndPairsNone)
{
	init_client_tables();
	for (uint32_t row = 0; row < 9; ++row) {
		EXPECT_EQ(text(owe_mapping_table[row].owe_iface), owe_names[row]);
		EXPECT_EQ(text(owe_mapping_table[row].iface), "");
	}
}

TEST_F(ClientTables, StartEmptiesBothMirelLists)
{
	load_module();
	EXPECT_EQ(last_bytes(mirel_white_list), std::vector<int>());
	EXPECT_EQ(last_bytes(mirel_black_list), std::vector<int>());

	mac_entry listed = {.next = nullptr, .mac = mac_a};
	mirel_white_list.append(&listed);
	mac_entry listed_too = {.next = nullptr, .mac = mac_a};
	mirel_black_list.append(&listed_too);
	clear_mirel_lists();
	EXPECT_FALSE(mirel_white_list.contains(mac_a));
	EXPECT_FALSE(mirel_black_list.contains(mac_a));
}

TEST_F(ClientTables, StopLeavesTheNodesUnfreed)
{
	load_module();
	const size_t before = machine.live_allocations().size();
	change_clients(machine, ADD_WHITELIST_MAC, "wlan-1-1", {0x02, 0, 0, 0, 0, 1});
	change_clients(machine, ADD_AUTH_MAC, "wlan-1-1", {0x02, 0, 0, 0, 0, 1});
	change_clients(machine, ADD_LOGIN_MAC, "wlan-1-1", {0x02, 0, 0, 0, 0, 1});
	change_clients(machine, ADD_GA_WHITELIST_MAC, "wlan-1-1", {0x02, 0, 0, 0, 0, 1});
	change_clients(machine, ADD_MAC_AUTH_FALLBACK, "wlan-3-8", {0x02, 0, 0, 0, 0, 1});
	change_clients(machine, ADD_MIREL_BLACK_LIST_MAC, "", {0x02, 0, 0, 0, 0, 1});
	change_clients(machine, ADD_MIREL_WHITE_LIST_MAC, "", {0x02, 0, 0, 0, 0, 2});
	EXPECT_EQ(machine.live_allocations().size(), before + 7);
	ASSERT_EQ(machine.unload(), 0);

	size_t nodes = 0;
	for (const host::Allocation &allocation : machine.live_allocations()) {
		nodes += allocation.size == sizeof(mac_entry) ? 1 : 0;
	}
	EXPECT_EQ(nodes, 7U);
}

} // namespace

} // namespace captive_portal::test
