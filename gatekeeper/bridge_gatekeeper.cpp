// SPDX-License-Identifier: GPL-2.0-only
#include "gatekeeper/bridge_gatekeeper.h"

#include "base/debug_level.h"
#include "base/fixed_addresses.h"
#include "base/interface_name.h"
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

// Whether `port`, which is not below the first of them, is a redirect port of any wireless interface.
constexpr bool is_redirect_port(uint32_t port)
{
	const uint32_t radio = (port - CP_PORT_FIRST_INTERFACE_HTTP) / CP_PORT_STEP_PER_RADIO;
	const uint32_t place = (port - CP_PORT_FIRST_INTERFACE_HTTP) % CP_PORT_STEP_PER_RADIO;
	return radio < CP_RADIOS && (place < CP_VAPS_PER_RADIO || place - CP_PORT_HTTPS_STEP < CP_VAPS_PER_RADIO);
}

// The fixed ports that are closed to anybody: bit n is port first_closed_port + n.
constexpr uint32_t first_closed_port = CP_PORT_LOGOUT;
constexpr uint32_t closed_ports = [] {
	uint32_t ports = 0;
	for (const uint16_t port : ports_closed_to_wired_side) {
		ports |= 1u << (port - first_closed_port);
	}
	for (const uint16_t port : ports_closed_without_portal) {
		ports |= 1u << (port - first_closed_port);
	}
	return ports;
}();

// Whether a closed port or a row's redirect port can be meant. Before start has filled the rows their ports are 0.
bool may_be_closed(Field<be16> port)
{
	if (!port.has_value()) {
		return false;
	}
	const uint32_t number = port.value().host();
	if (number >= CP_PORT_FIRST_INTERFACE_HTTP) {
		return is_redirect_port(number);
	}
	const uint32_t place = number - first_closed_port;
	return (place < 32 && (closed_ports >> place & 1) != 0) || number == 0;
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

// The TCP destination port of an IPv4 packet to the access point's own address, if it is one that somebody is kept from:
// the bridge is asked for its address for these alone.
Field<be16> guarded_port(const Packet &packet, Field<EtherType> type)
{
	if (type != EtherType::ipv4) {
		return {};
	}
	const Field<be16> port = tcp_destination_port(packet);
	return may_be_closed(port) && is_for_access_point(packet) ? port : Field<be16>();
}

cp_verdict judge_wired(const Packet &packet, Field<EtherType> type)
{
	const Field<be16> port = guarded_port(packet, type);
	if (!port.has_value()) {
		return CP_ACCEPT;
	}
	if (is_one_of(port, ports_closed_to_wired_side) || is_redirect_port_of_another(CP_WIRELESS_INTERFACES, port)) {
		return CP_DROP;
	}
	return CP_ACCEPT;
}

// Index of the row that a frame of the wireless interface `name` is judged by, outside the rows when there is none. A name
// that an OWE companion is paired with is not looked up a second time.
uint32_t index_of_name(Text name)
{
	const Field<InterfaceNumbers> scanned = scan_interface_name(name);
	if (!scanned.has_value()) {
		return CP_WIRELESS_INTERFACES;
	}
	const InterfaceNumbers numbers = scanned.value();
	if (numbers.vap < CP_OWE_FIRST_VAP || numbers.vap > CP_OWE_LAST_VAP) {
		return cp_interface_index(numbers.radio, numbers.vap);
	}
	const uint32_t owe_row = cp_owe_index(numbers.radio, numbers.vap);
	if (owe_row >= CP_OWE_INTERFACES) {
		return CP_WIRELESS_INTERFACES;
	}
	char paired[CP_INTERFACE_NAME_SIZE];
	owe_mapping_table[owe_row].iface.load(paired);
	const Field<uint32_t> index = interface_index_of_name(text_of_field(paired));
	return index.has_value() ? index.value() : static_cast<uint32_t>(CP_WIRELESS_INTERFACES);
}

// The device's name, as much of it as a field of that size and its NUL hold.
Text copy_name(char (&copy)[CP_INTERFACE_NAME_SIZE], const char *name)
{
	size_t length = 0;
	for (char next = load_word(name[0]); next != '\0' && length < sizeof(copy) - 1;
	     next = load_word(name[length])) {
		copy[length++] = next;
	}
	return {copy, length};
}

// No lock: a mode or a port that changes meanwhile holds from the next frame on.
bool reaches_closed_port(const Packet &packet, Field<EtherType> type, uint32_t index)
{
	const Field<be16> port = guarded_port(packet, type);
	if (!port.has_value()) {
		return false;
	}
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
Judgement judge_client(Packet &packet, uint64_t mac, uint32_t index)
{
	const ClientStanding standing = standing_of(mac, index);

	if (load_word(captive_portal_table[CP_ROW_MIREL].cp_mode) != CP_MODE_OFF) {
		if (standing.lists.has(ClientLists::mirel_white)) {
			return Judgement::accept;
		}
		if (standing.lists.has(ClientLists::mirel_black)) {
			packet.set_mark(MARK_MIREL_BLACK);
			return Judgement::accept;
		}
	}
	if (load_word(dns_filter_activate) != 0 && packet.protocol() == IpProtocol::tcp &&
	    packet.destination_address() == load_word(dns_filter_addr)) {
		packet.set_mark(MARK_DNS_FILTER);
		return Judgement::accept;
	}
	if (standing.lists.has(ClientLists::login | ClientLists::auth)) {
		return Judgement::accept_admitted;
	}
	if (standing.lists.has(ClientLists::white | ClientLists::ga_white | ClientLists::fallback)) {
		return Judgement::accept;
	}
	if (standing.status == OVRA_DISCONNECTED) {
		return judge_disconnected(packet, standing.behavior);
	}
	const cp_row &row = captive_portal_table[index];
	if (load_word(row.cp_mode) != CP_MODE_OFF) {
		packet.set_mark(load_word(row.mark));
	}
	return Judgement::accept;
}

bool goes_to_logout_address(const Packet &packet, uint32_t index)
{
	return packet.destination_address() == load_word(captive_portal_table[index].logout_address);
}

// An index outside the wireless rows: there is none for the port's name.
cp_verdict judge_wireless(Packet &packet, Field<EtherType> type, uint64_t source, uint32_t index)
{
	if (type != EtherType::ipv4 && type != EtherType::ipv6) {
		return CP_ACCEPT;
	}
	if (index >= CP_WIRELESS_INTERFACES) {
		return CP_DROP;
	}
	if (reaches_closed_port(packet, type, index)) {
		return CP_DROP;
	}
	// The source address lies before the EtherType, so it is there.
	switch (judge_client(packet, source, index)) {
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
	const Field<uint64_t> source = packet.source_mac_word();
	if (source.has_value() && (MacAddress::is_group(source.value()) || source.value() == 0)) {
		return CP_DROP;
	}
	if (packet.in_name() == nullptr) {
		return judge_wired(packet, type);
	}
	const uint32_t plain = plain_interface_index(packet.in_name());
	if (plain != not_a_plain_name) {
		return judge_wireless(packet, type, source.value(), plain);
	}
	// A copy: the device may be renamed meanwhile.
	char copy[CP_INTERFACE_NAME_SIZE];
	const Text name = copy_name(copy, packet.in_name());
	return starts_with(name, wireless_prefix) ? judge_wireless(packet, type, source.value(), index_of_name(name)) :
						    judge_wired(packet, type);
}

} // namespace captive_portal
