// SPDX-License-Identifier: GPL-2.0-only
// Tables of clients: commands 8, 9 and 10.
#include <algorithm>
#include <iterator>
#include <memory>
#include <vector>

#include "lib/addresses.h"
#include "lib/client_tables.h"
#include "lib/failure.h"
#include "lib/handle.h"
#include "lib/interface.h"
#include "lib/interface_names.h"
#include "lib/status_files.h"

namespace libcaptiveportal
{

namespace
{

static_assert(CAPTIVEPORTAL_LIST_MOST == +GK_LIST_SLOTS);

enum class Presence { listed, not_listed, unknown };

const ClientTable &find_table(int table)
{
	if (table < 0 || table >= CAPTIVEPORTAL_TABLES) {
		throw invalid("there is no table " + std::to_string(table) + ": the last one is " +
			      std::to_string(CAPTIVEPORTAL_TABLES - 1));
	}
	return client_tables[static_cast<size_t>(table)];
}

// One list of the module: a table, and the interface when the table has a list for each.
class List
{
public:
	List(const captiveportal &portal, const ClientTable &table, std::string_view interface)
	    : portal_(portal), table_(table), interface_(interface)
	{
		if (!table.per_interface && !interface.empty()) {
			throw invalid("table " + std::string(table.name) + " is one for all interfaces: name none");
		}
		if (table.per_interface) {
			(void)row_of_interface(interface);
		}
	}

	[[nodiscard]] std::string text() const
	{
		return std::string(table_.name) + (interface_.empty() ? "" : " of ") + interface_;
	}

	void change(gk_set_command sub_command, const captiveportal_mac &mac) const
	{
		gk_cmd record = {};
		record.cmd = sub_command;
		store_text(record.iface, interface_);
		std::ranges::copy(mac.octets, record.mac);
		exchange(portal_, GATEKEEPER_IOCTL_SET, record);
	}
	void add(const captiveportal_mac &mac) const { change(table_.add, mac); }
	void del(const captiveportal_mac &mac) const { change(table_.del, mac); }

	[[nodiscard]] std::unique_ptr<gk_list_reply> read() const
	{
		auto record = std::make_unique<gk_list_reply>();
		record->cmd = table_.get;
		record->count = unanswered;
		store_text(record->iface, interface_);
		exchange(portal_, GATEKEEPER_IOCTL_GET, *record);
		if (record->count > GK_LIST_SLOTS) {
			throw no_answer(text());
		}
		return record;
	}

	// As the device tells it.
	[[nodiscard]] Presence presence(const captiveportal_mac &mac) const
	{
		return table_.check ? checked(mac) : searched(mac);
	}

	// As the device tells it, or else the status files.
	[[nodiscard]] Presence presence_anywhere(const captiveportal_mac &mac) const
	{
		const Presence told = presence(mac);
		return told == Presence::unknown ? in_status_file(mac) : told;
	}

private:
	[[nodiscard]] Presence checked(const captiveportal_mac &mac) const
	{
		gk_check_reply record = {};
		record.cmd = *table_.check;
		record.found = unanswered;
		store_text(record.iface, interface_);
		std::ranges::copy(mac.octets, record.mac);
		exchange(portal_, GATEKEEPER_IOCTL_CHECK, record);
		if (record.found == unanswered) {
			throw no_answer(interface_);
		}
		return record.found != 0 ? Presence::listed : Presence::not_listed;
	}

	[[nodiscard]] Presence searched(const captiveportal_mac &mac) const
	{
		const auto reply = read();
		for (uint32_t i = 0; i < reply->count; i++) {
			if (std::ranges::equal(reply->entries[i].mac, mac.octets)) {
				return Presence::listed;
			}
		}
		return reply->count < GK_LIST_SLOTS ? Presence::not_listed : Presence::unknown;
	}

