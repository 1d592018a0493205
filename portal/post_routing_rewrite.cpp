// SPDX-License-Identifier: GPL-2.0-only
// Shows DNS answers for wireless clients to the parser, and undoes the redirect on the access point's replies. A field
// that lies outside the packet equals nothing.
#include "base/atomic_word.h"
#include "base/debug_level.h"
#include "base/lock.h"
#include "base/packet.h"
#include "base/text.h"
#include "garden/dns_parser.h"
#include "portal/connections.h"
#include "portal/interface_table.h"
#include "portal/lookups.h"
#include "portal/portal_hooks.h"

namespace captive_portal
{

namespace
{

constexpr uint8_t ipv4_version = 4;
constexpr uint16_t dns_port = 53;

[[nodiscard]] Text egress_name(const Packet &packet)
{
	return packet.out_name() != nullptr ? text_of_field(packet.out_name(), CP_INTERFACE_NAME_SIZE) : Text{};
}

// True for UDP from port 53 on its way out to a wireless client, whoever sent it. The IPv4 total length only gates.
[[nodiscard]] bool is_dns_answer(const Packet &packet)
{
	const Field<int32_t> claimed = packet.claimed_udp_payload_bytes();
	return packet.protocol() == IpProtocol::udp && packet.ip_version() == ipv4_version &&
	       packet.source_port() == be16::from_host(dns_port) && claimed.has_value() && claimed.value() > 0 &&
	       starts_with(egress_name(packet), {"wlan", 4});
}

// The packet goes on unchanged whatever comes of it. An answer that cannot be read whole, for want of memory, is not
// read at all: the client asks again.
void hand_off_dns_answer(const Packet &packet)
{
	if (!is_dns_answer(packet)) {
		return;
	}
	const Field<int32_t> length = packet.udp_payload_bytes();
	if (!length.has_value() || length.value() <= 0) {
		return;
	}
	const bool was_read =
		packet.read_udp_payload(static_cast<uint32_t>(length.value()), [&length](const uint8_t *message) {
			static_cast<void>(parse_dns(message, length.value()));
		});
	static_cast<void>(was_read);
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

void log_pass(const Packet &packet)
{
	const Field<Ipv4Address> source = packet.source_address();
	const Field<Ipv4Address> destination = packet.destination_address();
	if (!debug_level_reaches(3) || !source.has_value() || !destination.has_value()) {
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
void restore_source(Packet &packet, const table_list_entry &entry)
{
	if (!packet.is_rewritable()) {
		return;
	}
	const bool rewritten = packet.make_writable([&entry](WritablePacket &writable) {
		writable.write_source(entry.orig_daddr, entry.orig_dport);
		writable.write_source_mac(entry.orig_dmac);
		writable.finish_ipv4_header();
	});
	static_cast<void>(rewritten);
}

void rewrite_reply(Packet &packet)
{
	if (!(packet.protocol() == IpProtocol::tcp)) {
		return;
	}
	const Field<be16> source_port = packet.source_port();
	const int32_t row = source_port.has_value() ? row_of_reply_port(source_port.value().host()) : -1;
	if (row < 0) {
		log_pass(packet);
		return;
	}

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
	table_list_entry **const link =
		find_connection(static_cast<uint32_t>(row), {client_address.value(), client_port.value()});
	if (link == nullptr) {
		return;
	}
	if (from_ap) {
		restore_source(packet, **link);
	}
	if (ends) {
		remove_connection(link);
	}
}

} // namespace

cp_verdict nf_cp_change(cp_packet *raw)
{
	Packet packet(*raw);
	if (!(egress_name(packet) == Text{"lo", 2})) {
		hand_off_dns_answer(packet);
		rewrite_reply(packet);
	}
	return CP_ACCEPT;
}

} // namespace captive_portal
