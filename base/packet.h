// SPDX-License-Identifier: GPL-2.0-only
// The one front door to a packet's bytes. Nothing outside the packet is ever read: a header field that does not lie
// inside it whole is missing. Lengths that the headers claim are not believed; only the packet's real length bounds.
#pragma once

#include "base/bounded_read.h"
#include "base/mac_address.h"
#include "base/memory.h"
#include "platform/packet_fields.h"

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
	enum Transport : uint32_t {
		source_port = 0,
		destination_port = 2,
		udp_length = 4,
		udp_payload = 8,
		tcp_flags = 13,
		tcp_checksum = 16,
	};
};

// Reading the first fields of an IPv4 header.
struct Ipv4Header {
	static constexpr uint32_t minimal_bytes = 20;

	[[nodiscard]] static constexpr uint32_t bytes(uint8_t version_and_header_length)
	{
		constexpr uint32_t bytes_per_word = 4;
		return (version_and_header_length & 0x0f) * bytes_per_word;
	}
	// Whether the fragment field says that other fragments come before this one.
	[[nodiscard]] static constexpr bool is_later_fragment(be16 fragment)
	{
		constexpr uint16_t offset_mask = 0x1fff;
		return (fragment.raw & be16::from_host(offset_mask).raw) != 0;
	}
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

	void set_host() { cp_packet_set_host(packet_); }

private:
	friend class Packet;
	explicit WritablePacket(cp_packet *packet) : packet_(packet) {}

	void write_ethernet(uint32_t offset, const MacAddress &mac);
	void write_end(uint32_t address_offset, uint32_t port_offset, Ipv4Address address, be16 port);

	cp_packet *packet_;
};

// To be passed by value: it is a pointer. Reads go through the platform's fields each time and give values, so none outlives
// a move of the packet's data.
class Packet
{
public:
	explicit Packet(cp_packet *packet) : packet_(packet) {}

	// Of a packet at a hook: the packet alone.
	[[nodiscard]] Packet alone() const { return Packet(packet_); }

	[[nodiscard]] uint32_t mark() const { return cp_packet_mark(packet_); }
	void set_mark(uint32_t mark) { cp_packet_mark(packet_) = mark; }

	[[nodiscard]] Field<EtherType> ether_type() const
	{
		const Field<be16> type = ethernet_field<be16>(Offset::ether_type);
		return type.has_value() ? Field<EtherType>(static_cast<EtherType>(type.value().host())) :
					  Field<EtherType>();
	}
	// As MacAddress::word() gives it.
	[[nodiscard]] Field<uint64_t> source_mac_word() const
	{
		const Field<uint64_t> with_ether_type = ethernet_field<uint64_t>(Offset::source_mac);
		if (with_ether_type.has_value()) {
			return with_ether_type.value() << MacAddress::unused_bits;
		}
		const Field<MacAddress> mac = ethernet_field<MacAddress>(Offset::source_mac);
		return mac.has_value() ? Field<uint64_t>(mac.value().word()) : Field<uint64_t>();
	}
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

	// True when the Ethernet header and all fields of an IPv4 header without options are there.
	[[nodiscard]] bool has_headers() const
	{
		return cp_packet_ethernet_bytes(packet_) >= Offset::ether_type + sizeof(be16) && has_ipv4_header();
	}

	// True when all fields of an IPv4 header without options are there.
	[[nodiscard]] bool has_ipv4_header() const
	{
		return cp_packet_network_bytes(packet_) >= Ipv4Header::minimal_bytes;
	}

	// True when the packet is a fragment other than the first: it has no transport header, however long it is.
	[[nodiscard]] bool is_later_fragment() const
	{
		const Field<be16> fragment = network_field<be16>(Offset::fragment);
		return fragment.has_value() && Ipv4Header::is_later_fragment(fragment.value());
	}

	// Fields of the transport header, which starts 4 x IHL bytes after the Ethernet header. A fragment whose offset is
	// not 0 has none.
	[[nodiscard]] Field<be16> source_port() const { return transport_field<be16>(Offset::source_port); }
	[[nodiscard]] Field<be16> destination_port() const { return transport_field<be16>(Offset::destination_port); }
	[[nodiscard]] Field<TcpFlags> tcp_flags() const { return transport_field<TcpFlags>(Offset::tcp_flags); }

