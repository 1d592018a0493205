// SPDX-License-Identifier: GPL-2.0-only
#include "platform/platform.h"

#include "base/counters.h"
#include "base/debug_level.h"
#include "base/fixed_addresses.h"
#include "base/interface_name.h"
#include "base/interface_numbers.h"
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
	const uint16_t number = port.value().host();
	if (number >= CP_PORT_FIRST_INTERFACE_HTTP) {
		return interface_of_port(number) != no_interface;
	}
	const uint32_t place = number - first_closed_port;
	return (place < 32 && (closed_ports >> place & 1) != 0) || number == 0;
}

// Missing when the packet is not TCP: it then equals no port.
Field<be16> tcp_destination_port(Packet packet)
{
	return packet.protocol() == IpProtocol::tcp ? packet.destination_port() : Field<be16>();
}

bool is_for_access_point(Packet packet)
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

// Whether the frame goes to a TCP port that somebody is kept from, if it goes to the access point: the bridge is asked for
// its address for these ports alone.
bool may_reach_closed_port(Packet packet)
{
	return packet.ether_type() == EtherType::ipv4 && may_be_closed(tcp_destination_port(packet));
}

bool is_closed_to_wired_side(Packet packet)
{
	const Field<be16> port = tcp_destination_port(packet);
	return is_for_access_point(packet) && (is_one_of(port, ports_closed_to_wired_side) ||
					       is_redirect_port_of_another(CP_WIRELESS_INTERFACES, port));
}

// No lock: a mode or a port that changes meanwhile holds from the next frame on.
bool is_closed_to_interface(Packet packet, uint32_t index)
{
	if (!is_for_access_point(packet)) {
		return false;
	}
	const Field<be16> port = tcp_destination_port(packet);
	const bool has_portal = load_word(captive_portal_table[index].cp_mode) != CP_MODE_OFF;
	return (!has_portal && is_one_of(port, ports_closed_without_portal)) ||
	       is_redirect_port_of_another(index, port);
}

// What few frames meet is in functions of its own that end the hook: so the others save no register.

[[gnu::noinline]] cp_verdict judge_wired_at_guarded_port(Packet packet)
{
	return is_closed_to_wired_side(packet) ? drop(CP_COUNTER_ROW_OTHER, CP_REASON_DROP_WIRED_PORT) : CP_ACCEPT;
}

