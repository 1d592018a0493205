// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/frame_words.h"

#include <algorithm>
#include <array>
#include <limits>

#include "captive_portal/interface_index.h"
#include "captive_portal/ports.h"
#include "cpctl/explain/frame_bytes.h"
#include "cpctl/failure.h"
#include "cpctl/quoted.h"
#include "cpctl/value_names.h"

namespace cpctl
{

namespace
{

constexpr uint16_t port_of_no_service = 51000;
constexpr uint16_t dhcp_server_port = 67;
constexpr MacAddress some_router = {0x02, 0, 0, 0, 0, 0xfe};
constexpr MacAddress broadcast = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

struct NamedFlags {
	std::string_view name;
	uint8_t flags;
};
constexpr std::array named_flags = {
	NamedFlags{"syn", tcp_syn}, NamedFlags{"syn-ack", tcp_syn | tcp_ack},
	NamedFlags{"ack", tcp_ack}, NamedFlags{"fin-ack", tcp_fin | tcp_ack},
	NamedFlags{"rst", tcp_rst},
};

// What the words of one frame say, before it has bytes.
struct Description {
	FrameRequest request = {.in = {}, .out = {}};
	std::optional<MacAddress> from = {};
	std::optional<MacAddress> to = {};
	std::string kind = {};
	Endpoint source = {};
	Endpoint destination = {};
	std::optional<uint16_t> port = {};
	std::optional<uint16_t> source_port = {};
	std::optional<uint8_t> protocol = {};
	std::optional<uint8_t> flags = {};
};

std::string parse_device(const std::string &name)
{
	if (name.empty() || name.size() >= CP_INTERFACE_NAME_SIZE ||
	    name.find_first_of("/ \t\n") != std::string::npos) {
		throw usage_failure(quoted(name) + " is no name of a network device");
	}
	return name;
}

template <typename Number> Number parse_limited(const std::string &word, std::string_view what)
{
	const uint32_t number = parse_number(word, what);
	if (number > std::numeric_limits<Number>::max()) {
		throw usage_failure(quoted(word) + " is no " + std::string(what) + ": the highest is " +
				    std::to_string(std::numeric_limits<Number>::max()));
	}
	return static_cast<Number>(number);
}

// Reads the words of one frame into a description.
class Reader
{
public:
	Reader(std::span<const std::string> words, Description &description) : rest_(words), frame_(description) {}

	void read()
	{
		while (!rest_.empty()) {
			const std::string &word = take();
			if (!read_place(word) && !read_kind(word) && !read_detail(word)) {
				throw usage_failure(
					quoted(word) +
					" says nothing of a frame that cpctl knows: see cpctl explain --help");
			}
		}
	}

	void read_places_alone()
	{
		while (!rest_.empty()) {
			const std::string &word = take();
			if (!read_place(word) || word == "from" || word == "to") {
				throw usage_failure(
					quoted(word) +
					" is written in the frame's bytes: dev, out, mark and cached alone may "
					"stand beside them");
			}
		}
	}

private:
	const std::string &take()
	{
		const std::string &word = rest_.front();
		rest_ = rest_.subspan(1);
		return word;
	}

	const std::string &take_behind(const std::string &word)
	{
		if (rest_.empty()) {
			throw usage_failure("something is missing behind " + quoted(word) +
					    ": see cpctl explain --help");
		}
		return take();
	}

	bool read_place(const std::string &word)
	{
		if (word == "dev") {
			frame_.request.in = parse_device(take_behind(word));
		} else if (word == "out") {
			frame_.request.out = parse_device(take_behind(word));
		} else if (word == "from") {
			frame_.from = parse_mac(take_behind(word));
		} else if (word == "to") {
			frame_.to = parse_mac(take_behind(word));
		} else if (word == "mark") {
			frame_.request.mark = parse_number(take_behind(word), "mark");
		} else if (word == "cached") {
			frame_.request.cached = true;
		} else {
			return false;
		}
		return true;
	}

	bool read_kind(const std::string &word)
	{
		constexpr std::array with_addresses = {"tcp", "udp", "icmp", "ip"};
		constexpr std::array without = {"dhcp", "arp", "ipv6", "reply"};
		const bool addressed = std::ranges::find(with_addresses, word) != with_addresses.end();
		if (!addressed && std::ranges::find(without, word) == without.end()) {
			return false;
		}
		if (!frame_.kind.empty()) {
			throw usage_failure("a frame is " + frame_.kind + " or " + word +
					    ", not both: then begins another one");
		}
		frame_.kind = word;
		if (addressed) {
			frame_.source.address = parse_ipv4(take_behind(word));
			frame_.destination.address = parse_ipv4(take_behind(word));
		}
		return true;
	}

