// SPDX-License-Identifier: GPL-2.0-only
// Command 8: each sub-command is a row of one table, the steps before it acts in their order.
#include "gatekeeper/gatekeeper_commands.h"

#include "base/interface_name.h"
#include "base/memory.h"
#include "base/mutex.h"
#include "gatekeeper/client_tables.h"

namespace captive_portal
{

namespace
{

// What a setting sub-command does before it acts. The order shows outside, in what is logged and allocated before a
// refusal, and differs between sub-commands: daemons and support staff know it. A name that is refused after a node was
// allocated leaks the node, deliberately.
enum class Step : uint8_t {
	none,
	log_line,
	allocate,
	parse_iface,
	parse_iface_or_all,
	parse_owe_iface,
};

enum class Action : uint8_t {
	append,
	remove,
	flush,
	flush_portal,
	append_mirel_black,
	remove_mirel_black,
	append_mirel_white,
	remove_mirel_white,
	set_behavior,
	map_owe,
	clear_owe,
};

struct SetCommand {
	uint32_t number;
	Step steps[3];
	Action action;
	iface_mac_list *table;  // of append, remove and flush
	int32_t kmalloc_number; // printed when there is no memory for a node
	int32_t index_number;   // printed when a name selects no row
};

using enum Step;
using enum Action;

// clang-format off
constexpr SetCommand set_commands[] = {
	{ADD_WHITELIST_MAC,          {allocate, log_line, parse_iface}, append,             white_list,        1874, 1885},
	{DEL_WHITELIST_MAC,          {log_line, parse_iface},           remove,             white_list,        0,    1912},
	{ADD_AUTH_MAC,               {log_line, parse_iface, allocate}, append,             auth_mac_table,    2077, 2070},
	{DEL_AUTH_MAC,               {log_line, parse_iface},           remove,             auth_mac_table,    0,    2107},
	{ADD_LOGIN_MAC,              {log_line, parse_iface, allocate}, append,             login_mac_table,   2147, 2140},
	{DEL_LOGIN_MAC,              {log_line, parse_iface},           remove,             login_mac_table,   0,    2178},
	{FLUSH_CAPTIVE_PORTAL_TABLE, {log_line, parse_iface_or_all},    flush_portal,       nullptr,           0,    2268},
	{SET_OVRA_BEHAVIOR,          {log_line, parse_iface},           set_behavior,       nullptr,           0,    2413},
	{ADD_MAPPING_OWE_VAP,        {log_line, parse_owe_iface},       map_owe,            nullptr,           0,    2436},
	{FLUSH_MAPPING_OWE_VAP,      {log_line},                        clear_owe,          nullptr,           0,    0},
	{ADD_MIREL_BLACK_LIST_MAC,   {allocate, log_line},              append_mirel_black, nullptr,           2468, 0},
	{DEL_MIREL_BLACK_LIST_MAC,   {log_line},                        remove_mirel_black, nullptr,           0,    0},
	{ADD_MIREL_WHITE_LIST_MAC,   {allocate, log_line},              append_mirel_white, nullptr,           2518, 0},
	{DEL_MIREL_WHITE_LIST_MAC,   {log_line},                        remove_mirel_white, nullptr,           0,    0},
	{ADD_GA_WHITELIST_MAC,       {allocate, log_line, parse_iface}, append,             ga_white_list,     1941, 1952},
	{DEL_GA_WHITELIST_MAC,       {log_line, parse_iface},           remove,             ga_white_list,     0,    1979},
	{FLUSH_GA_WHITELIST_TABLE,   {log_line, parse_iface_or_all},    flush,              ga_white_list,     0,    2349},
	{ADD_MAC_AUTH_FALLBACK,      {log_line, allocate, parse_iface}, append,             mac_auth_fallback, 2008, 2018},
	{DEL_MAC_AUTH_FALLBACK,      {log_line, parse_iface},           remove,             mac_auth_fallback, 0,    2040},
	{FLUSH_MAC_AUTH_FALLBACK,    {log_line, parse_iface_or_all},    flush,              mac_auth_fallback, 0,    2389},
};
// clang-format on

constexpr char handler_name[] = "if_device_write_gk";

constexpr Text all_interfaces{"all", 3};

const SetCommand *find_set_command(uint32_t number)
{
	for (const SetCommand &command : set_commands) {
		if (command.number == number) {
			return &command;
		}
	}
	return nullptr;
}

static_assert(CP_INTERFACE_NAME_SIZE == 16, "the lines below print a name that has no NUL up to its field's end");

// The line that each sub-command writes into the log, whatever the debug level. "fiace" and the blanks before the
// line's end are deliberate: log readers match them.
void log_set_command(const gk_cmd &record)
{
	const uint8_t *const mac = record.mac;
	const char *const iface = record.iface;

	switch (record.cmd) {
	case ADD_WHITELIST_MAC:
		cp_log(CP_LOG_DEBUG,
		       "[gatekeeper] if_device_write: ADD_WHITELIST_MAC mac= " CP_MAC_FORMAT ", gk_cmd.iface=%.16s\n",
		       CP_MAC_ARGUMENTS(mac), iface);
		return;
	case DEL_WHITELIST_MAC:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: DEL_WHITELIST_MAC, gk_cmd.fiace = %.16s  \n",
		       iface);
		return;
	case ADD_AUTH_MAC:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: ADD_AUTH_MAC gk_cmd.iface=%.16s \n", iface);
		return;
	case DEL_AUTH_MAC:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: DEL_AUTH_MAC gk_cmd.iface=%.16s \n", iface);
		return;
	case ADD_LOGIN_MAC:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: ADD_LOGIN_MAC gk_cmd.iface=%.16s \n", iface);
		cp_log(CP_LOG_DEBUG, "[gatekeeper] add mac= " CP_MAC_FORMAT " \n", CP_MAC_ARGUMENTS(mac));
		return;
	case DEL_LOGIN_MAC:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: DEL_LOGIN_MAC gk_cmd.iface=%.16s \n", iface);
		cp_log(CP_LOG_DEBUG, "[gatekeeper] del mac= " CP_MAC_FORMAT " \n", CP_MAC_ARGUMENTS(mac));
		return;
	case FLUSH_CAPTIVE_PORTAL_TABLE:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: FLUSH_CAPTIVE_PORTAL_TABLE gk_cmd.iface=%.16s\n",
		       iface);
		return;
	case SET_OVRA_BEHAVIOR:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: %d gk_cmd.iface=%.16s \n", 2407, iface);
		return;
	case ADD_MAPPING_OWE_VAP:
		cp_log(CP_LOG_DEBUG,
		       "[gatekeeper] if_device_write: ADD_MAPPING_OWE_VAP, %d gk_cmd.iface=%.16s, "
		       "gk_cmd.owe_iface=%.16s \n",
		       2430, iface, record.owe_iface);
		return;
	case FLUSH_MAPPING_OWE_VAP:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: FLUSH_MAPPING_OWE_VAP\n");
		return;
	case ADD_MIREL_BLACK_LIST_MAC:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: ADD_MIREL_BLACK_LIST_MAC mac= " CP_MAC_FORMAT "\n",
		       CP_MAC_ARGUMENTS(mac));
		return;
	case DEL_MIREL_BLACK_LIST_MAC:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: DEL_MIREL_BLACK_LIST_MAC\n");
		return;
	case ADD_MIREL_WHITE_LIST_MAC:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: ADD_MIREL_WHITE_LIST_MAC mac= " CP_MAC_FORMAT "\n",
		       CP_MAC_ARGUMENTS(mac));
		return;
	case DEL_MIREL_WHITE_LIST_MAC:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: DEL_MIREL_WHITE_LIST_MAC\n");
		return;
	case ADD_GA_WHITELIST_MAC:
		cp_log(CP_LOG_DEBUG,
		       "[gatekeeper] if_device_write: ADD_GA_WHITELIST_MAC mac= " CP_MAC_FORMAT
		       ", gk_cmd.iface=%.16s\n",
		       CP_MAC_ARGUMENTS(mac), iface);
		return;
	case DEL_GA_WHITELIST_MAC:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: DEL_GA_WHITELIST_MAC, gk_cmd.fiace = %.16s  \n",
		       iface);
		return;
	case FLUSH_GA_WHITELIST_TABLE:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: FLUSH_GA_WHITELIST_TABLE gk_cmd.iface=%.16s\n",
		       iface);
		return;
	case ADD_MAC_AUTH_FALLBACK:
		cp_log(CP_LOG_DEBUG,
		       "[gatekeeper] if_device_write: ADD_MAC_AUTH_FALLBACK gk_cmd.mac=" CP_MAC_FORMAT
		       ", gk_cmd.iface=%.16s\n",
		       CP_MAC_ARGUMENTS(mac), iface);
		return;
	case DEL_MAC_AUTH_FALLBACK:
		cp_log(CP_LOG_DEBUG,
		       "[gatekeeper] if_device_write: DEL_MAC_AUTH_FALLBACK gk_cmd.mac= " CP_MAC_FORMAT
		       ", gk_cmd.fiace = %.16s  \n",
		       CP_MAC_ARGUMENTS(mac), iface);
		return;
	case FLUSH_MAC_AUTH_FALLBACK:
		cp_log(CP_LOG_DEBUG, "[gatekeeper] if_device_write: FLUSH_MAC_AUTH_FALLBACK gk_cmd.iface=%.16s\n",
		       iface);
		return;
	}
}