cp_verdict judge_wired(Packet packet)
{
	return may_reach_closed_port(packet) ? judge_wired_at_guarded_port(packet) : CP_ACCEPT;
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

bool is_dhcp(Packet packet)
{
	constexpr be16 client_port = be16::from_host(CP_PORT_DHCP_CLIENT);
	return packet.protocol() == IpProtocol::udp &&
	       (packet.destination_port() == client_port || packet.source_port() == client_port);
}

[[gnu::noinline, gnu::cold]] cp_verdict drop_for_unknown_behavior(uint32_t index)
{
	if (debug_level_reaches(1)) {
		cp_log(CP_LOG_DEBUG, "[gatekeeper]ebt_gate_keeper: Unknow OVRA disconnection behavior, return\n");
	}
	return drop(index, CP_REASON_DROP_DISCONNECTED);
}

[[gnu::noinline]] cp_verdict judge_disconnected(Packet packet, uint32_t behavior, uint32_t index)
{
	switch (behavior) {
	case OVRA_PASS_ALL:
		return accept(index, CP_REASON_PASS_DISCONNECTED);
	case OVRA_PASS_DHCP:
		return is_dhcp(packet) ? accept(index, CP_REASON_PASS_DISCONNECTED) :
					 drop(index, CP_REASON_DROP_DISCONNECTED);
	default:
		return drop_for_unknown_behavior(index);
	}
}

// Of a client that may log out.
[[gnu::always_inline]] inline cp_verdict admit(Packet packet, uint32_t index, cp_reason reason)
{
	if (packet.destination_address() == load_word(captive_portal_table[index].logout_address)) {
		packet.set_mark(MARK_LOGOUT);
		return accept(index, CP_REASON_MARK_LOGOUT_ADDRESS);
	}
	return accept(index, reason);
}

// The first table that lists the client's MAC address decides.
[[gnu::always_inline]] inline cp_verdict judge_by_row(Packet packet, ClientStanding standing, uint32_t index)
{
	const ClientLists lists = standing.lists();
	const cp_row &row = captive_portal_table[index];

	if (lists.has(ClientLists::login)) {
		return admit(packet, index, CP_REASON_ADMIT_LOGIN);
	}
	if (lists.has(ClientLists::auth)) {
		return admit(packet, index, CP_REASON_ADMIT_AUTH);
	}
	if (lists.has(ClientLists::white)) {
		return accept(index, CP_REASON_ADMIT_WHITE);
	}
	if (lists.has(ClientLists::ga_white)) {
		return accept(index, CP_REASON_ADMIT_GA_WHITE);
	}
	if (lists.has(ClientLists::fallback)) {
		return accept(index, CP_REASON_ADMIT_FALLBACK);
	}
	if (standing.is_disconnected()) {
		return judge_disconnected(packet, standing.behavior(), index);
	}
	if (load_word(row.cp_mode) != CP_MODE_OFF) {
		packet.set_mark(load_word(row.mark));
		return accept(index, CP_REASON_MARK_PORTAL);
	}
	return accept(index, CP_REASON_PASS_NO_PORTAL);
}

// Where the MIREL portal or the DNS filter is on: they come before the row's own lists.
[[gnu::noinline]] cp_verdict judge_with_filters(Packet packet, ClientStanding standing, uint32_t index)
{
	const ClientLists lists = standing.lists();

	if (load_word(captive_portal_table[CP_ROW_MIREL].cp_mode) != CP_MODE_OFF) {
		if (lists.has(ClientLists::mirel_white)) {
			return accept(index, CP_REASON_ADMIT_MIREL_WHITE);
		}
		if (lists.has(ClientLists::mirel_black)) {
			packet.set_mark(MARK_MIREL_BLACK);
			return accept(index, CP_REASON_MARK_BLACK);
		}
	}
	if (load_word(dns_filter_activate) != 0 && packet.protocol() == IpProtocol::tcp &&
	    packet.destination_address() == load_word(dns_filter_addr)) {
		packet.set_mark(MARK_DNS_FILTER);
		return accept(index, CP_REASON_MARK_FILTER);
	}
	return judge_by_row(packet, standing, index);
}

// Deliberately looks at no EtherType: an IPv6 frame is tested against what lies at the places of an IPv4 header's fields.
cp_verdict judge_by_standing(Packet packet, ClientStanding standing, uint32_t index)
{
	const bool has_filters =
		(load_word(captive_portal_table[CP_ROW_MIREL].cp_mode) | load_word(dns_filter_activate)) != 0;
	return has_filters ? judge_with_filters(packet, standing, index) : judge_by_row(packet, standing, index);
}

// The source address lies before the EtherType, so it is there.
uint64_t source_of(Packet packet)
{
	return packet.source_mac_word().value();
}

[[gnu::noinline]] cp_verdict judge_beside_command(Packet packet, uint32_t index)
{
	return judge_by_standing(packet, standing_of(source_of(packet), index), index);
}

cp_verdict judge_client(Packet packet, uint32_t index)
{
	const uint64_t count = client_sequence.begin_reading();
	const ClientStanding standing =
		standing_by_lists(client_index.lists_when_shown(source_of(packet), index), index);
	return client_sequence.was_plain_since(count) ? judge_by_standing(packet, standing, index) :
							judge_beside_command(packet, index);
}

[[gnu::noinline]] cp_verdict judge_at_guarded_port(Packet packet, uint32_t index)
{
	return is_closed_to_interface(packet, index) ? drop(index, CP_REASON_DROP_PORTAL_PORT) :
						       judge_client(packet, index);
}

// An index outside the wireless rows: there is none for the port's name.
cp_verdict judge_wireless(Packet packet, uint32_t index)
{
	const Field<EtherType> type = packet.ether_type();
	if (type != EtherType::ipv4 && type != EtherType::ipv6) {
		return CP_ACCEPT;
	}
	if (index >= CP_WIRELESS_INTERFACES) {
		return drop(CP_COUNTER_ROW_OTHER, CP_REASON_DROP_NO_ROW);
	}
	return may_reach_closed_port(packet) ? judge_at_guarded_port(packet, index) : judge_client(packet, index);
}

// Of a device whose name is not plain. By a copy of the name: the device may be renamed meanwhile.
[[gnu::noinline]] cp_verdict judge_by_copied_name(PacketAtHook packet)
{
	char copy[CP_INTERFACE_NAME_SIZE];
	const Text name = copy_name(copy, packet.in_name());
	return starts_with(name, wireless_prefix) ? judge_wireless(packet.alone(), index_of_name(name)) :
						    judge_wired(packet.alone());
}

cp_verdict judge(PacketAtHook packet)
{
	const Field<EtherType> type = packet.ether_type();
	if (type == EtherType::exempt_first || type == EtherType::exempt_second) {
		return CP_ACCEPT;
	}
	const Field<uint64_t> source = packet.source_mac_word();
	if (source.has_value() && (MacAddress::is_group(source.value()) || source.value() == 0)) {
		return drop(CP_COUNTER_ROW_OTHER, CP_REASON_DROP_SENDER);
	}
	if (packet.in_name() == nullptr) {
		return judge_wired(packet.alone());
	}
	const uint32_t index = plain_interface_index(packet.in_name());
	return index != not_a_plain_name ? judge_wireless(packet.alone(), index) : judge_by_copied_name(packet);
}

[[gnu::noinline]] cp_verdict judge_any_frame(PacketAtHook packet)
{
	return judge(packet);
}

} // namespace

} // namespace captive_portal

using namespace captive_portal;

// IPv4 that has its headers needs no question for each of their fields. In line as far as the compiler can, so that nothing is
// passed on or saved on its way.
[[gnu::flatten]] cp_verdict ebt_gate_keeper(cp_packet *raw, const cp_ports *ports)
{
	const PacketAtHook packet(raw, ports);
	return packet.has_headers() && packet.ether_type() == EtherType::ipv4 ? judge(packet) : judge_any_frame(packet);
}
