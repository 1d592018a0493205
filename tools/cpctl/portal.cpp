// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/portal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "cpctl/failure.h"
#include "cpctl/garden_rules.h"
#include "cpctl/interface_names.h"
#include "cpctl/library.h"

namespace cpctl
{

namespace
{

captiveportal_mac library_mac(const MacAddress &mac)
{
	captiveportal_mac copy = {};
	std::ranges::copy(mac, copy.octets);
	return copy;
}

captiveportal_garden library_garden(const Garden &garden)
{
	captiveportal_garden copy = {};
	copy.enabled = garden.enable_value;
	copy.count = static_cast<uint32_t>(garden.rules.size());
	if (copy.count > CAPTIVEPORTAL_RULES_MOST) {
		throw usage_failure(std::to_string(copy.count) + " rules: the module takes " +
				    std::to_string(CAPTIVEPORTAL_RULES_MOST) + " at most");
	}
	std::ranges::transform(garden.rules, copy.rules, library_rule);
	return copy;
}

Garden garden_of(const captiveportal_garden &garden)
{
	Garden copy = {.enable_value = garden.enabled, .rules = {}};
	std::transform(garden.rules, garden.rules + garden.count, std::back_inserter(copy.rules), record_of);
	return copy;
}

int number_of(const ClientTable &table)
{
	return static_cast<int>(std::ranges::find(client_tables(), table.name, &ClientTable::name) -
				client_tables().begin());
}

// Settings of a row that are a number.
constexpr std::array<std::pair<cp_set_command, int (*)(captiveportal *, const char *, uint32_t)>, 4> numbers = {{
	{CAPTIVE_PORTAL, captiveportal_set_mode},
	{CAPTIVE_PORTAL_MIREL, captiveportal_set_mode},
	{BLOCK_HTTPS, captiveportal_set_https},
	{CP_WALLED_GARDEN, captiveportal_set_stored_number},
}};

[[nodiscard]] Failure unknown_sub_command(uint32_t sub_command)
{
	return usage_failure("there is no sub-command " + std::to_string(sub_command));
}

} // namespace

long Portal::Callee::exchange(void *context, uint32_t command, void *record, size_t size) noexcept
{
	auto &callee = *static_cast<Callee *>(context);
	try {
		return callee.device.exchange(static_cast<cp_command>(command),
					      {static_cast<std::byte *>(record), size});
	} catch (...) {
		callee.thrown = std::current_exception();
		return -EIO;
	}
}

long Portal::Callee::pass_value(void *context, uint32_t command, uint32_t value) noexcept
{
	auto &callee = *static_cast<Callee *>(context);
	try {
		return callee.device.pass_value(static_cast<cp_command>(command), value);
	} catch (...) {
		callee.thrown = std::current_exception();
		return -EIO;
	}
}

Portal::Portal(ControlDevice &device) : callee_(new Callee{device, nullptr}), library_(nullptr, captiveportal_close)
{
	const captiveportal_transport transport = {
		.size = sizeof(transport),
		.exchange = Callee::exchange,
		.pass_value = Callee::pass_value,
		.read_status = nullptr,
		.close = nullptr,
	};
	captiveportal *handle = nullptr;
	judged(captiveportal_open_transport(&transport, callee_.get(), &handle));
	library_.reset(handle);
	// The commands read back themselves, and say more about what they find.
	captiveportal_read_back(handle, 0);
}

int Portal::judge(int result)
{
	if (const std::exception_ptr thrown = std::exchange(callee_->thrown, nullptr)) {
		std::rethrow_exception(thrown);
	}
	return judged(result);
}

void Portal::set(cp_set_command sub_command, int32_t row, uint32_t value, std::string_view text)
{
	if (sub_command == DNS_FILTER_ENABLE) {
		judge(captiveportal_set_dns_filter(library_.get(), value));
		return;
	}
	const std::string name = interface_of_row(sub_command == CAPTIVE_PORTAL_MIREL ? uint32_t{CP_ROW_MIREL} :
											static_cast<uint32_t>(row))
					 .name;
	if (sub_command == LOGOUT_IP_NOTIFY) {
		judge(captiveportal_set_logout(library_.get(), name.c_str(), library_text(text).c_str()));
		return;
	}
	for (const auto &[number, function] : numbers) {
		if (number == sub_command) {
			judge(function(library_.get(), name.c_str(), value));
			return;
		}
	}
	throw unknown_sub_command(sub_command);
}

std::optional<cp_status> Portal::status(uint32_t row)
{
	captiveportal_status status = {};
	if (judge(captiveportal_get_status(library_.get(), interface_of_row(row).name.c_str(), &status)) ==
	    CAPTIVEPORTAL_UNANSWERED) {
		return std::nullopt;
	}
	return cp_status{.cmd = CP_GET_STATUS,
			 .iface = row,
			 .mark = status.mark,
			 .cp_mode = status.mode,
			 .walled_garden = status.garden,
			 .block_https = status.https,
			 .ap_addr = status.address,
			 .reserved = {}};
}

void Portal::set_gateway(Ipv4Address address)
{
	judge(captiveportal_set_gateway(library_.get(), address.raw));
}

Ipv4Address Portal::gateway()
{
	Ipv4Address address;
	judge(captiveportal_get_gateway(library_.get(), &address.raw));
	return address;
}

void Portal::set_debug_level(uint32_t level)
{
	judge(captiveportal_set_debug_level(library_.get(), level));
}

void Portal::change_clients(gk_set_command sub_command, std::string_view interface, const MacAddress &mac)
{
	const std::string name = library_text(interface);
	if (sub_command == FLUSH_CAPTIVE_PORTAL_TABLE) {
		judge(captiveportal_flush_interface(library_.get(), name.c_str()));
		return;
	}
	if (sub_command == FLUSH_MAPPING_OWE_VAP) {
		judge(captiveportal_flush_owe(library_.get()));
		return;
	}
	const captiveportal_mac client = library_mac(mac);
	for (const ClientTable &table : client_tables()) {
		if (table.add == sub_command) {
			judge(captiveportal_add_client(library_.get(), number_of(table), name.c_str(), &client));
			return;
		}
		if (table.del == sub_command) {
			judge(captiveportal_delete_client(library_.get(), number_of(table), name.c_str(), &client));
			return;
		}
		if (table.flush == sub_command) {
			judge(captiveportal_flush_clients(library_.get(), number_of(table), name.c_str()));
			return;
		}
	}
	throw unknown_sub_command(sub_command);
}

void Portal::map_owe(std::string_view owe_interface, std::string_view interface)
{
	judge(captiveportal_map_owe(library_.get(), library_text(owe_interface).c_str(),
				    library_text(interface).c_str()));
}

void Portal::unmap_owe(std::string_view owe_interface)
{
	judge(captiveportal_unmap_owe(library_.get(), library_text(owe_interface).c_str()));
}

void Portal::set_disconnection(std::string_view interface, Disconnection disconnection)
{
	judge(captiveportal_set_disconnection(library_.get(), library_text(interface).c_str(), disconnection.behavior,
					      disconnection.status));
}

ClientList Portal::clients(const ClientTable &table, std::string_view interface)
{
	std::vector<captiveportal_mac> macs(CAPTIVEPORTAL_LIST_MOST);
	size_t count = 0;
	const int result = judge(captiveportal_list_clients(
		library_.get(), number_of(table), library_text(interface).c_str(), macs.data(), macs.size(), &count));
	ClientList list = {.clients = {}, .complete = result != CAPTIVEPORTAL_INCOMPLETE};
	std::transform(macs.begin(), macs.begin() + static_cast<ptrdiff_t>(count), std::back_inserter(list.clients),
		       [](const captiveportal_mac &mac) { return std::to_array(mac.octets); });
	return list;
}

Presence Portal::presence(const ClientTable &table, const MacAddress &mac, std::string_view interface)
{
	const captiveportal_mac client = library_mac(mac);
	int listed = 0;
	const int result = judge(captiveportal_check_client(library_.get(), number_of(table),
							    library_text(interface).c_str(), &client, &listed));
	if (result == CAPTIVEPORTAL_INCOMPLETE) {
		return Presence::unknown;
	}
	return listed != 0 ? Presence::listed : Presence::not_listed;
}

Disconnection Portal::disconnection(std::string_view interface)
{
	Disconnection disconnection;
	judge(captiveportal_get_disconnection(library_.get(), library_text(interface).c_str(), &disconnection.behavior,
					      &disconnection.status));
	return disconnection;
}

std::string Portal::owe_mapping(std::string_view owe_interface)
{
	char interface[CAPTIVEPORTAL_INTERFACE_SIZE] = {};
	judge(captiveportal_get_owe(library_.get(), library_text(owe_interface).c_str(), interface));
	return interface;
}

void Portal::set_garden(wg_set_command sub_command, int32_t row, const Garden &garden)
{
	if (sub_command == UPDATE_DEFAULT_RULE) {
		const captiveportal_garden names = library_garden(garden);
		judge(captiveportal_replace_default_rules(library_.get(), &names));
		return;
	}
	const std::string name =
		interface_of_row(sub_command == UPDATE_MIREL_RULE ? uint32_t{CP_ROW_MIREL} : static_cast<uint32_t>(row))
			.name;
	if (sub_command == WALLED_GARDEN) {
		judge(captiveportal_switch_garden(library_.get(), name.c_str(), garden.enable_value));
		return;
	}
	const captiveportal_garden wanted = library_garden(garden);
	judge(captiveportal_replace_garden(library_.get(), name.c_str(), &wanted));
}

Garden Portal::garden(uint32_t row)
{
	captiveportal_garden garden = {};
	judge(captiveportal_get_garden(library_.get(), interface_of_row(row).name.c_str(), &garden));
	return garden_of(garden);
}

Garden Portal::default_rules()
{
	captiveportal_garden names = {};
	judge(captiveportal_get_default_rules(library_.get(), &names));
	return garden_of(names);
}

} // namespace cpctl
