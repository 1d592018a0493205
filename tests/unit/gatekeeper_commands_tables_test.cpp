// SPDX-License-Identifier: GPL-2.0-only
// What each setting sub-command does to the tables.
#include "tests/unit/gatekeeper_commands_fixture.h"

namespace captive_portal::test
{

namespace
{

struct ListRow {
	const char *name; // as lists_with_station() gives it for "wlan-2-3"
	uint32_t add;
	uint32_t remove;
};

class EveryList : public GatekeeperCommands, public ::testing::WithParamInterface<ListRow>
{
};

INSTANTIATE_TEST_SUITE_P(Lists, EveryList,
			 ::testing::Values(ListRow{"white_list 10", 0, 1}, ListRow{"auth_mac_table 10", 2, 3},
					   ListRow{"login_mac_table 10", 4, 5}, ListRow{"mirel_black_list", 22, 23},
					   ListRow{"mirel_white_list", 24, 25}, ListRow{"ga_white_list 10", 26, 27},
					   ListRow{"mac_auth_fallback 10", 31, 32}));

TEST_P(EveryList, GetsAndLosesAddressesAlone)
{
	run(record_of(GetParam().add, "wlan-2-3"));
	EXPECT_EQ(lists_with_station(), std::vector<std::string>{GetParam().name});
	gk_cmd other = record_of(GetParam().remove, "wlan-2-3");
	other.mac[5] ^= 1;
	run(other);
	EXPECT_EQ(lists_with_station(), std::vector<std::string>{GetParam().name});
	run(record_of(GetParam().remove, "wlan-2-3"));
	EXPECT_EQ(lists_with_station(), std::vector<std::string>());
	run(record_of(GetParam().remove, "wlan-2-3"));
	EXPECT_TRUE(machine.lost_allocations().empty());
}

TEST_P(EveryList, ListsAnAddressAsOftenAsItIsAdded)
{
	run(record_of(GetParam().add, "wlan-2-3"));
	run(record_of(GetParam().add, "wlan-2-3"));
	run(record_of(GetParam().remove, "wlan-2-3"));
	EXPECT_EQ(lists_with_station(), std::vector<std::string>{GetParam().name});
	run(record_of(GetParam().remove, "wlan-2-3"));
	EXPECT_EQ(lists_with_station(), std::vector<std::string>());
}

TEST_P(EveryList, IsChangedInOneHoldOfTheLock)
{
	const uint64_t before = holds();
	run(record_of(GetParam().add, "wlan-2-3"));
	EXPECT_EQ(holds() - before, 1U);
	run(record_of(GetParam().remove, "wlan-2-3"));
	EXPECT_EQ(holds() - before, 2U);
}

struct NameRow {
	std::string_view name;
	int row; // -1: there is none
};

class EveryName : public GatekeeperCommands, public ::testing::WithParamInterface<NameRow>
{
};

INSTANTIATE_TEST_SUITE_P(Names, EveryName,
			 ::testing::Values(NameRow{"wlan-1-1", 0}, NameRow{"wlan-1-8", 7}, NameRow{"wlan-2-1", 8},
					   NameRow{"wlan-3-8", 23}, NameRow{"wlan-2-0", 7}, NameRow{"wlan-1-9", 8},
					   NameRow{"wlan-1-24", 23}, NameRow{"wlan-1-25", -1}, NameRow{"wlan-4-1", -1},
					   NameRow{"wlan-1-0", -1}, NameRow{"wlan-4--8", 15}, NameRow{"wlan-9-9", -1},
					   NameRow{"wlan- 1-\t2", 1}, NameRow{"wlan-\xa0\x31-2", 1},
					   NameRow{"wlan-1-2garbage", 1}, NameRow{"wlan-01-02", 1},
					   NameRow{"wlan-+1-2", -1}, NameRow{"wlan-0x1-2", -1}, NameRow{"wlan-1", -1},
					   NameRow{"wlan-1-", -1}, NameRow{"wlan", -1}, NameRow{"", -1},
					   NameRow{"eth0", -1}, NameRow{" wlan-1-1", -1}, NameRow{"WLAN-1-1", -1},
					   NameRow{"wlan-1-000000005", 4}, NameRow{"wlan-4294967297-", -1},
					   NameRow{"wlan-1-429496729", -1}));

TEST_P(EveryName, SelectsItsRow)
{
	run(record_of(ADD_LOGIN_MAC, GetParam().name));
	const std::vector<std::string> expected =
		GetParam().row < 0 ? std::vector<std::string>() :
				     std::vector{"login_mac_table " + std::to_string(GetParam().row)};
	EXPECT_EQ(lists_with_station(), expected);
	EXPECT_EQ(log_has(error_line("[gatekeeper] if_device_write_gk: line2140 invalid index number\n")),
		  GetParam().row < 0);
}

TEST_F(GatekeeperCommands, MirelWhiteListTakesTheAddressOffTheBlackList)
{
	run(record_of(ADD_MIREL_BLACK_LIST_MAC, ""));
	run(record_of(ADD_MIREL_WHITE_LIST_MAC, ""));
	EXPECT_EQ(lists_with_station(), std::vector<std::string>{"mirel_white_list"});
}

TEST_F(GatekeeperCommands, MirelWhiteListTakesOneEntryOffTheBlackList)
{
	run(record_of(ADD_MIREL_BLACK_LIST_MAC, ""));
	run(record_of(ADD_MIREL_BLACK_LIST_MAC, ""));
	run(record_of(ADD_MIREL_WHITE_LIST_MAC, ""));
	EXPECT_EQ(lists_with_station(), (std::vector<std::string>{"mirel_white_list", "mirel_black_list"}));
}

TEST_F(GatekeeperCommands, MirelBlackListDoesNotLookAtTheWhiteList)
{
	run(record_of(ADD_MIREL_WHITE_LIST_MAC, ""));
	run(record_of(ADD_MIREL_BLACK_LIST_MAC, ""));
	EXPECT_EQ(lists_with_station(), (std::vector<std::string>{"mirel_white_list", "mirel_black_list"}));
	run(record_of(DEL_MIREL_BLACK_LIST_MAC, ""));
	EXPECT_EQ(lists_with_station(), std::vector<std::string>{"mirel_white_list"});
}

TEST_F(GatekeeperCommands, DeletingFromTheMirelWhiteListDeletesFromTheBlackListToo)
{
	run(record_of(ADD_MIREL_BLACK_LIST_MAC, ""));
	run(record_of(DEL_MIREL_WHITE_LIST_MAC, ""));
	EXPECT_EQ(lists_with_station(), std::vector<std::string>());

	run(record_of(ADD_MIREL_WHITE_LIST_MAC, ""));
	run(record_of(ADD_MIREL_BLACK_LIST_MAC, ""));
	run(record_of(DEL_MIREL_WHITE_LIST_MAC, ""));
	EXPECT_EQ(lists_with_station(), std::vector<std::string>());
}

TEST_F(GatekeeperCommands, AMirelWhiteListNodeThatCannotBeHadLeavesTheBlackListAlone)
{
	run(record_of(ADD_MIREL_BLACK_LIST_MAC, ""));
	machine.memory.fail_allocation(1);
	run(record_of(ADD_MIREL_WHITE_LIST_MAC, ""));
	EXPECT_EQ(lists_with_station(), std::vector<std::string>{"mirel_black_list"});
}

TEST_F(GatekeeperCommands, FlushOfOneInterfaceEmptiesItsFiveLists)
{
	list_station_everywhere("wlan-1-3");
	list_station_everywhere("wlan-1-4");
	const uint64_t before = holds();
	run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "wlan-1-3"));
	EXPECT_EQ(holds() - before, 1U);
	EXPECT_EQ(lists_with_station(),
		  (std::vector<std::string>{"white_list 3", "ga_white_list 3", "mac_auth_fallback 3",
					    "login_mac_table 3", "auth_mac_table 3"}));
	EXPECT_TRUE(machine.lost_allocations().empty());
}

