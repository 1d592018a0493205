// SPDX-License-Identifier: GPL-2.0-only
// What each setting sub-command logs, in which order it takes its steps, and what it refuses.
#include "tests/unit/gatekeeper_commands_fixture.h"

namespace captive_portal::test
{

namespace
{

// What a sub-command says, and in which order it allocates, speaks and parses.
enum class Order { no_node, allocate_log_parse, log_allocate_parse, log_parse_allocate, allocate_log };

struct SetRow {
	const char *name;
	uint32_t number;
	Order order;
	// For iface "wlan-1-3", owe_iface "wlan-2-15" and the station.
	std::vector<std::string> lines;
	// The line of a node that cannot be had, and of an interface that does not exist; null where there is none.
	const char *kmalloc_line;
	const char *index_line;
};

std::ostream &operator<<(std::ostream &stream, const SetRow &row)
{
	return stream << row.name;
}

const SetRow set_rows[] = {
	{"AddWhitelistMac",
	 0,
	 Order::allocate_log_parse,
	 {"[gatekeeper] if_device_write: ADD_WHITELIST_MAC mac= 02:AB:00:0C:DE:F0, gk_cmd.iface=wlan-1-3\n"},
	 "[gatekeeper] kmalloc fail(if_device_write_gk)(1874) \n",
	 "[gatekeeper] if_device_write_gk: line1885 invalid index number\n"},
	{"DelWhitelistMac",
	 1,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: DEL_WHITELIST_MAC, gk_cmd.fiace = wlan-1-3  \n"},
	 nullptr,
	 "[gatekeeper] if_device_write_gk: line1912 invalid index number\n"},
	{"AddAuthMac",
	 2,
	 Order::log_parse_allocate,
	 {"[gatekeeper] if_device_write: ADD_AUTH_MAC gk_cmd.iface=wlan-1-3 \n"},
	 "[gatekeeper] kmalloc fail(if_device_write_gk)(2077) \n",
	 "[gatekeeper] if_device_write_gk: line2070 invalid index number\n"},
	{"DelAuthMac",
	 3,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: DEL_AUTH_MAC gk_cmd.iface=wlan-1-3 \n"},
	 nullptr,
	 "[gatekeeper] if_device_write_gk: line2107 invalid index number\n"},
	{"AddLoginMac",
	 4,
	 Order::log_parse_allocate,
	 {"[gatekeeper] if_device_write: ADD_LOGIN_MAC gk_cmd.iface=wlan-1-3 \n",
	  "[gatekeeper] add mac= 02:AB:00:0C:DE:F0 \n"},
	 "[gatekeeper] kmalloc fail(if_device_write_gk)(2147) \n",
	 "[gatekeeper] if_device_write_gk: line2140 invalid index number\n"},
	{"DelLoginMac",
	 5,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: DEL_LOGIN_MAC gk_cmd.iface=wlan-1-3 \n",
	  "[gatekeeper] del mac= 02:AB:00:0C:DE:F0 \n"},
	 nullptr,
	 "[gatekeeper] if_device_write_gk: line2178 invalid index number\n"},
	{"FlushCaptivePortalTable",
	 9,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: FLUSH_CAPTIVE_PORTAL_TABLE gk_cmd.iface=wlan-1-3\n"},
	 nullptr,
	 "[gatekeeper] if_device_write_gk: line2268 invalid index number\n"},
	{"SetOvraBehavior",
	 10,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: 2407 gk_cmd.iface=wlan-1-3 \n"},
	 nullptr,
	 "[gatekeeper] if_device_write_gk: line2413 invalid index number\n"},
	{"AddMappingOweVap",
	 12,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: ADD_MAPPING_OWE_VAP, 2430 gk_cmd.iface=wlan-1-3, "
	  "gk_cmd.owe_iface=wlan-2-15 \n"},
	 nullptr,
	 "[gatekeeper] if_device_write_gk: line2436 invalid index number\n"},
	{"FlushMappingOweVap",
	 16,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: FLUSH_MAPPING_OWE_VAP\n"},
	 nullptr,
	 nullptr},
	{"AddMirelBlackListMac",
	 22,
	 Order::allocate_log,
	 {"[gatekeeper] if_device_write: ADD_MIREL_BLACK_LIST_MAC mac= 02:AB:00:0C:DE:F0\n"},
	 "[gatekeeper] kmalloc fail(if_device_write_gk)(2468) \n",
	 nullptr},
	{"DelMirelBlackListMac",
	 23,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: DEL_MIREL_BLACK_LIST_MAC\n"},
	 nullptr,
	 nullptr},
	{"AddMirelWhiteListMac",
	 24,
	 Order::allocate_log,
	 {"[gatekeeper] if_device_write: ADD_MIREL_WHITE_LIST_MAC mac= 02:AB:00:0C:DE:F0\n"},
	 "[gatekeeper] kmalloc fail(if_device_write_gk)(2518) \n",
	 nullptr},
	{"DelMirelWhiteListMac",
	 25,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: DEL_MIREL_WHITE_LIST_MAC\n"},
	 nullptr,
	 nullptr},
	{"AddGaWhitelistMac",
	 26,
	 Order::allocate_log_parse,
	 {"[gatekeeper] if_device_write: ADD_GA_WHITELIST_MAC mac= 02:AB:00:0C:DE:F0, gk_cmd.iface=wlan-1-3\n"},
	 "[gatekeeper] kmalloc fail(if_device_write_gk)(1941) \n",
	 "[gatekeeper] if_device_write_gk: line1952 invalid index number\n"},
	{"DelGaWhitelistMac",
	 27,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: DEL_GA_WHITELIST_MAC, gk_cmd.fiace = wlan-1-3  \n"},
	 nullptr,
	 "[gatekeeper] if_device_write_gk: line1979 invalid index number\n"},
	{"FlushGaWhitelistTable",
	 30,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: FLUSH_GA_WHITELIST_TABLE gk_cmd.iface=wlan-1-3\n"},
	 nullptr,
	 "[gatekeeper] if_device_write_gk: line2349 invalid index number\n"},
	{"AddMacAuthFallback",
	 31,
	 Order::log_allocate_parse,
	 {"[gatekeeper] if_device_write: ADD_MAC_AUTH_FALLBACK gk_cmd.mac=02:AB:00:0C:DE:F0, gk_cmd.iface=wlan-1-3\n"},
	 "[gatekeeper] kmalloc fail(if_device_write_gk)(2008) \n",
	 "[gatekeeper] if_device_write_gk: line2018 invalid index number\n"},
	{"DelMacAuthFallback",
	 32,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: DEL_MAC_AUTH_FALLBACK gk_cmd.mac= 02:AB:00:0C:DE:F0, gk_cmd.fiace = "
	  "wlan-1-3  \n"},
	 nullptr,
	 "[gatekeeper] if_device_write_gk: line2040 invalid index number\n"},
	{"FlushMacAuthFallback",
	 34,
	 Order::no_node,
	 {"[gatekeeper] if_device_write: FLUSH_MAC_AUTH_FALLBACK gk_cmd.iface=wlan-1-3\n"},
	 nullptr,
	 "[gatekeeper] if_device_write_gk: line2389 invalid index number\n"},
};

