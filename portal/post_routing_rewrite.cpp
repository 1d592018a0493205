// SPDX-License-Identifier: GPL-2.0-only
// Shows DNS answers for wireless clients to the parser, and undoes the redirect on the access point's replies. A field
// that lies outside the packet equals nothing.
#include "base/atomic_word.h"
#include "base/counters.h"
#include "base/debug_level.h"
#include "base/interface_numbers.h"
#include "base/lock.h"
#include "base/packet.h"
#include "base/text.h"
#include "garden/dns_parser.h"
#include "platform/platform.h"
#include "portal/connections.h"
#include "portal/interface_table.h"
#include "portal/lookups.h"

namespace captive_portal
{

namespace
{

constexpr uint8_t ipv4_version = 4;
constexpr uint16_t dns_port = 53;

[[nodiscard]] Text egress_name(PacketAtHook packet)
{
	return packet.out_name() != nullptr ? text_of_field(packet.out_name(), CP_INTERFACE_NAME_SIZE) : Text{};
}

// True for a UDP packet from port 53 on its way out to a wireless client, whoever sent it. The IPv4 total length only gates.
[[nodiscard]] bool is_dns_answer(PacketAtHook packet)
{
	if (!(packet.source_port() == be16::from_host(dns_port))) {
		return false;
	}
	const Field<int32_t> claimed = packet.claimed_udp_payload_bytes();
	return packet.ip_version() == ipv4_version && claimed.has_value() && claimed.value() > 0 &&
	       starts_with(egress_name(packet), {"wlan", 4});
}

// The packet goes on unchanged whatever comes of it. An answer that cannot be read whole, for want of memory, is not
// read at all: the client asks again.
void hand_off_dns_answer(Packet packet)
{
	const Field<int32_t> length = packet.udp_payload_bytes();
	if (!length.has_value() || length.value() <= 0) {
		return;
	}
	const bool was_read =
		packet.read_udp_payload(static_cast<uint32_t>(length.value()), [&length](const uint8_t *message) {
			static_cast<void>(parse_dns(message, length.value()));
		});
	count(CP_COUNTER_ROW_OTHER, was_read ? CP_REASON_DNS_ANSWER : CP_REASON_DNS_UNREADABLE);
}

// Nothing is done to such a frame. Few come here, so it is asked where there would be something to do. Devices' names end
// with their NUL, so there is no need to know the length.
[[nodiscard]] bool leaves_by_loopback(PacketAtHook packet)
{
	const char *const name = packet.out_name();
	return name != nullptr && name[0] == 'l' && name[1] == 'o' && name[2] == '\0';
}

// False for nearly every port that is no redirect port, at the cost of a comparison or two.
[[nodiscard, gnu::always_inline]] inline bool may_be_redirect_port(uint16_t port)
{
	if (port >= CP_PORT_FIRST_INTERFACE_HTTP) {
		return interface_of_port(port) != no_interface;
	}
	if (port >= CP_PORT_REPUTATION_HTTP_FIRST) {
		return port <= CP_PORT_REPUTATION_LAST;
	}
	// Before start has filled the rows, 0 is a port of theirs.
	return (port >= CP_PORT_LOGOUT && port <= CP_PORT_MODE_7_HTTPS) || port == 0;
}

// Row in which the client's SYN was recorded, from the redirect port (host order) that now replies; -1 for any other
// port. The mirror of the redirect ports.
int32_t row_of_reply_port(uint16_t port)
{
	switch (port) {
	case CP_PORT_DNS_FILTER_HTTP:
	case CP_PORT_DNS_FILTER_HTTPS:
	case CP_PORT_LOGOUT:
		return CP_ROW_SPECIAL_MARK;
	case CP_PORT_SOCIAL_LOGIN_HTTP:
	case CP_PORT_SOCIAL_LOGIN_HTTPS:
		return CP_ROW_SOCIAL_LOGIN;
	case CP_PORT_MIREL_HTTP:
	case CP_PORT_MIREL_HTTPS:
		return CP_ROW_MIREL;
	case CP_PORT_MODE_7_HTTP:
	case CP_PORT_MODE_7_HTTPS:
		return CP_ROW_MODE_7;
	default:
		break;
	}
	if (port >= CP_PORT_REPUTATION_HTTP_FIRST && port <= CP_PORT_REPUTATION_LAST) {
		return CP_ROW_SPECIAL_MARK;
	}
	return get_iface_by_port(port);
}

// Called at debug level 3 only.
void log_pass(PacketAtHook packet)
{
	const Field<Ipv4Address> source = packet.source_address();
	const Field<Ipv4Address> destination = packet.destination_address();
	if (!source.has_value() || !destination.has_value()) {
		return;
	}
	const Ipv4Address source_address = source.value();
	const Ipv4Address destination_address = destination.value();
	// The kernel names no ingress device at this hook.
	cp_log(CP_LOG_DEBUG, "[nf_cp_change] in_name=%s out_name=%s saddr=%pI4 daddr=%pI4 pass\n",
	       packet.in_name() != nullptr ? packet.in_name() : "(null)",
	       packet.out_name() != nullptr ? packet.out_name() : "(null)", &source_address, &destination_address);
}

// Memory too short to make the packet writable leaves it as it is: the client sees a segment of a connection that it
// does not know, and the next try may do better.
void restore_source(Packet packet, const table_list_entry &entry)
{
	if (!packet.is_rewritable()) {
		return;
	}
	const bool rewritten = packet.make_writable([&entry](WritablePacket &writable) {
		writable.write_source(entry.orig_daddr, entry.orig_dport);
		writable.write_source_mac(entry.orig_dmac);
		writable.finish_ipv4_header();
	});
	if (rewritten) {
		count(entry.row, CP_REASON_REPLY_REWRITTEN);
	}
}

void rewrite_reply(Packet packet, uint32_t row)
{
	const bool from_ap = packet.source_address() == load_word(ap_addr);
	const Field<TcpFlags> flags = packet.tcp_flags();
	const bool ends = flags.has_value() && flags.value().fin_and_ack();
	if (!from_ap && !ends) {
		return;
	}
	const Field<Ipv4Address> client_address = packet.destination_address();
	const Field<be16> client_port = packet.destination_port();
	if (!client_address.has_value() || !client_port.has_value()) {
		return;
	}

	const LockGuard guard(Lock::change_ip_port);
	table_list_entry *const entry = find_connection(row, {client_address.value(), client_port.value()});
	if (entry == nullptr) {
		count(row, CP_REASON_REPLY_UNKNOWN);
		return;
	}
	if (from_ap) {
		restore_source(packet, *entry);
	}
	if (ends) {
		remove_connection(*entry);
		count(row, CP_REASON_CONNECTION_ENDED);
	}
}

// The three ways of a frame. Functions of their own, which end the hook, so that a frame that takes none of them saves no
// register and has no stack frame.

[[gnu::noinline]] cp_verdict change_udp(PacketAtHook packet)
{
	if (is_dns_answer(packet)) {
		hand_off_dns_answer(packet.alone());
	}
	return CP_ACCEPT;
}

[[gnu::noinline]] cp_verdict change_tcp(PacketAtHook packet, uint16_t port)
{
	if (leaves_by_loopback(packet)) {
		return CP_ACCEPT;
	}
	const int32_t row = row_of_reply_port(port);
	if (row >= 0) {
		rewrite_reply(packet.alone(), static_cast<uint32_t>(row));
	} else if (debug_level_reaches(3)) {
		log_pass(packet);
	}
	return CP_ACCEPT;
}

[[gnu::noinline, gnu::cold]] cp_verdict log_and_pass(PacketAtHook packet)
{
	if (!leaves_by_loopback(packet)) {
		log_pass(packet);
	}
	return CP_ACCEPT;
}

[[gnu::always_inline]] inline cp_verdict change(PacketAtHook packet)
{
	const Field<IpProtocol> protocol = packet.protocol();
	if (!(protocol == IpProtocol::tcp)) {
		return protocol == IpProtocol::udp ? change_udp(packet) : CP_ACCEPT;
	}
	const Field<be16> source_port = packet.source_port();
	if (source_port.has_value() && may_be_redirect_port(source_port.value().host())) {
		return change_tcp(packet, source_port.value().host());
	}
	return debug_level_reaches(3) ? log_and_pass(packet) : CP_ACCEPT;
}

[[gnu::noinline, gnu::cold]] cp_verdict change_cut_packet(PacketAtHook packet)
{
	return change(packet);
}

} // namespace

} // namespace captive_portal

using namespace captive_portal;

cp_verdict nf_cp_change(cp_packet *raw, const cp_ports *ports)
{
	const PacketAtHook packet(raw, ports);
	return packet.has_ipv4_header() ? change(packet) : change_cut_packet(packet);
}