TEST_F(GatekeeperCommands, FlushOfAllEmptiesEveryRowInOneHoldAndNothingElse)
{
	for (const char *iface : {"wlan-1-1", "wlan-1-8", "wlan-2-4", "wlan-3-8"}) {
		list_station_everywhere(iface);
	}
	run(record_of(ADD_MIREL_WHITE_LIST_MAC, ""));
	run(record_of(ADD_MIREL_BLACK_LIST_MAC, ""));
	set_behavior(machine, "wlan-1-1", 1, 2);
	map_owe_interface(machine, "wlan-1-14", "wlan-1-1");

	const uint64_t before = holds();
	run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "all"));
	EXPECT_EQ(holds() - before, 1U);
	EXPECT_LOG(debug_line("[gatekeeper] if_device_write: FLUSH_CAPTIVE_PORTAL_TABLE gk_cmd.iface=all\n"));
	EXPECT_EQ(lists_with_station(), (std::vector<std::string>{"mirel_white_list", "mirel_black_list"}));
	EXPECT_EQ(ovra_behavior[0].behavior, 1U);
	EXPECT_EQ(ovra_behavior[0].status, 2U);
	EXPECT_EQ(text(owe_mapping_table[0].iface), "wlan-1-1");
	EXPECT_TRUE(machine.lost_allocations().empty());
}