	[[nodiscard]] Presence in_status_file(const captiveportal_mac &mac) const
	{
		std::string text;
		try {
			text = read_status_file(&portal_, "clients");
		} catch (const Failure &) {
			return Presence::unknown;
		}
		const std::string wanted = format_mac(mac);
		std::string_view rest = text;
		while (const auto line = take_line(rest)) {
			if (line->find(wanted) != std::string_view::npos && value_of(*line, "mac") == wanted &&
			    value_of(*line, "table") == table_.name &&
			    value_of(*line, "interface").value_or("") == interface_) {
				return Presence::listed;
			}
		}
		return Presence::not_listed;
	}

	const captiveportal &portal_;
	const ClientTable &table_;
	std::string interface_;
};

int add(const captiveportal &portal, int table, std::string_view interface, const captiveportal_mac &mac)
{
	const List list(portal, find_table(table), interface);
	require_station(mac);
	if (!portal.read_back) {
		list.add(mac);
		return CAPTIVEPORTAL_OK;
	}
	if (list.presence_anywhere(mac) == Presence::listed) {
		// The command for the white list takes a client off the black list, too; where it is not needed for the
		// white list, that must not be lost.
		if (table == CAPTIVEPORTAL_MIREL_WHITE) {
			List(portal, find_table(CAPTIVEPORTAL_MIREL_BLACK), {}).del(mac);
		}
		return CAPTIVEPORTAL_UNCHANGED;
	}
	list.add(mac);
	switch (list.presence_anywhere(mac)) {
	case Presence::listed:
		return CAPTIVEPORTAL_OK;
	case Presence::not_listed:
		throw refused(format_mac(mac) + " is not in " + list.text() +
			      " though the module took the command: see the kernel log (dmesg)");
	case Presence::unknown:
		break;
	}
	return CAPTIVEPORTAL_UNVERIFIED;
}

int remove(const captiveportal &portal, int table, std::string_view interface, const captiveportal_mac &mac)
{
	const List list(portal, find_table(table), interface);
	if (!portal.read_back) {
		list.del(mac);
		return CAPTIVEPORTAL_OK;
	}
	if (list.presence_anywhere(mac) == Presence::not_listed) {
		return CAPTIVEPORTAL_UNCHANGED;
	}
	Presence after = Presence::unknown;
	// A list that never ends to hold the address is refused below instead of being tried for ever.
	for (uint32_t tries = 0; tries < GK_LIST_SLOTS; tries++) {
		list.del(mac);
		after = list.presence_anywhere(mac);
		if (after != Presence::listed) {
			break;
		}
	}
	if (after == Presence::listed) {
		throw refused(format_mac(mac) + " is still in " + list.text() + ": see the kernel log (dmesg)");
	}
	return after == Presence::unknown ? CAPTIVEPORTAL_UNVERIFIED : CAPTIVEPORTAL_OK;
}

void require_empty(const List &list)
{
	if (list.read()->count != 0) {
		throw refused(list.text() + " is not empty after the flush: see the kernel log (dmesg)");
	}
}

// Of two full replies.
bool same_clients(const gk_list_reply &one, const gk_list_reply &other)
{
	return std::ranges::equal(one.entries, other.entries, [](const gk_list_slot &left, const gk_list_slot &right) {
		return std::ranges::equal(left.mac, right.mac);
	});
}

// What a full reply shows may be the same although all of it was deleted, if each client was listed more often.
constexpr unsigned most_rounds_without_a_difference = 8;

void flush_one_by_one(const List &list)
{
	std::unique_ptr<gk_list_reply> before;
	unsigned without_a_difference = 0;
	while (without_a_difference < most_rounds_without_a_difference) {
		auto reply = list.read();
		for (uint32_t i = 0; i < reply->count; i++) {
			captiveportal_mac mac = {};
			std::ranges::copy(reply->entries[i].mac, mac.octets);
			list.del(mac);
		}
		if (reply->count < GK_LIST_SLOTS) {
			break;
		}
		without_a_difference =
			before != nullptr && same_clients(*before, *reply) ? without_a_difference + 1 : 0;
		before = std::move(reply);
	}
	require_empty(list);
}

std::vector<List> lists_of(const captiveportal &portal, const ClientTable &table, std::string_view interface)
{
	if (!table.per_interface || interface != all_interfaces) {
		return {List(portal, table, interface)};
	}
	std::vector<List> lists;
	for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; row++) {
		lists.emplace_back(portal, table, interface_of_row(row));
	}
	return lists;
}

void send_flush(const captiveportal &portal, gk_set_command sub_command, std::string_view interface)
{
	gk_cmd record = {};
	record.cmd = sub_command;
	store_text(record.iface, interface);
	exchange(portal, GATEKEEPER_IOCTL_SET, record);
}

int flush(const captiveportal &portal, const ClientTable &table, std::string_view interface)
{
	const std::vector<List> lists = lists_of(portal, table, interface);
	if (!table.flush) {
		std::ranges::for_each(lists, flush_one_by_one);
		return CAPTIVEPORTAL_OK;
	}
	send_flush(portal, *table.flush, interface);
	if (portal.read_back) {
		std::ranges::for_each(lists, require_empty);
	}
	return CAPTIVEPORTAL_OK;
}

int flush_portal(const captiveportal &portal, std::string_view interface)
{
	std::vector<List> lists;
	for (const ClientTable &table : client_tables) {
		if (table.per_interface) {
			std::ranges::copy(lists_of(portal, table, interface), std::back_inserter(lists));
		}
	}
	send_flush(portal, FLUSH_CAPTIVE_PORTAL_TABLE, interface);
	if (portal.read_back) {
		std::ranges::for_each(lists, require_empty);
	}
	return CAPTIVEPORTAL_OK;
}

} // namespace

} // namespace libcaptiveportal

