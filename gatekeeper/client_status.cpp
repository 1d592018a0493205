// SPDX-License-Identifier: GPL-2.0-only
#include "gatekeeper/client_status.h"

#include "base/mutex.h"
#include "base/status_text.h"
#include "gatekeeper/client_tables.h"

namespace captive_portal
{

namespace
{

struct Table {
	const char *name;
	const iface_mac_list *rows;
};
constexpr Table tables[] = {
	{"white", white_list},
	{"auth", auth_mac_table},
	{"login", login_mac_table},
	{"ga-white", ga_white_list},
	{"mac-auth-fallback", mac_auth_fallback},
};
constexpr uint32_t table_count = sizeof(tables) / sizeof(tables[0]);

struct CommonTable {
	const char *name;
	const MacList *list;
};
constexpr CommonTable common_tables[] = {{"mirel-white", &mirel_white_list}, {"mirel-black", &mirel_black_list}};
constexpr uint32_t common_table_count = sizeof(common_tables) / sizeof(common_tables[0]);
static_assert(table_count * CP_WIRELESS_INTERFACES + common_table_count == CLIENT_LISTS);

void print_client(cp_status_text *out, const char *table, const MacAddress &mac)
{
	cp_status_print(out, "client table=%s", table);
	print_mac(out, "mac", mac);
}

} // namespace

void write_client_list(uint32_t list, cp_status_text *out)
{
	const MutexGuard alone(Mutex::clients);
	const uint32_t row = list / table_count;
	if (row < CP_WIRELESS_INTERFACES) {
		const Table &table = tables[list % table_count];
		table.rows[row].list.for_each([&](const MacAddress &mac) {
			print_client(out, table.name, mac);
			print_row_name(out, "interface", row);
			cp_status_print(out, "\n");
		});
		return;
	}
	const CommonTable &table = common_tables[list - table_count * CP_WIRELESS_INTERFACES];
	table.list->for_each([&](const MacAddress &mac) {
		print_client(out, table.name, mac);
		cp_status_print(out, "\n");
	});
}

void write_client_counts(uint32_t row, cp_status_text *out)
{
	const MutexGuard alone(Mutex::clients);
	for (const Table &table : tables) {
		cp_status_print(out, " %s=%u", table.name, table.rows[row].list.size());
	}
	cp_status_print(out, " disconnection_behavior=%u disconnection_status=%u", ovra_behavior[row].behavior,
			ovra_behavior[row].status);
}

void write_mirel_counts(cp_status_text *out)
{
	const MutexGuard alone(Mutex::clients);
	for (const CommonTable &table : common_tables) {
		cp_status_print(out, " %s=%u", table.name, table.list->size());
	}
}

void write_owe_mapping(uint32_t companion, cp_status_text *out)
{
	char companion_name[CP_INTERFACE_NAME_SIZE];
	char name[CP_INTERFACE_NAME_SIZE];
	owe_mapping_table[companion].owe_iface.load(companion_name);
	owe_mapping_table[companion].iface.load(name);
	cp_status_print(out, "owe");
	print_text(out, "name", text_of_field(companion_name));
	print_text(out, "interface", text_of_field(name));
	cp_status_print(out, "\n");
}

} // namespace captive_portal
