// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/client_commands.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "cpctl/client_lists.h"
#include "cpctl/failure.h"
#include "cpctl/interface_names.h"
#include "cpctl/json_answer.h"
#include "cpctl/read_back.h"

namespace cpctl
{

namespace
{

// The word for every interface; the module's flush sub-commands take it in the place of a name.
constexpr std::string_view all_interfaces = "all";
// Flushes the tables of an interface in one call of the module.
constexpr std::string_view all_portal_tables = "portal";

// What a full reply shows may be the same although all of it was deleted, if each client was listed more often.
constexpr unsigned most_rounds_without_a_difference = 8;

// One list of the module: a table, and the interface when the table has a list for each.
struct List {
	const ClientTable &table;
	std::string interface;

	[[nodiscard]] std::string text() const
	{
		return std::string(table.name) + (interface.empty() ? "" : " of ") + interface;
	}
	[[nodiscard]] ClientLists::key_type key() const { return {std::string(table.name), interface}; }
};

List find_list(const std::string &table_name, const std::string &interface)
{
	const ClientTable &table = find_client_table(table_name);
	if (!table.per_interface && !interface.empty()) {
		throw usage_failure("table " + table_name + " is one for all interfaces: name none");
	}
	if (table.per_interface && interface.empty()) {
		throw usage_failure("table " + table_name + " is kept for each interface: name one");
	}
	return {table, table.per_interface ? parse_interface(interface).name : ""};
}

// The lists of a table: of one interface, or of every one.
std::vector<List> find_lists(const std::string &table_name, const std::string &interface, bool every_interface)
{
	const ClientTable &table = find_client_table(table_name);
	if (!every_interface || !table.per_interface) {
		return {find_list(table_name, interface)};
	}
	std::vector<List> lists;
	for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; row++) {
		lists.push_back({table, interface_of_row(row).name});
	}
	return lists;
}

// Whether a client is listed, and why that is not known.
struct Listed {
	Presence presence;
	// How often, where the whole list was read.
	std::optional<size_t> times = {};
	std::string why_unknown = {};
};

// As the device tells it, or of a client behind the end of its answer as the status file does. That file is read for no
// other: it has all clients of the module.
Listed find_client(const Session &session, const List &list, const MacAddress &mac)
{
	const Presence told = session.portal.presence(list.table, mac, list.interface);
	if (told != Presence::unknown) {
		return {told};
	}
	try {
		ClientLists lists = read_client_lists(session.read_status_file);
		const auto times = static_cast<size_t>(std::ranges::count(lists[list.key()], mac));
		return {.presence = times != 0 ? Presence::listed : Presence::not_listed, .times = times};
	} catch (const Failure &unreadable) {
		return {.presence = Presence::unknown, .why_unknown = unreadable.what()};
	}
}

std::string first_clients_told()
{
	return "the module tells the first " + std::to_string(GK_LIST_SLOTS) + " clients of a list; ";
}

// The white list's sub-commands take the address off the black list first; where they are not needed for the white list
// itself, that must not be lost.
void leave_mirel_black_list(const Session &session, const MacAddress &mac)
{
	const List black = {find_client_table("mirel-black"), ""};
	if (find_client(session, black, mac).presence == Presence::listed) {
		session.portal.change_clients(black.table.del, {}, mac);
	}
}

void add_client(const Session &session, const List &list, const MacAddress &mac)
{
	if (find_client(session, list, mac).presence == Presence::listed) {
		session.note(format_mac(mac) + " is in " + list.text() + " already: no second entry made");
		if (list.table.add == ADD_MIREL_WHITE_LIST_MAC) {
			leave_mirel_black_list(session, mac);
		}
		return;
	}
	session.portal.change_clients(list.table.add, list.interface, mac);
	const Listed after = find_client(session, list, mac);
	switch (after.presence) {
	case Presence::listed:
		return;
	case Presence::not_listed:
		throw refusal(format_mac(mac) + " is not in " + list.text() +
			      " though the module took the command: see the kernel log (dmesg)");
	case Presence::unknown:
		note_unverified(session, "the entry of " + format_mac(mac) + " in " + list.text(),
				first_clients_told() + after.why_unknown);
	}
}

// Each command of the module takes one entry off the list. Where nothing tells whether there is one, it is sent once.
void delete_client(const Session &session, const List &list, const MacAddress &mac)
{
	Listed before = find_client(session, list, mac);
	if (before.presence == Presence::not_listed) {
		throw refusal(format_mac(mac) + " is not in " + list.text() + ": nothing to delete");
	}
	Listed after = {Presence::unknown};
	// A list that never ends to hold the address is refused below instead of being tried for ever.
	for (size_t tries = 0; tries < GK_LIST_SLOTS; tries++) {
		for (size_t left = before.times.value_or(1); left != 0; left--) {
			session.portal.change_clients(list.table.del, list.interface, mac);
		}
		after = find_client(session, list, mac);
		const bool keeps_them = before.times && after.times && *after.times >= *before.times;
		if (after.presence != Presence::listed || keeps_them) {
			break;
		}
		before = after;
	}
	if (after.presence == Presence::listed) {
		throw refusal(format_mac(mac) + " is still in " + list.text() + ": see the kernel log (dmesg)");
	}
	if (after.presence == Presence::unknown) {
		note_unverified(session, "the deletion of " + format_mac(mac) + " from " + list.text(),
				first_clients_told() + after.why_unknown);
	}
}

void require_empty(const Session &session, const List &list)
{
	if (!session.portal.clients(list.table, list.interface).clients.empty()) {
		throw refusal(list.text() + " is not empty after the flush: see the kernel log (dmesg)");
	}
}

void flush_one_by_one(const Session &session, const List &list)
{
	std::vector<MacAddress> before;
	unsigned without_a_difference = 0;
	while (without_a_difference < most_rounds_without_a_difference) {
		const ClientList listed = session.portal.clients(list.table, list.interface);
		for (const MacAddress &mac : listed.clients) {
			session.portal.change_clients(list.table.del, list.interface, mac);
		}
		if (listed.complete) {
			break;
		}
		without_a_difference = listed.clients == before ? without_a_difference + 1 : 0;
		before = listed.clients;
	}
	require_empty(session, list);
}

// Null for the tables that are one for all interfaces.
Json json_of_interface(const List &list)
{
	return list.interface.empty() ? Json() : Json(list.interface);
}

Json json_of(const List &list, const ClientList &listed)
{
	Json json = {{"interface", json_of_interface(list)}, {"complete", listed.complete}, {"clients", Json::array()}};
	for (const MacAddress &mac : listed.clients) {
		json["clients"].push_back(format_mac(mac));
	}
	return json;
}

// Lists that are longer than the device's answer.
class LongLists
{
public:
	explicit LongLists(const Session &session) : session_(session) {}

