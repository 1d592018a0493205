// Frames byte by byte, and what a rewrite must make of them: checksums are summed anew, never changed step by step.
//
// The last eight bytes of each frame say that it is one of the load's, and its number.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

namespace load
{

using Mac = std::array<uint8_t, 6>;

inline constexpr uint8_t tcp_fin = 0x01, tcp_syn = 0x02, tcp_ack = 0x10;
inline constexpr unsigned ethernet_header = 14, ipv4_header = 20, tcp_header = 20, udp_header = 8, tag_size = 8;
inline constexpr unsigned largest_frame = 1514;

struct Frame {
	uint16_t length = 0;
	uint8_t bytes[1530];

	bool operator==(const Frame &other) const
	{
		return length == other.length && memcmp(bytes, other.bytes, length) == 0;
	}
};

// Addresses are numbers whose highest byte is the first octet; ports in host order.
struct End {
	Mac mac;
	uint32_t address;
	uint16_t port;
};

constexpr uint32_t quad(unsigned a, unsigned b, unsigned c, unsigned d)
{
	return a << 24 | b << 16 | c << 8 | d;
}

// `payload` counts bytes behind the TCP or UDP header, the tag included: at least tag_size.
void make_tcp(Frame &, const End &from, const End &to, uint8_t flags, unsigned payload, uint32_t number);
void make_udp(Frame &, const End &from, const End &to, unsigned payload, uint32_t number);
// The data comes first in the payload, the tag behind it.
void make_udp_with(Frame &, const End &from, const End &to, const uint8_t *data, unsigned size, uint32_t number);
void make_ping(Frame &, const End &from, const End &to, uint32_t number);
void make_ipv6_tcp(Frame &, const End &from, const End &to, uint16_t port, uint32_t number);
void make_arp_question(Frame &, const End &from, uint32_t address, uint32_t number);

// The frame with its destination, or its source, replaced by another end: MAC address, IPv4 address and port.
void redirect(Frame &, const End &to);
void pretend(Frame &, const End &from);

// True if both are the same but for a TCP checksum of 0 or 0xffff, which say the same.
bool same_frame(const Frame &wanted, const uint8_t *seen, unsigned length);

// False for a frame that has no tag.
bool read_tag(const uint8_t *bytes, unsigned length, uint32_t &number);

} // namespace load