	// What the IPv4 total length leaves for a UDP payload, in bytes. Taken as it is: may be negative, and may be
	// more than there is.
	[[nodiscard]] Field<int32_t> claimed_udp_payload_bytes() const;

	// Bytes of the UDP payload: what the UDP length says (negative when it is below 8), but no more than the packet
	// has.
	[[nodiscard]] Field<int32_t> udp_payload_bytes() const;

	// Calls `read(const uint8_t *)` with the first `bytes` bytes of the UDP payload, which lie together whatever
	// the packet's layout: where they are if all are readable there, else in a copy. `bytes` is above 0 and at most
	// udp_payload_bytes(), so a copy is below 64 KiB. The pointer is good during the call only. False, without a
	// call, when memory for the copy is short.
	template <typename Read> [[nodiscard]] bool read_udp_payload(uint32_t bytes, Read read) const
	{
		const uint32_t offset = transport_offset() + Offset::udp_payload;
		if (offset + bytes <= cp_packet_network_bytes(packet_)) {
			read(cp_packet_network(packet_) + offset);
			return true;
		}
		const Owned<uint8_t> copy(cp_zalloc_atomic(bytes));
		if (!copy || cp_packet_copy(packet_, offset, copy.get(), bytes) != 0) {
			return false;
		}
		read(copy.get());
		return true;
	}

	// True when an address and a port of it may be rewritten: EtherType IPv4, IHL of 5 or more, and a TCP header that
	// reaches to its checksum.
	[[nodiscard]] bool is_rewritable() const;

	// Of a rewritable packet: makes its headers writable and calls `rewrite(WritablePacket &)`. False, and the packet
	// as it was, when memory is short.
	template <typename Rewrite> [[nodiscard]] bool make_writable(Rewrite rewrite)
	{
		if (cp_packet_make_writable(packet_, transport_offset() + tcp_header_bytes_to_checksum) != 0) {
			return false;
		}
		WritablePacket writable(packet_);
		rewrite(writable);
		return true;
	}

private:
	static constexpr uint32_t tcp_header_bytes_to_checksum = Offset::tcp_checksum + sizeof(be16);

	template <typename T> [[nodiscard]] Field<T> ethernet_field(uint32_t offset) const
	{
		return field_at<T>(cp_packet_ethernet(packet_), cp_packet_ethernet_bytes(packet_), offset);
	}
	template <typename T> [[nodiscard]] Field<T> network_field(uint32_t offset) const
	{
		return field_at<T>(cp_packet_network(packet_), cp_packet_network_bytes(packet_), offset);
	}
	template <typename T> [[nodiscard]] Field<T> transport_field(uint32_t offset) const
	{
		return network_field<T>(transport_offset() + offset);
	}

	// Where the transport header of a packet that has none begins: so far away that no field of it lies in any packet.
	static constexpr uint32_t beyond_any_packet = 1u << 31;

	// One comparison covers every IPv4 field of a packet that has its whole header; others are asked for field by field.
	[[nodiscard]] uint32_t transport_offset() const
	{
		if (!has_ipv4_header()) [[unlikely]] {
			return transport_offset_of_cut_header(packet_);
		}
		return Ipv4Header::is_later_fragment(
			       read_unaligned<be16>(cp_packet_network(packet_) + Offset::fragment)) ?
			       beyond_any_packet :
			       Ipv4Header::bytes(cp_packet_network(packet_)[Offset::version_and_header_length]);
	}
	[[nodiscard]] static uint32_t transport_offset_of_cut_header(const cp_packet *packet);

	cp_packet *packet_;
};

// A packet with the devices of the hook that it is at. Whoever does not ask for those takes the packet alone.
class PacketAtHook : public Packet
{
public:
	PacketAtHook(cp_packet *packet, const cp_ports *ports) : Packet(packet), ports_(ports) {}

	// Names of the ingress and egress device, null where the hook has none.
	[[nodiscard]] const char *in_name() const { return cp_in_name(ports_); }
	[[nodiscard]] const char *out_name() const { return cp_out_name(ports_); }

private:
	const cp_ports *ports_;
};

} // namespace captive_portal
