// SPDX-License-Identifier: GPL-2.0-only
#include "bench/states.h"

#include <cstdio>
#include <cstring>

#include "base/lock.h"
#include "bench/light_platform.h"
#include "bench/operation.h"
#include "garden/arecord_cache.h"

namespace captive_portal::bench
{

namespace
{

template <typename Record> void succeed(cp_command number, Record &record)
{
	require(command(number, record) == 0, "a command that fills a table failed");
}

// The field is zeroed, and names are short.
void set_name(char (&field)[CP_INTERFACE_NAME_SIZE], const std::string &name)
{
	std::memcpy(field, name.c_str(), name.size());
}

// Cut and padded to `length` with what lies at the end of the name that is asked for.
std::string padded(std::string start, size_t length)
{
	const std::string tail(asked_name);
	if (start.size() < length) {
		start += tail.substr(tail.size() - (length - start.size()));
	}
	return start.substr(0, length);
}

void set_rule(wg_rule &rule, const std::string &pattern)
{
	rule.rule_type = WG_RULE_DOMAIN;
	std::memcpy(rule.domain_name, pattern.c_str(), pattern.size() + 1);
}

void add_name(uint32_t number, const char *first_label, Ipv4Address address)
{
	char name[64];
	const int length =
		std::snprintf(name, sizeof(name), "%s-%u.cached-names.content.shop.test", first_label, number);
	add_dns_arecord(arecord_bucket(address), 1, {name, static_cast<size_t>(length)}, address, cached_seconds);
}

} // namespace

void set_portal(cp_set_command sub_command, int32_t row, uint32_t value)
{
	cp_cmd record{};
	record.cmd = sub_command;
	record.iface = row;
	record.enable_value = value;
	succeed(CAPTIVE_PORTAL_IOCTL_SET, record);
}

void set_all_portals(uint32_t mode)
{
	for (int32_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
		set_portal(CAPTIVE_PORTAL, row, mode);
	}
}

std::string interface_name(uint32_t row)
{
	return "wlan-" + std::to_string(row / CP_VAPS_PER_RADIO + 1) + "-" +
	       std::to_string(row % CP_VAPS_PER_RADIO + 1);
}

MacAddress client_mac(const ClientTable &table, uint32_t row, uint32_t number)
{
	return {{0x02, static_cast<uint8_t>(table.add), static_cast<uint8_t>(row), static_cast<uint8_t>(number >> 16),
		 static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)}};
}

void change_clients(gk_set_command sub_command, const std::string &interface, const MacAddress &mac)
{
	gk_cmd record{};
	record.cmd = sub_command;
	set_name(record.iface, interface);
	std::memcpy(record.mac, mac.bytes, sizeof(record.mac));
	succeed(GATEKEEPER_IOCTL_SET, record);
}

void fill_list(const ClientTable &table, uint32_t row, uint32_t count)
{
	const std::string interface = interface_name(row);
	for (uint32_t number = 0; number < count; ++number) {
		change_clients(table.add, interface, client_mac(table, row, number));
	}
}

void fill_clients(uint32_t in_each_list)
{
	for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
		for (const ClientTable &table : row_tables) {
			fill_list(table, row, in_each_list);
		}
	}
	fill_list(mirel_white_table, 0, in_each_list);
	fill_list(mirel_black_table, 0, in_each_list);
}

wg_cmd rules_of_row(int32_t row, uint32_t rules)
{
	wg_cmd record{};
	record.cmd = row < 0 ? UPDATE_DEFAULT_RULE : row == CP_ROW_MIREL ? UPDATE_MIREL_RULE : UPDATE_RULE;
	record.iface = row;
	record.enable_value = 1;
	record.rule_number = static_cast<int32_t>(rules);
	for (uint32_t i = 0; i < rules; ++i) {
		const std::string number = std::to_string(row + 1) + "-" + std::to_string(i);
		wg_rule &rule = record.rules[i];
		if (row < 0) {
			set_rule(rule, padded("default-" + number + ".", sizeof(asked_name) - 1));
			continue;
		}
		switch (i % 3) {
		case 0:
			set_rule(rule, padded("exact-" + number + ".", sizeof(asked_name) - 1));
			break;
		case 1:
			set_rule(rule, "*." + number + ".tail.shop.test.");
			break;
		default:
			set_rule(rule, "images-of*edge*r" + number + ".assets.shop.test.");
			break;
		}
	}
	return record;
}

void fill_rules(uint32_t in_each_row, uint32_t default_rules)
{
	for (int32_t row = -1; row < CP_ROWS; ++row) {
		wg_cmd record = rules_of_row(row, row < 0 ? default_rules : in_each_row);
		succeed(WALLED_GARDEN_IOCTL_SET, record);
	}
}

void one_rule()
{
	wg_cmd record = rules_of_row(0, 3);
	record.rules[0] = record.rules[2];
	record.rule_number = 1;
	succeed(WALLED_GARDEN_IOCTL_SET, record);
}

Ipv4Address cached_address(Spread spread, uint32_t number)
{
	// An odd factor: every address once, and the low bits, which choose the bucket, in turn.
	constexpr uint32_t odd = 2654435761;
	constexpr uint32_t bucket = 5;
	return spread == Spread::in_one_bucket ? Ipv4Address{(number + 1) * ARECORD_BUCKETS + bucket} :
						 Ipv4Address{(number + 1) * odd};
}

void fill_cache(Spread spread, uint32_t addresses)
{
	for (uint32_t number = 0; number < addresses; ++number) {
		const Ipv4Address address = cached_address(spread, number);
		add_name(number, "first", address);
		add_name(number, "second", address);
	}
	require(total_ip_count == static_cast<int32_t>(addresses), "the cache does not hold what was put in");
}

Client connection_client(uint32_t number)
{
	// 32768 ports for each address of 10.0.0.0/8.
	return {be32::from_host(0x0a000001 + number / 32768),
		be16::from_host(static_cast<uint16_t>(32768 + number % 32768))};
}

void fill_connections(uint32_t count)
{
	for (uint32_t number = 0; number < count; ++number) {
		add_connection(0, connection_client(number),
			       {be32::from_host(0xcb00710a), be16::from_host(CP_PORT_HTTP)},
			       {{0x02, 0x22, 0, 0, 0, 0xfe}});
	}
	const LockGuard guard(Lock::change_ip_port);
	require(count == 0 || find_connection(0, connection_client(count - 1)) != nullptr,
		"a connection was not recorded");
}

} // namespace captive_portal::bench
