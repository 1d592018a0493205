// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/tables_text.h"

#include <array>
#include <cstring>
#include <iomanip>
#include <set>
#include <sstream>
#include <string_view>
#include <vector>

#include "base/debug_level.h"
#include "base/fixed_addresses.h"
#include "base/lock.h"
#include "core/control_device.h"
#include "garden/arecord_index.h"
#include "garden/arecord_table.h"
#include "garden/summary.h"
#include "garden/walled_garden.h"
#include "gatekeeper/client_tables.h"
#include "portal/connections.h"
#include "portal/interface_table.h"

namespace captive_portal::test
{

namespace
{

struct NamedTable {
	const char *name;
	const iface_mac_list *table;
	ClientLists::List list;
};

const NamedTable client_tables[] = {
	{"login", login_mac_table, ClientLists::login},
	{"auth", auth_mac_table, ClientLists::auth},
	{"white", white_list, ClientLists::white},
	{"ga white", ga_white_list, ClientLists::ga_white},
	{"fallback", mac_auth_fallback, ClientLists::fallback},
};

std::vector<MacAddress> addresses_of(const MacList &list)
{
	std::vector<gk_list_slot> slots(GK_LIST_SLOTS);
	slots.resize(list.copy_out(slots.data(), GK_LIST_SLOTS));
	std::vector<MacAddress> addresses;
	addresses.reserve(slots.size());
	for (const gk_list_slot &slot : slots) {
		addresses.push_back(MacAddress::from(slot.mac));
	}
	return addresses;
}

template <size_t size> std::string_view field_text(const char (&field)[size])
{
	return {field, strnlen(field, size)};
}

std::string name_text(const AtomicName &name)
{
	char field[CP_INTERFACE_NAME_SIZE];
	name.load(field);
	return std::string(field_text(field));
}

class Writer
{
public:
	[[nodiscard]] std::string write(const host::Machine &machine)
	{
		registrations(machine);
		portal_rows();
		connections();
		clients();
		garden_rules();
		cache();
		return text_.str();
	}

private:
	void registrations(const host::Machine &machine)
	{
		text_ << "hooks " << machine.hooks.registered().size() << ", device "
		      << machine.misc.registered().has_value() << ", proc file " << machine.proc.file().has_value()
		      << ", status files " << (machine.status.directory() != nullptr) << ", counters "
		      << machine.counters.are_there() << ", references " << machine.module_references() << ", open "
		      << cp_dev_in_use << ", debug level " << debug_level << '\n';
	}

	void portal_rows()
	{
		text_ << std::hex << "access point " << ap_addr.raw << ' ' << ap_mac << ", gateway " << ap_gateway.raw
		      << ", DNS filter " << dns_filter_activate << ' ' << dns_filter_addr.raw << ", social login "
		      << socialogin_addr.raw << std::dec << '\n';
		for (uint32_t row = 0; row < CP_ROWS; ++row) {
			const cp_row &portal = captive_portal_table[row];
			const wg_row &garden = walled_garden_table[row];
			text_ << "row " << row << ": mark " << portal.mark << ' ' << garden.mark << ", ports "
			      << portal.http_port << ' ' << portal.https_port << ", mode " << portal.cp_mode << ", "
			      << portal.cp_walled_garden << ", https " << portal.block_https << ", logout '"
			      << field_text(portal.logout_ip) << "' " << portal.logout_address.raw << ", garden '"
			      << field_text(garden.iface) << "' " << garden.enable_value << '\n';
		}
	}

	void connections()
	{
		const LockGuard guard(Lock::change_ip_port);
		for (uint32_t row = 0; row < CP_ROWS; ++row) {
			for (const table_list_entry *entry = captive_portal_table[row].table_list; entry != nullptr;
			     entry = entry->next) {
				const Client client{entry->client_addr, entry->client_port};
				const table_list_entry *const found = find_connection(row, client);
				text_ << "connection of row " << row << ": " << client.address.raw << ' '
				      << client.port.raw << " to " << entry->orig_daddr.raw << ' '
				      << entry->orig_dport.raw << ' ';
				mac(entry->orig_dmac);
				text_ << (found == entry   ? "" :
					  found == nullptr ? " NOT FOUND" :
							     " behind an older one")
				      << '\n';
			}
		}
	}