// What the steps have found for the action.
struct Operands {
	mac_entry *node = nullptr;
	ClientSlot *slot = nullptr; // of the node's address
	uint32_t first_row = 0;
	uint32_t rows = 0;
};

// The three steps below give false when they refuse, and have said so in the log.

[[nodiscard]] bool allocate_node(const SetCommand &command, const gk_cmd &record, Operands &operands)
{
	operands.node = allocate_zeroed<mac_entry>();
	if (operands.node != nullptr) {
		operands.slot = client_index.prepare(MacAddress::from(record.mac));
	}
	// Without its place in the index a node is of no use.
	if (operands.node == nullptr || operands.slot == nullptr) {
		cp_free(operands.node);
		cp_log(CP_LOG_DEBUG, "[gatekeeper] kmalloc fail(%s)(%d) \n", handler_name, command.kmalloc_number);
		return false;
	}
	operands.node->mac = MacAddress::from(record.mac);
	return true;
}

[[nodiscard]] bool select_row(const SetCommand &command, Field<uint32_t> index, Operands &operands)
{
	if (!index.has_value()) {
		cp_log(CP_LOG_ERR, "[gatekeeper] %s: line%d invalid index number\n", handler_name,
		       command.index_number);
		return false;
	}
	operands.first_row = index.value();
	operands.rows = 1;
	return true;
}

