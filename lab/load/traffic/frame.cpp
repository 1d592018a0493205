#include "frame.h"

namespace load
{

namespace
{

constexpr uint8_t tag_mark[4] = {'l', 'o', 'a', 'd'};
constexpr uint16_t ethertype_ipv4 = 0x0800, ethertype_arp = 0x0806, ethertype_ipv6 = 0x86dd;
constexpr uint8_t protocol_icmp = 1, protocol_tcp = 6, protocol_udp = 17;
constexpr unsigned smallest_frame = 60;
constexpr Mac everybody = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

void put16(uint8_t *at, uint16_t value)
{
	at[0] = value >> 8;
	at[1] = value & 0xff;
}

void put32(uint8_t *at, uint32_t value)
{
	put16(at, value >> 16);
	put16(at + 2, value & 0xffff);
}

uint32_t sum(const uint8_t *data, unsigned size, uint64_t total)
{
	for (; size > 1; data += 2, size -= 2)
		total += data[0] << 8 | data[1];
	if (size)
		total += data[0] << 8;
	while (total >> 16)
		total = (total & 0xffff) + (total >> 16);
	return total;
}

void put_tag(Frame &frame, uint32_t number)
{
	uint8_t *at = frame.bytes + frame.length - tag_size;
	memcpy(at, tag_mark, sizeof(tag_mark));
	put32(at + 4, number);
}

void put_ethernet(Frame &frame, const Mac &from, const Mac &to, uint16_t type)
{
	memcpy(frame.bytes, to.data(), to.size());
	memcpy(frame.bytes + 6, from.data(), from.size());
	put16(frame.bytes + 12, type);
}

uint8_t *const no_sum = nullptr;

// Both checksums of a packet that is complete but for them; `field` is the transport's, if it covers a pseudo header.
void put_sums(Frame &frame, uint8_t *field)
{
	uint8_t *ip = frame.bytes + ethernet_header;
	put16(ip + 10, 0);
	put16(ip + 10, ~sum(ip, ipv4_header, 0));
	if (field == no_sum)
		return;
	unsigned size = frame.length - ethernet_header - ipv4_header;
	put16(field, 0);
	uint16_t value = ~sum(ip + ipv4_header, size, sum(ip + 12, 8, ip[9] + size));
	put16(field, value == 0 && ip[9] == protocol_udp ? 0xffff : value);
}

uint8_t *start_ipv4(Frame &frame, const End &from, const End &to, uint8_t protocol, unsigned behind, uint32_t number)
{
	frame.length = ethernet_header + ipv4_header + behind;
	put_ethernet(frame, from.mac, to.mac, ethertype_ipv4);
	uint8_t *ip = frame.bytes + ethernet_header;
	ip[0] = 0x45;
	ip[1] = 0;
	put16(ip + 2, ipv4_header + behind);
	put16(ip + 4, number & 0xffff);
	put16(ip + 6, 0x4000);
	ip[8] = 64;
	ip[9] = protocol;
	put32(ip + 12, from.address);
	put32(ip + 16, to.address);
	return ip + ipv4_header;
}

uint8_t *tcp_sum(Frame &frame)
{
	return frame.bytes + ethernet_header + ipv4_header + 16;
}
uint8_t *udp_sum(Frame &frame)
{
	return frame.bytes + ethernet_header + ipv4_header + 6;
}

} // namespace

void make_tcp(Frame &frame, const End &from, const End &to, uint8_t flags, unsigned payload, uint32_t number)
{
	uint8_t *tcp = start_ipv4(frame, from, to, protocol_tcp, tcp_header + payload, number);
	put16(tcp, from.port);
	put16(tcp + 2, to.port);
	put32(tcp + 4, number);
	put32(tcp + 8, flags & tcp_ack ? 1 : 0);
	tcp[12] = 5 << 4;
	tcp[13] = flags;
	put16(tcp + 14, 8192);
	put16(tcp + 18, 0);
	memset(tcp + tcp_header, number & 0xff, payload - tag_size);
	put_tag(frame, number);
	put_sums(frame, tcp_sum(frame));
}

void make_udp(Frame &frame, const End &from, const End &to, unsigned payload, uint32_t number)
{
	uint8_t data[largest_frame];
	memset(data, number & 0xff, payload - tag_size);
	make_udp_with(frame, from, to, data, payload - tag_size, number);
}

void make_udp_with(Frame &frame, const End &from, const End &to, const uint8_t *data, unsigned size, uint32_t number)
{
	unsigned datagram = udp_header + size + tag_size;
	uint8_t *udp = start_ipv4(frame, from, to, protocol_udp, datagram, number);
	put16(udp, from.port);
	put16(udp + 2, to.port);
	put16(udp + 4, datagram);
	memcpy(udp + udp_header, data, size);
	put_tag(frame, number);
	put_sums(frame, udp_sum(frame));
}

void make_ping(Frame &frame, const End &from, const End &to, uint32_t number)
{
	unsigned size = 8 + 32 + tag_size;
	uint8_t *icmp = start_ipv4(frame, from, to, protocol_icmp, size, number);
	memset(icmp, 0, size);
	icmp[0] = 8;
	put16(icmp + 6, number & 0xffff);
	put_tag(frame, number);
	put_sums(frame, no_sum);
	put16(icmp + 2, ~sum(icmp, size, 0));
}

void make_ipv6_tcp(Frame &frame, const End &from, const End &to, uint16_t port, uint32_t number)
{
	unsigned size = tcp_header + tag_size;
	frame.length = ethernet_header + 40 + size;
	put_ethernet(frame, from.mac, to.mac, ethertype_ipv6);
	uint8_t *ip = frame.bytes + ethernet_header;
	memset(ip, 0, 40 + size);
	ip[0] = 0x60;
	put16(ip + 4, size);
	ip[6] = protocol_tcp;
	ip[7] = 64;
	for (unsigned at : {8, 24}) {
		put32(ip + at, 0x20010db8);
		put32(ip + at + 12, at == 8 ? from.address : to.address);
	}
	uint8_t *tcp = ip + 40;
	put16(tcp, from.port);
	put16(tcp + 2, port);
	tcp[12] = 5 << 4;
	tcp[13] = tcp_syn;
	put_tag(frame, number);
	put16(tcp + 16, ~sum(tcp, size, sum(ip + 8, 32, protocol_tcp + size)));
}

void make_arp_question(Frame &frame, const End &from, uint32_t address, uint32_t number)
{
	frame.length = smallest_frame;
	put_ethernet(frame, from.mac, everybody, ethertype_arp);
	uint8_t *arp = frame.bytes + ethernet_header;
	memset(arp, 0, smallest_frame - ethernet_header);
	put16(arp, 1);
	put16(arp + 2, ethertype_ipv4);
	arp[4] = 6;
	arp[5] = 4;
	put16(arp + 6, 1);
	memcpy(arp + 8, from.mac.data(), 6);
	put32(arp + 14, from.address);
	put32(arp + 24, address);
	put_tag(frame, number);
}

void redirect(Frame &frame, const End &to)
{
	uint8_t *ip = frame.bytes + ethernet_header;
	memcpy(frame.bytes, to.mac.data(), 6);
	put32(ip + 16, to.address);
	put16(ip + ipv4_header + 2, to.port);
	put_sums(frame, tcp_sum(frame));
}

void pretend(Frame &frame, const End &from)
{
	uint8_t *ip = frame.bytes + ethernet_header;
	memcpy(frame.bytes + 6, from.mac.data(), 6);
	put32(ip + 12, from.address);
	put16(ip + ipv4_header, from.port);
	put_sums(frame, tcp_sum(frame));
}

bool same_frame(const Frame &wanted, const uint8_t *seen, unsigned length)
{
	if (length != wanted.length)
		return false;
	if (memcmp(wanted.bytes, seen, length) == 0)
		return true;
	constexpr unsigned at = ethernet_header + ipv4_header + 16;
	auto is_zero = [](const uint8_t *field) { return (field[0] == 0 || field[0] == 0xff) && field[0] == field[1]; };
	return length > at + 2 && wanted.bytes[ethernet_header + 9] == protocol_tcp && is_zero(wanted.bytes + at) &&
	       is_zero(seen + at) && memcmp(wanted.bytes, seen, at) == 0 &&
	       memcmp(wanted.bytes + at + 2, seen + at + 2, length - at - 2) == 0;
}

bool read_tag(const uint8_t *bytes, unsigned length, uint32_t &number)
{
	if (length < smallest_frame - tag_size || memcmp(bytes + length - tag_size, tag_mark, sizeof(tag_mark)) != 0)
		return false;
	const uint8_t *at = bytes + length - 4;
	number = uint32_t(at[0]) << 24 | at[1] << 16 | at[2] << 8 | at[3];
	return true;
}

} // namespace load
