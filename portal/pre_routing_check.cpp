// SPDX-License-Identifier: GPL-2.0-only
// What a frame that enters the bridge may do, by its mark. A field that the next step needs and that lies outside the
// packet: a packet of an interface whose portal is on is dropped, any other is accepted as it is. A later fragment is
// not cut: it has no ports and no flags, which match nothing, and the steps go on.
#include "base/atomic_word.h"
#include "base/counters.h"
#include "base/debug_level.h"
#include "base/fixed_addresses.h"
#include "base/packet.h"
#include "base/text.h"
#include "garden/arecord_cache.h"
#include "garden/walled_garden.h"
#include "platform/platform.h"
#include "portal/connections.h"
#include "portal/interface_table.h"
#include "portal/lookups.h"
#include "portal/redirect.h"

namespace captive_portal
{

namespace
{

// A printed number that names a place in the program; part of the text.
constexpr int refresh_place = 1308;

constexpr bool is_reputation_mark(uint32_t mark)
{
	return mark >= MARK_REPUTATION_FIRST && mark <= MARK_REPUTATION_LAST;
}

// A redirect port for each of the two web ports, host order.
struct WebPorts {
	uint16_t http;
	uint16_t https;

	// Missing for a port that is no web port, or missing itself.
	[[nodiscard]] Field<uint16_t> choose(Field<be16> port) const
	{
		if (port == be16::from_host(CP_PORT_HTTP)) {
			return http;
		}
		if (port == be16::from_host(CP_PORT_HTTPS)) {
			return https;
		}
		return {};
	}
};

constexpr WebPorts social_login_ports{CP_PORT_SOCIAL_LOGIN_HTTP, CP_PORT_SOCIAL_LOGIN_HTTPS};
constexpr WebPorts mirel_ports{CP_PORT_MIREL_HTTP, CP_PORT_MIREL_HTTPS};
constexpr WebPorts mode_7_ports{CP_PORT_MODE_7_HTTP, CP_PORT_MODE_7_HTTPS};
constexpr WebPorts dns_filter_ports{CP_PORT_DNS_FILTER_HTTP, CP_PORT_DNS_FILTER_HTTPS};

// The bridge that the ingress port belongs to. Two device lookups in a kernel: most frames go their way without it.
class IngressBridge
{
public:
	// At debug level 3 the search has lines of its own, which come before any other of the frame.
	explicit IngressBridge(const char *port) : port_(port)
	{
		if (debug_level_reaches(3)) {
			find();
		}
	}

	// Empty when the port is not there.
	[[nodiscard]] const char *name()
	{
		if (!found_) {
			find();
		}
		return name_;
	}

private:
	void find()
	{
		found_ = true;
		store_text(name_, {});
		if (port_ != nullptr) {
			get_bridge_name_by_iface(port_, name_);
		}
	}