[[nodiscard]] bool select_row_or_all(const SetCommand &command, const gk_cmd &record, Operands &operands)
{
	const Text iface = text_of_field(record.iface);
	if (iface == all_interfaces) {
		operands.first_row = 0;
		operands.rows = CP_WIRELESS_INTERFACES;
		return true;
	}
	return select_row(command, interface_index_of_name(iface), operands);
}

[[nodiscard]] bool take_step(Step step, const SetCommand &command, const gk_cmd &record, Operands &operands)
{
	switch (step) {
	case none:
		break;
	case log_line:
		log_set_command(record);
		break;
	case allocate:
		return allocate_node(command, record, operands);
	case parse_iface:
		return select_row(command, interface_index_of_name(text_of_field(record.iface)), operands);
	case parse_iface_or_all:
		return select_row_or_all(command, record, operands);
	case parse_owe_iface:
		return select_row(command, owe_index_of_name(text_of_field(record.owe_iface)), operands);
	}
	return true;
}

// Hides the lists in one moment; then there is time to empty them.
void flush_lists(const Operands &operands, uint32_t lists)
{
	{
		const ClientWriteSection section;
		section.hide(operands.first_row, operands.rows, lists);
	}
	empty_hidden_lists(operands.first_row, operands.rows, lists);
}