using namespace libcaptiveportal;

extern "C" {

const char *captiveportal_table_name(int table)
{
	if (table < 0 || table >= CAPTIVEPORTAL_TABLES) {
		return nullptr;
	}
	// A literal, so it ends with a NUL.
	return client_tables[static_cast<size_t>(table)].name.data();
}

int captiveportal_add_client(captiveportal *portal, int table, const char *interface, const captiveportal_mac *mac)
{
	return guarded(
		[&] { return add(given(portal, "handle"), table, word_of(interface), given(mac, "MAC address")); });
}

int captiveportal_delete_client(captiveportal *portal, int table, const char *interface, const captiveportal_mac *mac)
{
	return guarded(
		[&] { return remove(given(portal, "handle"), table, word_of(interface), given(mac, "MAC address")); });
}

int captiveportal_check_client(captiveportal *portal, int table, const char *interface, const captiveportal_mac *mac,
			       int *listed)
{
	return guarded([&] {
		int &answer = given(listed, "place for an answer");
		answer = 0;
		const List list(given(portal, "handle"), find_table(table), word_of(interface));
		const Presence presence = list.presence(given(mac, "MAC address"));
		answer = presence == Presence::listed ? 1 : 0;
		return presence == Presence::unknown ? CAPTIVEPORTAL_INCOMPLETE : CAPTIVEPORTAL_OK;
	});
}

int captiveportal_list_clients(captiveportal *portal, int table, const char *interface, captiveportal_mac *macs,
			       size_t room, size_t *count)
{
	return guarded([&] {
		size_t &written = given(count, "place for a number");
		written = 0;
		if (room != 0) {
			(void)given(macs, "place for clients");
		}
		const auto reply = List(given(portal, "handle"), find_table(table), word_of(interface)).read();
		while (written < reply->count && written < room) {
			std::ranges::copy(reply->entries[written].mac, macs[written].octets);
			written++;
		}
		return reply->count < GK_LIST_SLOTS && written == reply->count ? CAPTIVEPORTAL_OK :
										 CAPTIVEPORTAL_INCOMPLETE;
	});
}

int captiveportal_flush_clients(captiveportal *portal, int table, const char *interface)
{
	return guarded([&] { return flush(given(portal, "handle"), find_table(table), word_of(interface)); });
}

int captiveportal_flush_interface(captiveportal *portal, const char *interface)
{
	return guarded([&] { return flush_portal(given(portal, "handle"), word_of(interface)); });
}
}
