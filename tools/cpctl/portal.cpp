// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/portal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cpctl/failure.h"
#include "cpctl/interface_names.h"

namespace cpctl
{

namespace
{

// Sent where the module's answer goes and no answer can be: still there afterwards, the module did not answer.
constexpr uint32_t unanswered = UINT32_MAX;

void judge(cp_command command, long result)
{
	if (result == 0) {
		return;
	}
	const std::string subject = "command " + std::to_string(command) + " of the control device: ";
	if (result > 0) {
		throw refusal(subject + std::to_string(result) + " bytes of the reply did not arrive");
	}
	switch (-result) {
	case EPERM:
		throw refusal(subject + "refused: is this cpctl as new as the module?");
	case EINVAL:
		throw refusal(subject + "refused: more rules than a record holds");
	case ENOMEM:
		throw refusal(subject + "the kernel has no memory for it now; nothing was changed");
	case ENOTTY:
		throw Failure(ExitCode::unavailable, subject + "not understood: is this the module's device? See -d");
	default:
		throw refusal(subject + std::strerror(static_cast<int>(-result)));
	}
}

template <typename Record> std::span<std::byte> bytes_of(Record &record)
{
	return std::as_writable_bytes(std::span(&record, 1));
}

[[nodiscard]] Failure no_answer(std::string_view what)
{
	return refusal("the module did not answer the question for " + std::string(what));
}

MacAddress mac_of(const gk_list_slot &slot)
{
	MacAddress mac = {};
	std::copy(std::begin(slot.mac), std::end(slot.mac), mac.begin());
	return mac;
}

} // namespace

template <typename Record> void Portal::exchange(cp_command command, Record &record)
{
	judge(command, device_.exchange(command, bytes_of(record)));
}

void Portal::set(cp_set_command sub_command, int32_t row, uint32_t value, std::string_view text)
{
	cp_cmd record = {.cmd = sub_command, .iface = row, .enable_value = value, .value = {}};
	store_name(record.value, text);
	exchange(CAPTIVE_PORTAL_IOCTL_SET, record);
}

std::optional<cp_status> Portal::status(uint32_t row)
{
	cp_status record = {};
	record.cmd = CP_GET_STATUS;
	record.iface = row;
	record.mark = unanswered;
	const long result = device_.exchange(CAPTIVE_PORTAL_IOCTL_GET, bytes_of(record));
	// The file layer answers number 2 with a block size in the first word, or EINVAL where a file system has none.
	// The module gives the first word back as it was sent.
	if (result == -EINVAL || record.cmd != CP_GET_STATUS) {
		return std::nullopt;
	}
	judge(CAPTIVE_PORTAL_IOCTL_GET, result);
	if (record.mark == unanswered) {
		throw no_answer("row " + std::to_string(row));
	}
	return record;
}

void Portal::set_gateway(Ipv4Address address)
{
	exchange(GATEWAY_IOCTL_SET, address.raw);
}

Ipv4Address Portal::gateway()
{
	Ipv4Address address;
	exchange(GATEWAY_IOCTL_GET, address.raw);
	return address;
}

void Portal::set_debug_level(uint32_t level)
{
	judge(ENV_SET_DEBUG_LEVEL, device_.pass_value(ENV_SET_DEBUG_LEVEL, level));
}

void Portal::change_clients(gk_set_command sub_command, std::string_view interface, const MacAddress &mac)
{
	gk_cmd record = {};
	record.cmd = sub_command;
	store_name(record.iface, interface);
	std::copy(mac.begin(), mac.end(), record.mac);
	exchange(GATEKEEPER_IOCTL_SET, record);
}

void Portal::map_owe(std::string_view owe_interface, std::string_view interface)
{
	gk_cmd record = {};
	record.cmd = ADD_MAPPING_OWE_VAP;
	store_name(record.iface, interface);
	store_name(record.owe_iface, owe_interface);
	exchange(GATEKEEPER_IOCTL_SET, record);
}

void Portal::set_disconnection(std::string_view interface, Disconnection disconnection)
{
	gk_cmd record = {};
	record.cmd = SET_OVRA_BEHAVIOR;
	record.behavior = disconnection.behavior;
	record.status = disconnection.status;
	store_name(record.iface, interface);
	exchange(GATEKEEPER_IOCTL_SET, record);
}

std::unique_ptr<gk_list_reply> Portal::read_list(gk_get_command sub_command, std::string_view interface,
						 std::string_view owe_interface)
{
	auto record = std::make_unique<gk_list_reply>();
	record->cmd = sub_command;
	record->count = unanswered;
	store_name(record->iface, interface);
	store_name(record->owe_iface, owe_interface);
	exchange(GATEKEEPER_IOCTL_GET, *record);
	return record;
}

ClientList Portal::clients(const ClientTable &table, std::string_view interface)
{
	const auto record = read_list(table.get, interface, {});
	if (record->count > GK_LIST_SLOTS) {
		throw no_answer(std::string(table.name) + (interface.empty() ? "" : " of ") + std::string(interface));
	}
	ClientList list = {.clients = {}, .complete = record->count < GK_LIST_SLOTS};
	for (uint32_t i = 0; i < record->count; i++) {
		list.clients.push_back(mac_of(record->entries[i]));
	}
	return list;
}

Presence Portal::presence(const ClientTable &table, const MacAddress &mac, std::string_view interface)
{
	if (!table.check) {
		const ClientList list = clients(table, interface);
		if (std::ranges::find(list.clients, mac) != list.clients.end()) {
			return Presence::listed;
		}
		return list.complete ? Presence::not_listed : Presence::unknown;
	}
	gk_check_reply record = {};
	record.cmd = *table.check;
	record.found = unanswered;
	store_name(record.iface, interface);
	std::copy(mac.begin(), mac.end(), record.mac);
	exchange(GATEKEEPER_IOCTL_CHECK, record);
	if (record.found == unanswered) {
		throw no_answer(interface);
	}
	return record.found != 0 ? Presence::listed : Presence::not_listed;
}

Disconnection Portal::disconnection(std::string_view interface)
{
	const auto record = read_list(GET_OVRA_BEHAVIOR, interface, {});
	return {.behavior = record->behavior, .status = record->status};
}

std::string Portal::owe_mapping(std::string_view owe_interface)
{
	const auto record = read_list(GET_MAPPING_OWE_VAP, {}, owe_interface);
	return std::string(text_of(record->iface));
}

void Portal::set_garden(wg_set_command sub_command, int32_t row, const Garden &garden)
{
	auto record = std::make_unique<wg_cmd>();
	record->cmd = sub_command;
	record->iface = row;
	record->enable_value = garden.enable_value;
	record->rule_number = static_cast<int32_t>(garden.rules.size());
	std::ranges::copy(garden.rules, record->rules);
	exchange(WALLED_GARDEN_IOCTL_SET, *record);
}

Garden Portal::garden(uint32_t row)
{
	auto record = std::make_unique<wg_cmd>();
	record->cmd = GET_WALLED_GARDEN_RULE;
	record->iface = static_cast<int32_t>(row);
	record->rule_number = -1;
	exchange(WALLED_GARDEN_IOCTL_GET, *record);
	if (record->rule_number < 0 || record->rule_number > WG_RULES_PER_RECORD) {
		throw no_answer(interface_of_row(row).name);
	}
	return {record->enable_value, {record->rules, record->rules + record->rule_number}};
}

Garden Portal::default_rules()
{
	auto record = std::make_unique<wg_cmd>();
	record->cmd = GET_DEFAULT_RULE;
	// Stays as it is when there is no default rule.
	record->rule_number = 0;
	exchange(WALLED_GARDEN_IOCTL_GET, *record);
	if (record->rule_number < 0 || record->rule_number > WG_RULES_PER_RECORD) {
		throw no_answer("default rules");
	}
	return {0, {record->rules, record->rules + record->rule_number}};
}

} // namespace cpctl