template <typename Condition> std::vector<SetRow> set_rows_if(Condition condition)
{
	std::vector<SetRow> rows;
	std::copy_if(std::begin(set_rows), std::end(set_rows), std::back_inserter(rows), condition);
	return rows;
}

bool selects_a_row(const SetRow &row)
{
	return row.index_line != nullptr;
}

bool selects_a_row_by_iface(const SetRow &row)
{
	return selects_a_row(row) && row.number != ADD_MAPPING_OWE_VAP;
}

std::string name_of_set_row(const ::testing::TestParamInfo<SetRow> &info)
{
	return info.param.name;
}

std::string replaced(std::string line, std::string_view from, std::string_view to)
{
	const size_t position = line.find(from);
	return position == std::string::npos ? line : line.replace(position, from.size(), to);
}

class EverySetCommand : public GatekeeperCommands, public ::testing::WithParamInterface<SetRow>
{
protected:
	// The sub-command's lines, as for these names.
	[[nodiscard]] static std::vector<LogLine> usual_lines(std::string_view iface = "wlan-1-3",
							      std::string_view owe_iface = "wlan-2-15")
	{
		std::vector<LogLine> lines;
		for (const std::string &line : GetParam().lines) {
			lines.push_back(
				debug_line(replaced(replaced(line, "wlan-1-3", iface), "wlan-2-15", owe_iface)));
		}
		return lines;
	}
};

using EverySetCommandWithRow = EverySetCommand;
using EverySetCommandWithIface = EverySetCommand;

INSTANTIATE_TEST_SUITE_P(SetCommands, EverySetCommand, ::testing::ValuesIn(set_rows), name_of_set_row);
INSTANTIATE_TEST_SUITE_P(SetCommands, EverySetCommandWithRow, ::testing::ValuesIn(set_rows_if(selects_a_row)),
			 name_of_set_row);
INSTANTIATE_TEST_SUITE_P(SetCommands, EverySetCommandWithIface,
			 ::testing::ValuesIn(set_rows_if(selects_a_row_by_iface)), name_of_set_row);

TEST_P(EverySetCommand, LogsItsLinesAtLevelDebug)
{
	run(record_of(GetParam().number, "wlan-1-3", "wlan-2-15"));
	EXPECT_EQ(machine.log.take(), usual_lines());
}

TEST_P(EverySetCommand, LogsWhateverTheDebugLevel)
{
	set_debug_level(machine, -1);
	run(record_of(GetParam().number, "wlan-1-3", "wlan-2-15"));
	EXPECT_EQ(machine.log.take(), usual_lines());
}

