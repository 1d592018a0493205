// SPDX-License-Identifier: GPL-2.0-only
#include "portal/lookups.h"

#include "base/atomic_word.h"
#include "base/debug_level.h"
#include "base/interface_numbers.h"
#include "base/text.h"
#include "platform/platform.h"
#include "portal/interface_table.h"

namespace captive_portal
{

namespace
{

struct Network {
	uint32_t address; // host order
	uint32_t netmask; // host order
};

constexpr Network private_networks[] = {
	{0xc0a80000, 0xffff0000}, // 192.168.0.0/16
	{0xac100000, 0xfff00000}, // 172.16.0.0/12
	{0x0a000000, 0xff000000}, // 10.0.0.0/8
};

} // namespace

namespace
{

// Before start has filled the rows their marks and ports are 0, and a search for 0 finds the first that is not filled yet.
template <typename Number> Field<uint32_t> find_unfilled_row(Number cp_row::*number)
{
	for (uint32_t index = 0; index < CP_WIRELESS_INTERFACES; ++index) {
		if (load_word(captive_portal_table[index].*number) == 0) {
			return index;
		}
	}
	return {};
}

} // namespace

Field<uint32_t> find_row_by_mark(uint32_t mark)
{
	if (mark == 0) {
		return are_rows_filled() ? Field<uint32_t>() : find_unfilled_row(&cp_row::mark);
	}
	const uint32_t index = interface_of_mark(mark);
	if (index == no_interface || load_word(captive_portal_table[index].mark) != mark) {
		return {};
	}
	return index;
}

uint32_t counted_row_of_mark(uint32_t mark)
{
	if (mark == MARK_MIREL_BLACK) {
		return CP_ROW_MIREL;
	}
	const Field<uint32_t> index = find_row_by_mark(mark);
	return index.has_value() ? index.value() : static_cast<uint32_t>(CP_COUNTER_ROW_OTHER);
}

uint32_t is_captive_portal_enable(uint32_t mark)
{
	if (mark == MARK_MIREL_BLACK) {
		return load_word(captive_portal_table[CP_ROW_MIREL].cp_mode);
	}
	const Field<uint32_t> index = find_row_by_mark(mark);
	if (!index.has_value()) {
		return 0;
	}
	return load_word(captive_portal_table[index.value()].cp_mode);
}

uint32_t is_block_https_enable(uint32_t mark)
{
	if (mark == MARK_MIREL_BLACK) {
		return 1;
	}
	const Field<uint32_t> index = find_row_by_mark(mark);
	if (!index.has_value()) {
		return 0;
	}
	return load_word(captive_portal_table[index.value()].block_https);
}

uint32_t get_iface_by_mark(uint32_t mark)
{
	if (mark == MARK_MIREL_BLACK) {
		return CP_ROW_MIREL;
	}
	const Field<uint32_t> index = find_row_by_mark(mark);
	if (!index.has_value()) {
		return 0;
	}
	const bool mode_7 = load_word(captive_portal_table[index.value()].cp_mode) == CP_MODE_INTERNET_PASSES;
	return mode_7 ? static_cast<uint32_t>(CP_ROW_MODE_7) : index.value();
}

int32_t get_iface_by_port(uint16_t port)
{
	const uint32_t index = interface_of_port(port);
	if (index != no_interface) {
		const cp_row &row = captive_portal_table[index];
		return load_word(row.http_port) == port || load_word(row.https_port) == port ?
			       static_cast<int32_t>(index) :
			       -1;
	}
	if (port != 0 || are_rows_filled()) {
		return -1;
	}
	const Field<uint32_t> unfilled = find_unfilled_row(&cp_row::https_port);
	return unfilled.has_value() ? static_cast<int32_t>(unfilled.value()) : -1;
}

bool is_dst_internet(Ipv4Address address)
{
	for (const Network &network : private_networks) {
		if ((address.host() & network.netmask) == network.address) {
			return false;
		}
	}
	return true;
}

bool is_dst_gateway(Ipv4Address address)
{
	return address == load_word(ap_gateway);
}

bool is_dst_ap(Ipv4Address address)
{
	Ipv4Address own = {};
	return cp_first_ipv4_of_device(default_bridge, &own.raw) == CP_IPV4_FOUND && own == address;
}

void get_bridge_name_by_iface(const char *ifname, char (&out)[CP_INTERFACE_NAME_SIZE])
{
	switch (cp_bridge_of_port(ifname, out, sizeof(out))) {
	case CP_BRIDGE_FOUND:
		return;
	case CP_BRIDGE_NO_DEVICE:
		if (debug_level_reaches(3)) {
			cp_log(CP_LOG_DEBUG, "get_bridge_name_by_iface: Could not find %s\n", ifname);
		}
		return;
	case CP_BRIDGE_UNREACHABLE:
		if (debug_level_reaches(3)) {
			cp_log(CP_LOG_DEBUG,
			       "get_bridge_name_by_iface: %s is a bridge port but bridge info unavailable\n", ifname);
		}
		break;
	case CP_BRIDGE_NOT_A_PORT:
		if (debug_level_reaches(3)) {
			cp_log(CP_LOG_DEBUG, "get_bridge_name_by_iface: %s is not attached to any bridge\n", ifname);
		}
		break;
	}
	store_text(out, text_of_field(default_bridge));
}

} // namespace captive_portal
