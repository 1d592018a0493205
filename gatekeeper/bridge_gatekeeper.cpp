// SPDX-License-Identifier: GPL-2.0-only
#include "gatekeeper/bridge_gatekeeper.h"

#include "base/debug_level.h"
#include "base/fixed_addresses.h"
#include "base/in_aton.h"
#include "base/interface_name.h"
#include "base/lock.h"
#include "base/packet.h"
#include "gatekeeper/client_tables.h"
#include "portal/interface_table.h"
#include "portal/lookups.h"

namespace captive_portal
{

namespace
{

// Fixed portal ports of the access point that are closed to the wired side.
constexpr uint16_t ports_closed_to_wired_side[] = {
	CP_PORT_LOGOUT,      CP_PORT_SOCIAL_LOGIN_HTTP, CP_PORT_SOCIAL_LOGIN_HTTPS, CP_PORT_MIREL_HTTP,
	CP_PORT_MIREL_HTTPS, CP_PORT_MODE_7_HTTP,       CP_PORT_MODE_7_HTTPS};

// Those that are closed to clients of an interface without a portal; deliberately not the MIREL ports.
constexpr uint16_t ports_closed_without_portal[] = {CP_PORT_LOGOUT, CP_PORT_SOCIAL_LOGIN_HTTP,
						    CP_PORT_SOCIAL_LOGIN_HTTPS, CP_PORT_MODE_7_HTTP,
						    CP_PORT_MODE_7_HTTPS};

constexpr Text wireless_prefix{"wlan", 4};

template <size_t count> bool is_one_of(Field<be16> port, const uint16_t (&ports)[count])
{
	for (const uint16_t candidate : ports) {
		if (port == be16::from_host(candidate)) {
			return true;
		}
	}
	return false;
}

// Missing when the packet is not TCP: it then equals no port.
Field<be16> tcp_destination_port(const Packet &packet)
{
	return packet.protocol() == IpProtocol::tcp ? packet.destination_port() : Field<be16>();
}

bool is_for_access_point(const Packet &packet)
{
	const Field<Ipv4Address> destination = packet.destination_address();
	return destination.has_value() && is_dst_ap(destination.value());
}

bool is_redirect_port_of(const cp_row &row, Field<be16> port)
{
	return port == be16::from_host(load_word(row.http_port)) || port == be16::from_host(load_word(row.https_port));
}

// True when `port` is a redirect port of a wireless interface other than `own`; CP_WIRELESS_INTERFACES is none of them.
bool is_redirect_port_of_another(uint32_t own, Field<be16> port)
{
	for (uint32_t index = 0; index < CP_WIRELESS_INTERFACES; ++index) {
		if (index != own && is_redirect_port_of(captive_portal_table[index], port)) {
			return true;
		}
	}
	return false;
}

cp_verdict judge_wired(const Packet &packet)
{
	if (packet.ether_type() != EtherType::ipv4 || !is_for_access_point(packet)) {
		return CP_ACCEPT;
	}
	const Field<be16> port = tcp_destination_port(packet);
	if (is_one_of(port, ports_closed_to_wired_side) || is_redirect_port_of_another(CP_WIRELESS_INTERFACES, port)) {
		return CP_DROP;
	}
	return CP_ACCEPT;
}

constexpr Field<uint32_t> row_below(uint32_t index, uint32_t rows)
{
	return index < rows ? Field<uint32_t>(index) : Field<uint32_t>();
}

// Row that a frame of the wireless interface `name` is judged by, missing when there is none. A name that an OWE
// companion is paired with is not looked up a second time.
Field<uint32_t> row_of_ingress(Text name)
{
	const Field<InterfaceNumbers> scanned = scan_interface_name(name);
	if (!scanned.has_value()) {
		return {};
	}
	const InterfaceNumbers numbers = scanned.value();
	if (numbers.vap < CP_OWE_FIRST_VAP || numbers.vap > CP_OWE_LAST_VAP) {
		return row_below(cp_interface_index(numbers.radio, numbers.vap), CP_WIRELESS_INTERFACES);
	}
	const Field<uint32_t> owe_row = row_below(cp_owe_index(numbers.radio, numbers.vap), CP_OWE_INTERFACES);
	if (!owe_row.has_value()) {
		return {};
	}
	char paired[CP_INTERFACE_NAME_SIZE];
	owe_mapping_table[owe_row.value()].iface.load(paired);
	return interface_index_of_name(text_of_field(paired));
}

// No lock: a mode or a port that changes meanwhile holds from the next frame on.
bool reaches_closed_port(const Packet &packet, uint32_t index)
{
	if (packet.ether_type() != EtherType::ipv4 || !is_for_access_point(packet)) {
		return false;
	}
	const Field<be16> port = tcp_destination_port(packet);
	const bool has_portal = load_word(captive_portal_table[index].cp_mode) != CP_MODE_OFF;
	return (!has_portal && is_one_of(port, ports_closed_without_portal)) ||
	       is_redirect_port_of_another(index, port);
}

bool is_dhcp(const Packet &packet)
{
	constexpr be16 client_port = be16::from_host(CP_PORT_DHCP_CLIENT);
	return packet.protocol() == IpProtocol::udp &&
	       (packet.destination_port() == client_port || packet.source_port() == client_port);
}

enum class Judgement {
	accept,
	drop,
	// Admitted by login or authorisation: accepted, with a mark if it goes to the logout address.
	accept_admitted,
	drop_unknown_behavior,
};

Judgement judge_disconnected(const Packet &packet, uint32_t behavior)
{
	switch (behavior) {
	case OVRA_PASS_ALL:
		return Judgement::accept;
	case OVRA_PASS_DHCP:
		return is_dhcp(packet) ? Judgement::accept : Judgement::drop;
	default:
		return Judgement::drop_unknown_behavior;
	}
}

// Weighs the client's MAC address in the tables; the first that lists it decides. Deliberately looks at no EtherType:
// an IPv6 frame is tested against what lies at the places of an IPv4 header's fields.
Judgement judge_client(Packet &packet, const MacAddress &mac, uint32_t index)
{
	const LockGuard guard(Lock::gatekeeper);

	if (load_word(captive_portal_table[CP_ROW_MIREL].cp_mode) != CP_MODE_OFF) {
		if (mirel_white_list.contains(mac)) {
			return Judgement::accept;
		}
		if (mirel_black_list.contains(mac)) {
			packet.set_mark(MARK_MIREL_BLACK);
			return Judgement::accept;
		}
	}
	if (load_word(dns_filter_activate) != 0 && packet.protocol() == IpProtocol::tcp &&
	    packet.destination_address() == load_word(dns_filter_addr)) {
		packet.set_mark(MARK_DNS_FILTER);
		return Judgement::accept;
	}
	if (login_mac_table[index].list.contains(mac) || auth_mac_table[index].list.contains(mac)) {
		return Judgement::accept_admitted;
	}
	if (white_list[index].list.contains(mac) || ga_white_list[index].list.contains(mac) ||
	    mac_auth_fallback[index].list.contains(mac)) {
		return Judgement::accept;
	}
	if (ovra_behavior[index].status == OVRA_DISCONNECTED) {
		return judge_disconnected(packet, ovra_behavior[index].behavior);
	}
	const cp_row &row = captive_portal_table[index];
	if (load_word(row.cp_mode) != CP_MODE_OFF) {
		packet.set_mark(load_word(row.mark));
	}
	return Judgement::accept;
}

bool goes_to_logout_address(const Packet &packet, uint32_t index)
{
	const LockGuard guard(Lock::cp);
	return packet.destination_address() == in_aton(text_of_field(captive_portal_table[index].logout_ip));
}

cp_verdict judge_wireless(Packet &packet, Text name)
{
	const Field<EtherType> type = packet.ether_type();
	if (type != EtherType::ipv4 && type != EtherType::ipv6) {
		return CP_ACCEPT;
	}
	const Field<uint32_t> row = row_of_ingress(name);
	if (!row.has_value()) {
		return CP_DROP;
	}
	const uint32_t index = row.value();
	if (reaches_closed_port(packet, index)) {
		return CP_DROP;
	}
	// The source address lies before the EtherType, so it is there.
	switch (judge_client(packet, packet.source_mac().value(), index)) {
	case Judgement::accept:
		return CP_ACCEPT;
	case Judgement::drop:
		return CP_DROP;
	case Judgement::accept_admitted:
		if (goes_to_logout_address(packet, index)) {
			packet.set_mark(MARK_LOGOUT);
		}
		return CP_ACCEPT;
	case Judgement::drop_unknown_behavior:
		break;
	}
	if (debug_level_reaches(1)) {
		cp_log(CP_LOG_DEBUG, "[gatekeeper]ebt_gate_keeper: Unknow OVRA disconnection behavior, return\n");
	}
	return CP_DROP;
}

} // namespace

cp_verdict ebt_gate_keeper(cp_packet *raw)
{
	Packet packet(*raw);

	const Field<EtherType> type = packet.ether_type();
	if (type == EtherType::exempt_first || type == EtherType::exempt_second) {
		return CP_ACCEPT;
	}
	const Field<MacAddress> source = packet.source_mac();
	if (source.has_value() && (source.value().is_group() || source.value().is_zero())) {
		return CP_DROP;
	}
	if (packet.in_name() == nullptr) {
		return judge_wired(packet);
	}
	// A copy: the device may be renamed meanwhile.
	char copy[CP_INTERFACE_NAME_SIZE];
	store_text(copy, text_of_field(packet.in_name(), sizeof(copy)));
	const Text name = text_of_field(copy);
	return starts_with(name, wireless_prefix) ? judge_wireless(packet, name) : judge_wired(packet);
}

} // namespace captive_portal