TEST_P(EverySetCommand, PrintsNamesWithoutNulToTheirFieldsEnd)
{
	run(record_of(GetParam().number, "wlan-1-3 is full", "wlan-2-15 filled"));
	EXPECT_EQ(machine.log.take(), usual_lines("wlan-1-3 is full", "wlan-2-15 filled"));
}

TEST_P(EverySetCommandWithRow, RefusesAnInterfaceThatDoesNotExist)
{
	const SetRow &row = GetParam();
	list_station_everywhere("wlan-1-3");
	const std::vector<std::string> before = lists_with_station();

	// Index 24, and row 9 of the OWE companions.
	run(record_of(row.number, "wlan-4-1", "wlan-4-14"));
	std::vector<LogLine> expected = usual_lines("wlan-4-1", "wlan-4-14");
	expected.push_back(error_line(row.index_line));
	EXPECT_EQ(machine.log.take(), expected);
	EXPECT_EQ(lists_with_station(), before);
	collect_lost();
}

TEST_P(EverySetCommand, LeaksTheNodeOfARefusedInterfaceIfItCameFirst)
{
	const SetRow &row = GetParam();
	run(record_of(row.number, "wlan-9-9", "wlan-9-9"));
	const bool leaks = row.number == 0 || row.number == 26 || row.number == 31;
	EXPECT_EQ(collect_lost(), leaks ? 1U : 0U);
}

TEST_P(EverySetCommand, SaysThatThereIsNoMemoryForANode)
{
	const SetRow &row = GetParam();
	const uint64_t attempts = machine.memory.attempts();
	machine.memory.fail_allocation(1);
	run(record_of(row.number, "wlan-1-3", "wlan-2-15"));

	std::vector<LogLine> expected;
	if (row.order != Order::allocate_log_parse && row.order != Order::allocate_log) {
		expected = usual_lines();
	}
	if (row.kmalloc_line != nullptr) {
		expected.push_back(debug_line(row.kmalloc_line));
	}
	EXPECT_EQ(machine.log.take(), expected);
	EXPECT_EQ(machine.memory.attempts() - attempts, row.kmalloc_line == nullptr ? 0U : 1U);
	EXPECT_EQ(lists_with_station(), std::vector<std::string>());
}

TEST_P(EverySetCommand, MeetsMissingMemoryAndABadInterfaceInItsOwnOrder)
{
	const SetRow &row = GetParam();
	machine.memory.fail_allocation(1);
	run(record_of(row.number, "wlan-4-1", "wlan-4-14"));

	std::vector<LogLine> expected;
	switch (row.order) {
	case Order::allocate_log_parse:
	case Order::allocate_log:
		expected = {debug_line(row.kmalloc_line)};
		break;
	case Order::log_allocate_parse:
		expected = usual_lines("wlan-4-1", "wlan-4-14");
		expected.push_back(debug_line(row.kmalloc_line));
		break;
	case Order::log_parse_allocate:
	case Order::no_node:
		expected = usual_lines("wlan-4-1", "wlan-4-14");
		if (row.index_line != nullptr) {
			expected.push_back(error_line(row.index_line));
		}
		break;
	}
	EXPECT_EQ(machine.log.take(), expected);
}

TEST_P(EverySetCommandWithIface, RefusesAllInCapitals)
{
	const SetRow &row = GetParam();
	run(record_of(row.number, "ALL"));
	EXPECT_TRUE(log_has(error_line(row.index_line)));
	collect_lost();
}

TEST_P(EverySetCommandWithIface, TakesAllForEveryRowOnlyWhereItFlushes)
{
	const SetRow &row = GetParam();
	run(record_of(row.number, "all"));
	const bool flushes = row.number == 9 || row.number == 30 || row.number == 34;
	EXPECT_EQ(log_has(error_line(row.index_line)), !flushes);
	collect_lost();
}

TEST_F(GatekeeperCommands, UnassignedNumbersAreRefusedSilently)
{
	for (const uint32_t number : {6U,  7U,  8U,  11U, 13U, 14U, 15U, 17U,  18U,         19U,
				      20U, 21U, 28U, 29U, 33U, 35U, 36U, 255U, 0x80000000U, 0xffffffffU}) {
		EXPECT_EQ(if_device_write_gk(record_of(number, "wlan-1-1", "wlan-1-14")), -1) << number;
	}
	EXPECT_NO_LOG();
	EXPECT_EQ(lists_with_station(), std::vector<std::string>());
}

TEST_F(GatekeeperCommands, TheDeviceAnswersWhatTheHandlerAnswers)
{
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_SET, record_of(35, "wlan-1-1")), -1);
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_SET, record_of(6, "wlan-1-1")), -1);
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_SET, record_of(ADD_LOGIN_MAC, "wlan-1-1")), 0);
	EXPECT_EQ(lists_with_station(), std::vector<std::string>{"login_mac_table 0"});
}

} // namespace

} // namespace captive_portal::test
