// SPDX-License-Identifier: GPL-2.0-only
#include "portal/redirect.h"

#include "base/atomic_word.h"
#include "portal/interface_table.h"
#include "portal/lookups.h"

namespace captive_portal
{

Identity refresh_ap_identity(const char *bridge)
{
	Ipv4Address address = {};
	const cp_ipv4_result found = cp_first_ipv4_of_device(default_bridge, &address.raw);
	MacAddress mac = {};
	if (found == CP_IPV4_NO_DEVICE || cp_hardware_address_of_device(bridge, mac.bytes) == 0 ||
	    found == CP_IPV4_NO_CONFIGURATION) {
		return Identity::unknown;
	}
	if (found == CP_IPV4_NO_ADDRESS) {
		return Identity::unchanged;
	}
	store_word(ap_addr, address);
	store_ap_mac(mac);
	return Identity::refreshed;
}

bool redirect_to_ap(Packet packet, uint16_t port)
{
	return packet.make_writable([port](WritablePacket &writable) {
		writable.write_destination(load_word(ap_addr), be16::from_host(port));
		writable.finish_ipv4_header();
		writable.write_destination_mac(load_ap_mac());
		writable.set_host();
	});
}

bool is_web_port(Field<be16> port)
{
	return port == be16::from_host(CP_PORT_HTTP) || port == be16::from_host(CP_PORT_HTTPS);
}

} // namespace captive_portal