TEST_F(GatekeeperCommands, OnlyExactlyAllStandsForEveryRow)
{
	list_station_everywhere("wlan-1-1");
	for (const char *iface : {"ALL", "All", "al", "alll", "all ", " all", "all is not this"}) {
		run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, iface));
		EXPECT_TRUE(log_has(error_line("[gatekeeper] if_device_write_gk: line2268 invalid index number\n")))
			<< iface;
		machine.log.clear();
	}
	EXPECT_EQ(lists_with_station().size(), 5U);
}

TEST_F(GatekeeperCommands, FlushOfTheGaWhiteListLeavesTheOtherLists)
{
	list_station_everywhere("wlan-1-3");
	list_station_everywhere("wlan-1-4");
	uint64_t before = holds();
	run(record_of(FLUSH_GA_WHITELIST_TABLE, "wlan-1-3"));
	EXPECT_EQ(holds() - before, 1U);
	EXPECT_FALSE(ga_white_list[2].list.contains(station_mac));
	EXPECT_TRUE(ga_white_list[3].list.contains(station_mac));
	EXPECT_EQ(lists_with_station().size(), 9U);

	before = holds();
	run(record_of(FLUSH_GA_WHITELIST_TABLE, "all"));
	EXPECT_EQ(holds() - before, 1U);
	EXPECT_FALSE(ga_white_list[3].list.contains(station_mac));
	EXPECT_EQ(lists_with_station().size(), 8U);
}

TEST_F(GatekeeperCommands, FlushOfTheMacAuthFallbackLeavesTheOtherLists)
{
	list_station_everywhere("wlan-1-3");
	list_station_everywhere("wlan-3-8");
	uint64_t before = holds();
	run(record_of(FLUSH_MAC_AUTH_FALLBACK, "wlan-3-8"));
	EXPECT_EQ(holds() - before, 1U);
	EXPECT_TRUE(mac_auth_fallback[2].list.contains(station_mac));
	EXPECT_FALSE(mac_auth_fallback[23].list.contains(station_mac));
	EXPECT_EQ(lists_with_station().size(), 9U);

	before = holds();
	run(record_of(FLUSH_MAC_AUTH_FALLBACK, "all"));
	EXPECT_EQ(holds() - before, 1U);
	EXPECT_FALSE(mac_auth_fallback[2].list.contains(station_mac));
	EXPECT_EQ(lists_with_station().size(), 8U);
}

TEST_F(GatekeeperCommands, SetsTheBehaviorOfOneRow)
{
	gk_cmd record = record_of(SET_OVRA_BEHAVIOR, "wlan-2-1");
	record.behavior = 0xfffffffe;
	record.status = 2;
	const uint64_t before = holds();
	run(record);
	EXPECT_EQ(holds() - before, 1U);
	for (uint32_t row = 0; row < 24; ++row) {
		EXPECT_EQ(ovra_behavior[row].behavior, row == 8 ? 0xfffffffe : 0U) << row;
		EXPECT_EQ(ovra_behavior[row].status, row == 8 ? 2U : 0U) << row;
	}
}