	const char *port_;
	bool found_ = false;
	char name_[CP_INTERFACE_NAME_SIZE];
};

// Counts what becomes of a packet by the interface whose mark it carries. Functions of their own, for a hook's last step.
[[gnu::noinline]] cp_verdict accept_marked(Packet packet, cp_reason reason)
{
	return accept(counted_row_of_mark(packet.mark()), reason);
}
[[gnu::noinline]] cp_verdict drop_marked(Packet packet, cp_reason reason)
{
	return drop(counted_row_of_mark(packet.mark()), reason);
}

enum class PrintedPorts {
	// The step says nothing.
	none,
	host_order,
	// Deliberately the fields as they lie in the packet, read as numbers.
	as_in_packet,
};

// True when the flag byte, and with it the ports, lies outside the packet.
bool is_cut_before_flags(Packet packet)
{
	return !packet.tcp_flags().has_value() && !packet.is_later_fragment();
}

bool is_syn(Packet packet)
{
	const Field<TcpFlags> flags = packet.tcp_flags();
	return flags.has_value() && flags.value().syn();
}

// Records a redirected connection. Of a rewritable packet, so every field is there.
void upsert_connection(Packet packet, uint32_t row, PrintedPorts printed)
{
	const Client client{packet.source_address().value(), packet.source_port().value()};
	const Destination destination{packet.destination_address().value(), packet.destination_port().value()};
	if (update_connection(row, client, destination)) {
		return;
	}
	if (printed != PrintedPorts::none && debug_level_reaches(3)) {
		const bool host_order = printed == PrintedPorts::host_order;
		cp_log(CP_LOG_DEBUG,
		       "nf_cp_check: add to table_list, if_index=%d  saddr=%pI4 daddr=%pI4  src port=%d dest port=%d\n",
		       static_cast<int32_t>(row), &client.address, &destination.address,
		       host_order ? client.port.host() : client.port.raw,
		       host_order ? destination.port.host() : destination.port.raw);
	}
	add_connection(row, client, destination, packet.destination_mac().value());
}

void log_social_login(Ipv4Address destination, uint16_t port, Packet packet)
{
	const Field<Ipv4Address> source = packet.source_address();
	const Field<be16> source_port = packet.source_port();
	if (!debug_level_reaches(3) || !source.has_value() || !source_port.has_value()) {
		return;
	}
	const Ipv4Address source_address = source.value();
	cp_log(CP_LOG_DEBUG, "[captive portal]dest ip is 2.2.2.2,daddr=%pI4,dst port=%d,saddr=%pI4,src port=%d\n",
	       &destination, port, &source_address, source_port.value().host());
}

// Why a segment is dropped instead of being redirected: there is no redirect port for its own, or it cannot be rewritten.
cp_reason reason_of_no_redirect(Field<uint16_t> redirect_port)
{
	return redirect_port.has_value() ? CP_REASON_DROP_UNWRITABLE : CP_REASON_DROP_TCP_PORT;
}

// An unadmitted client's segment to the social-login address.
cp_verdict intercept_social_login(Packet packet)
{
	const Field<be16> port = packet.destination_port();
	const Field<uint16_t> redirect_port = social_login_ports.choose(port);
	if (!redirect_port.has_value() || !packet.is_rewritable()) {
		return drop_marked(packet, reason_of_no_redirect(redirect_port));
	}
	if (is_syn(packet)) {
		upsert_connection(packet, CP_ROW_SOCIAL_LOGIN, PrintedPorts::host_order);
	}
	if (!redirect_to_ap(packet, redirect_port.value())) {
		return drop_marked(packet, CP_REASON_DROP_UNWRITABLE);
	}
	log_social_login(packet.destination_address().value(), port.value().host(), packet);
	return accept_marked(packet, CP_REASON_REDIRECT_SOCIAL);
}

enum class Garden {
	accepts,
	drops,
	has_no_say,
};

Garden ask_walled_garden(Packet packet, Ipv4Address destination, uint32_t index, bool drops_https)
{
	if (is_walled_garden_enable(packet.mark()) == 0) {
		return Garden::has_no_say;
	}
	if (match_garden_list(GardenQuery::address, destination, nullptr, index) ||
	    match_dns_aRecord_garden_list(destination, index)) {
		if (debug_level_reaches(3)) {
			cp_log(CP_LOG_DEBUG, "nf_cp_check: match walled garden, if_index=%d daddr=%pI4\n",
			       static_cast<int32_t>(index), &destination);
		}
		return Garden::accepts;
	}
	if (!drops_https) {
		return Garden::has_no_say;
	}
	if (debug_level_reaches(3)) {
		const Ipv4Address source = packet.source_address().value();
		cp_log(CP_LOG_DEBUG,
		       "nf_cp_check: not match walled garden and drop https, if_index=%d saddr=%pI4 daddr=%pI4\n",
		       static_cast<int32_t>(index), &source, &destination);
	}
	return Garden::drops;
}

// The redirect ports of a mark whose portal is on.
Field<uint16_t> choose_portal_port(uint32_t mark, uint32_t mode, Field<be16> port)
{
	if (mark == MARK_MIREL_BLACK) {
		return mirel_ports.choose(port);
	}
	if (mode == CP_MODE_INTERNET_PASSES) {
		return mode_7_ports.choose(port);
	}
	const Field<uint32_t> index = find_row_by_mark(mark);
	if (!index.has_value()) {
		return {};
	}
	const cp_row &row = captive_portal_table[index.value()];
	return WebPorts{load_word(row.http_port), load_word(row.https_port)}.choose(port);
}

cp_reason reason_of_special_mark(uint32_t mark)
{
	if (mark == MARK_LOGOUT) {
		return CP_REASON_REDIRECT_LOGOUT;
	}
	return mark == MARK_DNS_FILTER ? CP_REASON_REDIRECT_FILTER : CP_REASON_REDIRECT_REPUTATION;
}

// The special marks and the social-login address, for packets of any port. One whose portal is on comes here only when it
// is not TCP, or whole and rewritten, so nothing that it needs is missing; any other is accepted when something is.
cp_verdict judge_special_marks(Packet packet, IngressBridge &bridge)
{
	const uint32_t mark = packet.mark();
	const Field<Ipv4Address> destination = packet.destination_address();
	if (!(packet.protocol() == IpProtocol::tcp)) {
		return CP_ACCEPT;
	}
	if (!destination.has_value()) {
		return CP_ACCEPT;
	}
	const Ipv4Address old_destination = destination.value();
	const bool social_login = old_destination == load_word(socialogin_addr);
	if (mark != MARK_LOGOUT && mark != MARK_DNS_FILTER && !social_login && !is_reputation_mark(mark)) {
		return CP_ACCEPT;
	}

	if (is_cut_before_flags(packet)) {
		return CP_ACCEPT;
	}
	const uint32_t row = social_login ? CP_ROW_SOCIAL_LOGIN : CP_ROW_SPECIAL_MARK;
	const Field<be16> port = packet.destination_port();
	if (is_syn(packet) && is_web_port(port) && packet.is_rewritable()) {
		upsert_connection(packet, row, PrintedPorts::as_in_packet);
	}

	const Identity identity = refresh_ap_identity(bridge.name());
	if (identity == Identity::unknown) {
		return accept(row, CP_REASON_PASS_NO_IDENTITY);
	}
	const bool verbose = debug_level_reaches(3);
	if (identity == Identity::refreshed && verbose) {
		cp_log(CP_LOG_DEBUG, "init ap_addr %d %s\n", refresh_place, "nf_cp_check");
	}

	Field<uint16_t> redirect_port;
	const bool http = port == be16::from_host(CP_PORT_HTTP);
	if (social_login) {
		redirect_port = social_login_ports.choose(port);
		if (redirect_port.has_value()) {
			// Deliberately the new port as it will lie in the packet.
			log_social_login(old_destination, be16::from_host(redirect_port.value()).raw, packet);
		}
	} else if (mark == MARK_DNS_FILTER) {
		redirect_port = dns_filter_ports.choose(port);
		if (redirect_port.has_value() && verbose) {
			cp_log(CP_LOG_DEBUG, http ? "[captive portal]http port, dest ip is 4.4.4.4\n" :
						    "[captive portal]https port, dest ip is 4.4.4.4\n");
		}
	} else if (is_reputation_mark(mark)) {
		const auto rule = static_cast<uint16_t>(mark - MARK_REPUTATION_FIRST);
		redirect_port = WebPorts{static_cast<uint16_t>(CP_PORT_REPUTATION_HTTP_FIRST + rule),
					 static_cast<uint16_t>(CP_PORT_REPUTATION_HTTPS_FIRST + rule)}
					.choose(port);
		if (verbose) {
			cp_log(CP_LOG_DEBUG, !redirect_port.has_value() ?
						     "[captive portal] dest ip hit ip raputation rule !!!\n" :
					     http ? "[captive portal]dest ip hit ip raputation rule !!!\n" :
						    "[captive portal]dest ip hit https ip raputation rule !!!\n");
		}
	} else {
		redirect_port = static_cast<uint16_t>(CP_PORT_LOGOUT);
		if (verbose) {
			cp_log(CP_LOG_DEBUG, "[captive portal]dest ip match logout ip addr\n");
		}
	}
	if (!redirect_port.has_value()) {
		return drop(row, CP_REASON_DROP_TCP_PORT);
	}
	if (!packet.is_rewritable()) {
		return CP_ACCEPT;
	}
	return redirect_to_ap(packet, redirect_port.value()) ?
		       accept(row, social_login ? CP_REASON_REDIRECT_SOCIAL : reason_of_special_mark(mark)) :
		       drop(row, CP_REASON_DROP_UNWRITABLE);
}

cp_reason reason_of_portal(uint32_t mark, uint32_t mode)
{
	if (mark == MARK_MIREL_BLACK) {
		return CP_REASON_REDIRECT_MIREL;
	}
	return mode == CP_MODE_INTERNET_PASSES ? CP_REASON_REDIRECT_MODE_7 : CP_REASON_REDIRECT_PORTAL;
}

// TCP of a client that is not admitted.
cp_verdict intercept_tcp(Packet packet, uint32_t mode, IngressBridge &bridge)
{
	if (mode == CP_MODE_DROP_TCP) {
		return drop_marked(packet, CP_REASON_DROP_TCP_MODE);
	}
	if (refresh_ap_identity(bridge.name()) == Identity::unknown) {
		return accept_marked(packet, CP_REASON_PASS_NO_IDENTITY);
	}
	const Field<Ipv4Address> destination = packet.destination_address();
	if (!destination.has_value()) {
		return drop_marked(packet, CP_REASON_DROP_CUT);
	}
	if (destination == load_word(socialogin_addr)) {
		return intercept_social_login(packet);
	}
	const Field<be16> port = packet.destination_port();
	if (!port.has_value() && !packet.is_later_fragment()) {
		return drop_marked(packet, CP_REASON_DROP_CUT);
	}
	if (is_web_port(port) && destination == load_word(ap_addr)) {
		return accept_marked(packet, CP_REASON_PASS_AP_WEB);
	}

	const uint32_t block = is_block_https_enable(packet.mark());
	const bool https = port == be16::from_host(CP_PORT_HTTPS);
	if (https && block == CP_HTTPS_PASSES) {
		if (debug_level_reaches(3)) {
			cp_log(CP_LOG_DEBUG, "[captive portal]block disable, ACCEPT it\n");
		}
		return accept_marked(packet, CP_REASON_PASS_HTTPS);
	}

	const uint32_t index = get_iface_by_mark(packet.mark());
	switch (ask_walled_garden(packet, destination.value(), index, https && block == CP_HTTPS_BLOCKED)) {
	case Garden::accepts:
		return accept_marked(packet, CP_REASON_PASS_GARDEN);
	case Garden::drops:
		return drop_marked(packet, CP_REASON_DROP_HTTPS);
	case Garden::has_no_say:
		break;
	}

	const Field<uint16_t> redirect_port = choose_portal_port(packet.mark(), mode, port);
	if (!redirect_port.has_value() || !packet.is_rewritable()) {
		return drop_marked(packet, reason_of_no_redirect(redirect_port));
	}
	if (is_syn(packet)) {
		upsert_connection(packet, index, PrintedPorts::none);
	}
	if (!redirect_to_ap(packet, redirect_port.value())) {
		return drop_marked(packet, CP_REASON_DROP_UNWRITABLE);
	}
	count(counted_row_of_mark(packet.mark()), reason_of_portal(packet.mark(), mode));
	return judge_special_marks(packet, bridge);
}

// A packet whose mark belongs to a portal that is on.
cp_verdict intercept(Packet packet, uint32_t mode, IngressBridge &bridge)
{
	const Field<EtherType> type = packet.ether_type();
	if (!type.has_value() || type == EtherType::ipv6) {
		return drop_marked(packet, CP_REASON_DROP_NOT_IPV4);
	}
	const Field<IpProtocol> protocol = packet.protocol();
	if (mode == CP_MODE_INTERNET_PASSES) {
		const Field<Ipv4Address> destination = packet.destination_address();
		if (!destination.has_value()) {
			return drop_marked(packet, CP_REASON_DROP_CUT);
		}
		if (is_dst_internet(destination.value()) || is_dst_gateway(destination.value()) ||
		    (protocol == IpProtocol::icmp && is_dst_ap(destination.value()))) {
			return accept_marked(packet, CP_REASON_PASS_INTERNET);
		}
	}
	if (!protocol.has_value() || protocol == IpProtocol::icmp) {
		return drop_marked(packet, protocol.has_value() ? CP_REASON_DROP_ICMP : CP_REASON_DROP_CUT);
	}
	if (protocol == IpProtocol::udp) {
		const Field<be16> source = packet.source_port();
		const Field<be16> destination = packet.destination_port();
		if (!source.has_value() || !destination.has_value()) {
			return drop_marked(packet, CP_REASON_DROP_CUT);
		}
		const auto either_is = [&](uint16_t port) {
			return source == be16::from_host(port) || destination == be16::from_host(port);
		};
		return either_is(CP_PORT_DHCP_CLIENT) || either_is(CP_PORT_DNS) ?
			       accept_marked(packet, CP_REASON_PASS_DHCP_DNS) :
			       drop_marked(packet, CP_REASON_DROP_UDP);
	}
	if (protocol == IpProtocol::tcp) {
		return intercept_tcp(packet, mode, bridge);
	}
	count(counted_row_of_mark(packet.mark()), CP_REASON_PASS_PROTOCOL);
	return judge_special_marks(packet, bridge);
}

[[gnu::noinline]] cp_verdict check(PacketAtHook packet)
{
	IngressBridge bridge(packet.in_name());
	const uint32_t mode = is_captive_portal_enable(packet.mark());
	return mode == CP_MODE_OFF ? judge_special_marks(packet.alone(), bridge) :
				     intercept(packet.alone(), mode, bridge);
}

} // namespace

} // namespace captive_portal

using namespace captive_portal;

cp_verdict nf_cp_check(cp_packet *raw, const cp_ports *ports)
{
	const PacketAtHook packet(raw, ports);
	// Nearly every frame of an admitted client is one that check() accepts without a word.
	const bool passes = packet.mark() == 0 && are_rows_filled() && !debug_level_reaches(3) &&
			    packet.has_ipv4_header() && !(packet.destination_address() == load_word(socialogin_addr));
	return passes ? CP_ACCEPT : check(packet);
}
