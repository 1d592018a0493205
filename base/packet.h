// SPDX-License-Identifier: GPL-2.0-only
// The one front door to a packet's bytes. Nothing outside the packet is ever read: a header field that does not lie
// inside it whole is missing. Lengths that the headers claim are not believed; only the packet's real length bounds.
#pragma once

#include "base/byte_order.h"
#include "base/field.h"
#include "base/mac_address.h"
#include "platform/platform.h"

namespace captive_portal
{

enum class EtherType : uint16_t {
	ipv4 = 0x0800,
	ipv6 = 0x86DD,
	// Two vendor types that always pass.
	exempt_first = 0x886B,
	exempt_second = 0x886C,
};

enum class IpProtocol : uint8_t {
	icmp = 1,
	tcp = 6,
	udp = 17,
};

// The flag byte of a TCP header.
struct TcpFlags {
	uint8_t bits;

	[[nodiscard]] constexpr bool syn() const { return (bits & 0x02) != 0; }
	[[nodiscard]] constexpr bool fin_and_ack() const { return (bits & 0x11) == 0x11; }
};

// Offsets inside the Ethernet header, the IPv4 header, and a TCP or UDP header.
struct Offset {
	enum Ethernet : uint32_t { destination_mac = 0, source_mac = 6, ether_type = 12 };
	enum Ipv4 : uint32_t {
		version_and_header_length = 0,
		total_length = 2,
		fragment = 6,
		protocol = 9,
		header_checksum = 10,
		source_address = 12,
		destination_address = 16,
	};
	enum Transport : uint32_t { source_port = 0, destination_port = 2, tcp_flags = 13, tcp_checksum = 16 };
};

class Packet;

// A packet whose Ethernet, IPv4 and TCP header bytes are this packet's own. Only Packet::make_writable() gives one.
class WritablePacket
{
public:
	void write_destination_mac(const MacAddress &mac) { write_ethernet(Offset::destination_mac, mac); }
	void write_source_mac(const MacAddress &mac) { write_ethernet(Offset::source_mac, mac); }

	// Write the address or port, and fix the TCP checksum for it. The IPv4 header checksum is left to its own call.
	void write_destination(Ipv4Address address, be16 port);
	void write_source(Ipv4Address address, be16 port);

	// Computes the IPv4 header checksum anew over the whole header, options included.
	void finish_ipv4_header();

	void set_host() { cp_packet_set_host(&packet_); }

private:
	friend class Packet;
	explicit WritablePacket(cp_packet &packet) : packet_(packet) {}

	void write_ethernet(uint32_t offset, const MacAddress &mac);
	void write_end(uint32_t address_offset, uint32_t port_offset, Ipv4Address address, be16 port);

	cp_packet &packet_;
};

// Reads go through the platform's pointers each time and give values, so none outlives a move of the packet's data.
class Packet
{
public:
	explicit Packet(cp_packet &packet) : packet_(packet) {}

	// Names of the ingress and egress device, null where the hook has none.
	[[nodiscard]] const char *in_name() const { return packet_.in_name; }
	[[nodiscard]] const char *out_name() const { return packet_.out_name; }

	[[nodiscard]] uint32_t mark() const { return packet_.mark; }
	void set_mark(uint32_t mark) { packet_.mark = mark; }

	[[nodiscard]] Field<EtherType> ether_type() const
	{
		const Field<be16> type = ethernet_field<be16>(Offset::ether_type);
		return type.has_value() ? Field<EtherType>(static_cast<EtherType>(type.value().host())) :
					  Field<EtherType>();
	}
	[[nodiscard]] Field<MacAddress> source_mac() const { return ethernet_field<MacAddress>(Offset::source_mac); }
	[[nodiscard]] Field<MacAddress> destination_mac() const
	{
		return ethernet_field<MacAddress>(Offset::destination_mac);
	}

	// Fields of the IPv4 header, whatever the EtherType says: the bytes at those places.
	[[nodiscard]] Field<uint8_t> ip_version() const;
	[[nodiscard]] Field<IpProtocol> protocol() const { return network_field<IpProtocol>(Offset::protocol); }
	[[nodiscard]] Field<Ipv4Address> source_address() const
	{
		return network_field<Ipv4Address>(Offset::source_address);
	}
	[[nodiscard]] Field<Ipv4Address> destination_address() const
	{
		return network_field<Ipv4Address>(Offset::destination_address);
	}

	// True when the packet is a fragment other than the first: it has no transport header, however long it is.
	[[nodiscard]] bool is_later_fragment() const;

	// Fields of the transport header, which starts 4 x IHL bytes after the Ethernet header. A fragment whose offset is
	// not 0 has none.
	[[nodiscard]] Field<be16> source_port() const { return transport_field<be16>(Offset::source_port); }
	[[nodiscard]] Field<be16> destination_port() const { return transport_field<be16>(Offset::destination_port); }
	[[nodiscard]] Field<TcpFlags> tcp_flags() const { return transport_field<TcpFlags>(Offset::tcp_flags); }

	// True when an address and a port of it may be rewritten: EtherType IPv4, IHL of 5 or more, and a TCP header that
	// reaches to its checksum.
	[[nodiscard]] bool is_rewritable() const;

	// Of a rewritable packet: makes its headers writable and calls `rewrite(WritablePacket &)`. False, and the packet
	// as it was, when memory is short.
	template <typename Rewrite> [[nodiscard]] bool make_writable(Rewrite rewrite)
	{
		if (cp_packet_make_writable(&packet_, transport_offset().value() + tcp_header_bytes_to_checksum) != 0) {
			return false;
		}
		WritablePacket writable(packet_);
		rewrite(writable);
		return true;
	}

private:
	static constexpr uint32_t tcp_header_bytes_to_checksum = Offset::tcp_checksum + sizeof(be16);

	template <typename T>
	[[nodiscard]] static Field<T> field_at(const uint8_t *bytes, uint32_t count, uint32_t offset)
	{
		if (offset + sizeof(T) > count) {
			return {};
		}
		return read_unaligned<T>(bytes + offset);
	}
	template <typename T> [[nodiscard]] Field<T> ethernet_field(uint32_t offset) const
	{
		return field_at<T>(packet_.ethernet, packet_.ethernet_bytes, offset);
	}
	template <typename T> [[nodiscard]] Field<T> network_field(uint32_t offset) const
	{
		return field_at<T>(packet_.network, packet_.network_bytes, offset);
	}
	template <typename T> [[nodiscard]] Field<T> transport_field(uint32_t offset) const
	{
		const Field<uint32_t> start = transport_offset();
		return start.has_value() ? network_field<T>(start.value() + offset) : Field<T>();
	}
	[[nodiscard]] Field<uint32_t> transport_offset() const;

	cp_packet &packet_;
};

} // namespace captive_portal