	bool read_detail(const std::string &word)
	{
		if (word == "port") {
			frame_.port = parse_limited<uint16_t>(take_behind(word), "port");
		} else if (word == "sport") {
			frame_.source_port = parse_limited<uint16_t>(take_behind(word), "port");
		} else if (word == "proto") {
			frame_.protocol = parse_limited<uint8_t>(take_behind(word), "protocol's number");
		} else if (const auto *const found = std::ranges::find(named_flags, word, &NamedFlags::name);
			   found != named_flags.end()) {
			frame_.flags = found->flags;
		} else {
			return false;
		}
		return true;
	}

	std::span<const std::string> rest_;
	Description &frame_;
};

void require(bool fulfilled, const std::string &what)
{
	if (!fulfilled) {
		throw usage_failure(what);
	}
}

void require_fitting_details(const Description &frame)
{
	const bool ports = frame.kind == "tcp" || frame.kind == "udp";
	require(ports || (!frame.port && !frame.source_port), "a frame that is " + frame.kind + " has no ports");
	require(frame.kind == "tcp" || frame.kind == "reply" || !frame.flags,
		"a frame that is " + frame.kind + " has no flags of TCP");
	require((frame.kind == "ip") == frame.protocol.has_value(),
		frame.kind == "ip" ? "say of which protocol it is: proto NUMBER" :
				     "proto NUMBER goes with ip SOURCE DESTINATION");
	require(!ports || frame.port || frame.source_port, "say which port it is sent to: port PORT");
}

FrameBytes bytes_of(const Description &frame)
{
	const bool to_all = frame.kind == "dhcp" || frame.kind == "arp";
	const EthernetEnds macs = {frame.from.value_or(MacAddress{}),
				   frame.to.value_or(to_all ? broadcast : some_router)};
	const Endpoint source = {frame.source.address, frame.source_port.value_or(port_of_no_service)};
	const Endpoint destination = {frame.destination.address, frame.port.value_or(port_of_no_service)};
	if (frame.kind == "tcp") {
		return tcp_frame(macs, source, destination, frame.flags.value_or(tcp_syn));
	}
	if (frame.kind == "udp") {
		// As long as a DNS message without questions and answers: an empty datagram is none.
		constexpr std::array<uint8_t, 12> header = {};
		return udp_frame(macs, source, destination, header);
	}
	if (frame.kind == "dhcp") {
		constexpr Ipv4Address everybody = {0xffffffff};
		return udp_frame(macs, {{}, CP_PORT_DHCP_CLIENT}, {everybody, dhcp_server_port}, {});
	}
	if (frame.kind == "arp") {
		constexpr std::array<uint8_t, 28> request = {0, 1, 8, 0, 6, 4, 0, 1};
		return frame_of_type(macs, EtherType::arp, request);
	}
	if (frame.kind == "ipv6") {
		constexpr uint8_t no_next_header = 59;
		constexpr std::array<uint8_t, 40> header = {0x60, 0, 0, 0, 0, 0, no_next_header, 64};
		return frame_of_type(macs, EtherType::ipv6, header);
	}
	if (frame.kind == "icmp") {
		constexpr std::array<uint8_t, 8> echo_request = {8, 0, 0xf7, 0xff};
		return ip_frame(macs, source.address, destination.address, IpProtocol::icmp, echo_request);
	}
	constexpr std::array<uint8_t, 20> payload = {};
	return ip_frame(macs, source.address, destination.address, static_cast<IpProtocol>(*frame.protocol), payload);
}

void require_place(const FrameRequest &request)
{
	require(!request.in.empty() || !request.out.empty(),
		"say by which port of the bridge the frame comes: dev IFACE (or out IFACE, by which it leaves)");
}

FrameRequest request_of(Description frame, bool first)
{
	require(!frame.kind.empty(),
		"say what the frame is: tcp, udp, icmp, ip, dhcp, arp, ipv6, or give its bytes by --hex or --pcap");
	require_fitting_details(frame);
	if (frame.kind == "reply") {
		require(!first, "reply answers to the frame before: describe that first, and put then between the two");
		frame.request.is_reply = true;
		frame.request.reply_flags = frame.flags.value_or(tcp_syn | tcp_ack);
		return frame.request;
	}
	require_place(frame.request);
	require(frame.from || frame.request.in.empty(), "say which station sends the frame: from MAC");
	frame.request.bytes = bytes_of(frame);
	return frame.request;
}

} // namespace

std::vector<FrameRequest> parse_frames(std::span<const std::string> words)
{
	std::vector<FrameRequest> requests;
	Description before;
	for (bool more = true; more;) {
		const auto end = std::ranges::find(words, "then");
		more = end != words.end();
		const auto count = static_cast<size_t>(end - words.begin());
		Description frame;
		frame.request.in = before.request.in;
		frame.request.out = before.request.out;
		frame.from = before.from;
		frame.to = before.to;
		Reader(words.first(count), frame).read();
		requests.push_back(request_of(frame, requests.empty()));
		before = frame;
		words = words.subspan(more ? count + 1 : count);
	}
	return requests;
}

FrameRequest parse_frame_place(std::span<const std::string> words)
{
	Description frame;
	Reader(words, frame).read_places_alone();
	require_place(frame.request);
	return frame.request;
}

} // namespace cpctl