	// All of a list; what the device told, and a note, where the status file cannot be read.
	ClientList whole(const List &list, ClientList told)
	{
		try {
			if (!lists_) {
				lists_ = read_client_lists(session_.read_status_file);
			}
			return {.clients = (*lists_)[list.key()], .complete = true};
		} catch (const Failure &unreadable) {
			session_.note(first_clients_told() + list.text() + " may have more: " + unreadable.what());
			return told;
		}
	}

private:
	const Session &session_;
	// Read when the first of them is met.
	std::optional<ClientLists> lists_;
};

void print(const Session &session, const List &list, const ClientList &listed)
{
	for (const MacAddress &mac : listed.clients) {
		session.out << format_mac(mac) << (list.interface.empty() ? "" : " dev ") << list.interface << " table "
			    << list.table.name << '\n';
	}
}

// Null where the module does not tell.
Json json_of(Presence presence)
{
	return presence == Presence::unknown ? Json() : Json(presence == Presence::listed);
}

Action flush_portal_tables(const std::string &interface)
{
	if (interface.empty()) {
		throw usage_failure("name the interface whose tables are to be emptied, or 'all'");
	}
	const bool every_interface = interface == all_interfaces;
	std::vector<List> lists;
	for (const ClientTable &table : client_tables()) {
		if (table.per_interface) {
			for (List &list : find_lists(std::string(table.name), interface, every_interface)) {
				lists.push_back(list);
			}
		}
	}
	return [interface, lists](const Session &session) {
		session.portal.change_clients(FLUSH_CAPTIVE_PORTAL_TABLE, interface);
		for (const List &list : lists) {
			require_empty(session, list);
		}
	};
}

} // namespace

ClientChange client_change(ClientChange::Kind kind, const std::string &table, const std::string &mac,
			   const std::string &interface)
{
	const List list = find_list(table, interface);
	return {kind, &list.table, list.interface,
		kind == ClientChange::Kind::add ? parse_station_mac(mac) : parse_mac(mac)};
}

Action change_client(const ClientChange &change)
{
	return [change](const Session &session) {
		const List list = {*change.table, change.interface};
		if (change.kind == ClientChange::Kind::add) {
			add_client(session, list, change.mac);
		} else {
			delete_client(session, list, change.mac);
		}
	};
}

Action show_clients(const std::string &table, const std::string &interface)
{
	const std::vector<List> lists = find_lists(table, interface, interface.empty());
	return [lists](const Session &session) {
		Json json = {{"table", lists.front().table.name}, {"lists", Json::array()}};
		LongLists long_lists(session);
		for (const List &list : lists) {
			ClientList listed = session.portal.clients(list.table, list.interface);
			if (!listed.complete) {
				listed = long_lists.whole(list, std::move(listed));
			}
			if (session.json != JsonOutput::none) {
				json["lists"].push_back(json_of(list, listed));
			} else {
				print(session, list, listed);
			}
		}
		if (session.json != JsonOutput::none) {
			print_json(session, json);
		}
	};
}

Action check_client(const std::string &table, const std::string &mac_text, const std::string &interface)
{
	const List list = find_list(table, interface);
	const MacAddress mac = parse_mac(mac_text);
	return [list, mac](const Session &session) {
		const Listed found = find_client(session, list, mac);
		if (session.json != JsonOutput::none) {
			print_json(session, {{"table", list.table.name},
					     {"interface", json_of_interface(list)},
					     {"mac", format_mac(mac)},
					     {"listed", json_of(found.presence)}});
		}
		switch (found.presence) {
		case Presence::listed:
			if (session.json == JsonOutput::none) {
				session.out << format_mac(mac) << " is in " << list.text() << '\n';
			}
			return;
		case Presence::not_listed:
			throw refusal(format_mac(mac) + " is not in " + list.text());
		case Presence::unknown:
			throw refusal(format_mac(mac) + " is not among the clients of " + list.text() +
				      " that the module tells, and there may be more: " + found.why_unknown);
		}
	};
}

Action flush_clients(const std::string &table_name, const std::string &interface)
{
	if (table_name == all_portal_tables) {
		return flush_portal_tables(interface);
	}
	const bool every_interface = interface == all_interfaces;
	const std::vector<List> lists = find_lists(table_name, interface, every_interface);
	return [lists, interface](const Session &session) {
		const ClientTable &table = lists.front().table;
		if (!table.flush) {
			for (const List &list : lists) {
				flush_one_by_one(session, list);
			}
			return;
		}
		session.portal.change_clients(*table.flush, interface);
		for (const List &list : lists) {
			require_empty(session, list);
		}
	};
}

} // namespace cpctl