TEST_F(GatekeeperCommands, MapsAnOweInterfaceWithoutTheLock)
{
	const uint64_t before = holds();
	run(record_of(ADD_MAPPING_OWE_VAP, "wlan-1-2", "wlan-2-15"));
	EXPECT_EQ(holds(), before);
	EXPECT_EQ(text(owe_mapping_table[4].iface), "wlan-1-2");
	EXPECT_EQ(text(owe_mapping_table[4].owe_iface), "wlan-2-15");
	EXPECT_EQ(text(owe_mapping_table[3].iface), "");
	EXPECT_EQ(text(owe_mapping_table[5].iface), "");
}

TEST_F(GatekeeperCommands, ChecksTheCombinedOweIndexAlone)
{
	run(record_of(ADD_MAPPING_OWE_VAP, "wlan-1-1", "wlan-1-17"));
	EXPECT_EQ(text(owe_mapping_table[3].iface), "wlan-1-1");
	EXPECT_EQ(text(owe_mapping_table[3].owe_iface), "wlan-1-17");
	run(record_of(ADD_MAPPING_OWE_VAP, "wlan-1-2", "wlan-0-17"));
	EXPECT_EQ(text(owe_mapping_table[0].iface), "wlan-1-2");
	run(record_of(ADD_MAPPING_OWE_VAP, "wlan-1-3", "wlan-1-22"));
	EXPECT_EQ(text(owe_mapping_table[8].iface), "wlan-1-3");
	machine.log.clear();

	for (const char *owe_iface : {"wlan-1-13", "wlan-1-23", "wlan-4-14", "wlan-1-1", "wlan-14", ""}) {
		run(record_of(ADD_MAPPING_OWE_VAP, "wlan-1-4", owe_iface));
		EXPECT_TRUE(log_has(error_line("[gatekeeper] if_device_write_gk: line2436 invalid index number\n")))
			<< owe_iface;
		machine.log.clear();
	}
	for (const owe_mapping_row &row : owe_mapping_table) {
		EXPECT_NE(text(row.iface), "wlan-1-4");
	}
}

TEST_F(GatekeeperCommands, DoesNotLookAtTheNameThatAnOweInterfaceIsPairedWith)
{
	run(record_of(ADD_MAPPING_OWE_VAP, "not a wlan", "wlan-1-14"));
	EXPECT_EQ(text(owe_mapping_table[0].iface), "not a wlan");
	run(record_of(ADD_MAPPING_OWE_VAP, "", "wlan-1-14"));
	EXPECT_EQ(text(owe_mapping_table[0].iface), "");
}

TEST_F(GatekeeperCommands, StoresFifteenCharactersOfANameWithoutNul)
{
	run(record_of(ADD_MAPPING_OWE_VAP, "wlan-1-000000005", "wlan-1-000000015"));
	EXPECT_EQ(text(owe_mapping_table[1].iface), "wlan-1-00000000");
	EXPECT_EQ(text(owe_mapping_table[1].owe_iface), "wlan-1-00000001");
}

TEST_F(GatekeeperCommands, AShorterNameLeavesNothingOfALongerOne)
{
	run(record_of(ADD_MAPPING_OWE_VAP, "wlan-3-8 longer", "wlan-1-14"));
	run(record_of(ADD_MAPPING_OWE_VAP, "wlan-1-1", "wlan-1-14"));
	EXPECT_EQ(text(owe_mapping_table[0].iface), "wlan-1-1");
}

TEST_F(GatekeeperCommands, ClearingTheOweMappingErasesTheOweNamesToo)
{
	run(record_of(ADD_MAPPING_OWE_VAP, "wlan-1-2", "wlan-2-15"));
	const uint64_t before = holds();
	run(record_of(FLUSH_MAPPING_OWE_VAP, "", ""));
	EXPECT_EQ(holds(), before);
	for (const owe_mapping_row &row : owe_mapping_table) {
		EXPECT_EQ(text(row.iface), "");
		EXPECT_EQ(text(row.owe_iface), "");
	}
	run(record_of(ADD_MAPPING_OWE_VAP, "wlan-1-2", "wlan-2-15"));
	EXPECT_EQ(text(owe_mapping_table[4].iface), "wlan-1-2");
	EXPECT_EQ(text(owe_mapping_table[4].owe_iface), "wlan-2-15");
}

} // namespace

} // namespace captive_portal::test