	void clients()
	{
		std::set<std::array<uint8_t, CP_MAC_SIZE>> all;
		const auto list = [&](const std::string &name, const MacList &of) {
			for (const MacAddress &address : addresses_of(of)) {
				text_ << name << ": ";
				mac(address);
				text_ << '\n';
				all.insert(std::to_array(address.bytes));
			}
		};
		for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
			text_ << "behaviour of " << field_text(ovra_behavior[row].iface) << ": "
			      << ovra_behavior[row].behavior << ' ' << ovra_behavior[row].status << '\n';
			for (const NamedTable &table : client_tables) {
				list(std::string(table.name) + " list of " + table.table[row].iface,
				     table.table[row].list);
			}
		}
		list("mirel white list", mirel_white_list);
		list("mirel black list", mirel_black_list);
		for (const owe_mapping_row &row : owe_mapping_table) {
			text_ << "OWE '" << name_text(row.owe_iface) << "' as '" << name_text(row.iface) << "'\n";
		}
		for (const auto &bytes : all) {
			const MacAddress address = MacAddress::from(bytes.data());
			text_ << "index of ";
			mac(address);
			for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
				text_ << ' ' << standing_of(address.word(), row).lists().bits;
			}
			text_ << '\n';
		}
	}

	void garden_rules()
	{
		std::set<std::string> names = {"", "www.example", "shop.example.net"};
		for (uint32_t row = 0; row < CP_ROWS; ++row) {
			for (const wg_rule_node *rule = walled_garden_table[row].rule_list; rule != nullptr;
			     rule = rule->next) {
				text_ << "rule of row " << row << ": " << rule->rule_type << ' ' << rule->ip_addr << ' '
				      << rule->netmask << ' ' << field_text(rule->domain_name) << '\n';
				names.emplace(field_text(rule->domain_name));
			}
		}
		for (const wg_default_rule &rule : default_rule) {
			if (rule.domain_name[0] != '\0') {
				text_ << "default rule: " << field_text(rule.domain_name) << '\n';
				names.emplace(field_text(rule.domain_name));
			}
		}
		for (const std::string &name : names) {
			text_ << "rows with '" << name << "': " << std::hex
			      << match_garden_rows({name.data(), name.size()}) << std::dec << '\n';
		}
	}

	void cache()
	{
		const LockGuard guard(Lock::dns_list);
		text_ << "report of '" << summary_target << "', " << total_ip_count << " addresses\n";
		for (uint32_t bucket = 0; bucket < ARECORD_BUCKETS; ++bucket) {
			for (dns_arecord &entry : dns_aRecord[bucket]) {
				const be32 address = {static_cast<uint32_t>(entry.ip)};
				text_ << "address " << bucket << ' ' << std::hex << entry.ip << " mask "
				      << entry.is_match_wg << std::dec << " until " << entry.timeout << " shown "
				      << static_cast<int>(entry.is_dump)
				      << (find_entry(bucket, address) == &entry ? "" : " NOT FOUND") << '\n';
				for (fqdn_node &node : entry.fqdn_list) {
					text_ << "  name " << node.fqdn << " shown " << static_cast<int>(node.is_dump)
					      << (find_name(entry, name_of(node)).node == &node ? "" : " NOT FOUND")
					      << '\n';
				}
			}
		}
	}

	void mac(const MacAddress &address)
	{
		text_ << std::hex << std::setfill('0');
		for (const uint8_t byte : address.bytes) {
			text_ << std::setw(2) << static_cast<unsigned>(byte);
		}
		text_ << std::dec;
	}

	std::ostringstream text_;
};

} // namespace

std::string tables_text(const host::Machine &machine)
{
	return Writer().write(machine);
}

size_t listed_clients()
{
	size_t count = addresses_of(mirel_white_list).size() + addresses_of(mirel_black_list).size();
	for (const NamedTable &table : client_tables) {
		for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
			count += addresses_of(table.table[row].list).size();
		}
	}
	return count;
}

size_t listed_connections()
{
	size_t count = 0;
	for (const cp_row &row : captive_portal_table) {
		for (const table_list_entry *entry = row.table_list; entry != nullptr; entry = entry->next) {
			++count;
		}
	}
	return count;
}

} // namespace captive_portal::test
