// SPDX-License-Identifier: GPL-2.0-only
#include "tests/fuzz/control_records.h"

#include <algorithm>

#include "tests/fuzz/control_model.h"
#include "tests/fuzz/pools.h"
#include "tests/support/control.h"

namespace captive_portal::test
{

namespace
{

void fill_name(Input &input, char (&field)[CP_INTERFACE_NAME_SIZE])
{
	set_text(field, pick_interface(input));
}

void fill_mac(Input &input, uint8_t *mac)
{
	const Mac picked = pick_mac(input);
	std::copy(picked.begin(), picked.end(), mac);
}

wg_cmd garden_record(Input &input)
{
	wg_cmd record{};
	record.cmd = input.below(7);
	record.iface = static_cast<int32_t>(input.below(32)) - 2;
	record.enable_value = input.below(3);
	record.rule_number = static_cast<int32_t>(input.below(32)) - 2;
	for (int32_t i = 0; i < record.rule_number && i < WG_RULES_PER_RECORD; ++i) {
		record.rules[i].rule_type = input.below(3);
		record.rules[i].ip_addr = pick_address(input).raw;
		record.rules[i].netmask = be32::from_host(~0u << input.below(32)).raw;
		set_text(record.rules[i].domain_name, pick_pattern(input));
	}
	return record;
}

} // namespace

std::vector<uint8_t> make_record(Input &input, int32_t command)
{
	switch (command) {
	case CAPTIVE_PORTAL_IOCTL_SET: {
		cp_cmd record{.cmd = input.below(11),
			      .iface = static_cast<int32_t>(input.below(32)) - 2,
			      .enable_value = input.below(10),
			      .value = ""};
		set_text(record.value, input.text(input.below(17)));
		return bytes_of(record);
	}
	case CAPTIVE_PORTAL_IOCTL_GET: {
		cp_status record{};
		record.cmd = input.below(4);
		record.iface = input.below(30);
		return bytes_of(record);
	}
	case WALLED_GARDEN_IOCTL_SET:
	case WALLED_GARDEN_IOCTL_GET:
		return bytes_of(garden_record(input));
	case GATEKEEPER_IOCTL_SET: {
		gk_cmd record{};
		record.cmd = input.below(37);
		record.behavior = input.below(4);
		record.status = input.below(4);
		fill_name(input, record.iface);
		fill_name(input, record.owe_iface);
		fill_mac(input, record.mac);
		return bytes_of(record);
	}
	case GATEKEEPER_IOCTL_GET: {
		gk_list_reply record{};
		record.cmd = input.below(37);
		fill_name(input, record.iface);
		fill_name(input, record.owe_iface);
		return bytes_of(record);
	}
	case GATEKEEPER_IOCTL_CHECK: {
		gk_check_reply record{};
		record.cmd = input.below(37);
		fill_name(input, record.iface);
		fill_mac(input, record.mac);
		return bytes_of(record);
	}
	default:
		return bytes_of(pick_address(input));
	}
}

} // namespace captive_portal::test