void append_to_list(MacList &list, ClientLists::List name, const Operands &operands)
{
	list.append(operands.node);
	const ClientWriteSection section;
	client_index.add(operands.slot, operands.first_row, name);
}

void remove_from_list(MacList &list, ClientLists::List name, const MacAddress &mac, uint32_t row)
{
	const uint32_t left = take_from_list(list, name, mac);
	{
		const ClientWriteSection section;
		client_index.remove(mac, row, left);
	}
	client_index.tidy();
}

// From black to white in one moment.
void append_to_mirel_white_list(const MacAddress &mac, const Operands &operands)
{
	const uint32_t left = take_from_list(mirel_black_list, ClientLists::mirel_black, mac);
	mirel_white_list.append(operands.node);
	const ClientWriteSection section;
	client_index.remove(mac, 0, left);
	client_index.add(operands.slot, 0, ClientLists::mirel_white);
}

// From the black list too, deliberately: the address is then on neither.
void remove_from_mirel_white_list(const MacAddress &mac)
{
	const uint32_t left = take_from_list(mirel_black_list, ClientLists::mirel_black, mac) |
			      take_from_list(mirel_white_list, ClientLists::mirel_white, mac);
	{
		const ClientWriteSection section;
		client_index.remove(mac, 0, left);
	}
	client_index.tidy();
}

void store_name(AtomicName &stored, const char (&field)[CP_INTERFACE_NAME_SIZE])
{
	char name[CP_INTERFACE_NAME_SIZE];
	store_text(name, text_of_field(field));
	stored.store(name);
}

void map_owe_interface(const gk_cmd &record, uint32_t row)
{
	store_name(owe_mapping_table[row].iface, record.iface);
	store_name(owe_mapping_table[row].owe_iface, record.owe_iface);
}

// The names of the OWE interfaces themselves go too: every row reads as empty until it is mapped again.
void clear_owe_mapping()
{
	constexpr char empty[CP_INTERFACE_NAME_SIZE] = {};
	for (owe_mapping_row &row : owe_mapping_table) {
		row.iface.store(empty);
		row.owe_iface.store(empty);
	}
}

// What an action changes for the packet path, it changes in one write section, so nobody sees it half done; the OWE mapping
// is written without one.
void act(const SetCommand &command, const gk_cmd &record, const Operands &operands)
{
	const MacAddress mac = MacAddress::from(record.mac);
	const uint32_t row = operands.first_row;

	switch (command.action) {
	case append:
		append_to_list(command.table[row].list, list_of_table(command.table), operands);
		return;
	case remove:
		remove_from_list(command.table[row].list, list_of_table(command.table), mac, row);
		return;
	case flush:
		flush_lists(operands, list_of_table(command.table));
		return;
	case flush_portal:
		flush_lists(operands, ClientLists::of_row);
		return;
	case append_mirel_black:
		append_to_list(mirel_black_list, ClientLists::mirel_black, operands);
		return;
	case remove_mirel_black:
		remove_from_list(mirel_black_list, ClientLists::mirel_black, mac, 0);
		return;
	case append_mirel_white:
		append_to_mirel_white_list(mac, operands);
		return;
	case remove_mirel_white:
		remove_from_mirel_white_list(mac);
		return;
	case set_behavior: {
		const ClientWriteSection section;
		store_word_release(ovra_behavior[row].behavior, record.behavior);
		store_word_release(ovra_behavior[row].status, record.status);
		return;
	}
	case map_owe:
		map_owe_interface(record, row);
		return;
	case clear_owe:
		clear_owe_mapping();
		return;
	}
}

} // namespace

int32_t if_device_write_gk(const gk_cmd &record)
{
	const SetCommand *const command = find_set_command(record.cmd);
	if (command == nullptr) {
		return -1;
	}
	// The whole command: nothing else changes the lists between its steps.
	const MutexGuard alone(Mutex::clients);
	Operands operands;
	for (const Step step : command->steps) {
		if (!take_step(step, *command, record, operands)) {
			return 0;
		}
	}
	act(*command, record, operands);
	return 0;
}

} // namespace captive_portal
