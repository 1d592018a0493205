// SPDX-License-Identifier: GPL-2.0-only
// A packet's fields in a kernel: see platform/packet_fields.h. A cp_packet is the kernel's own buffer and a cp_ports its hook
// state; where their fields lie says packet_layout.h, which the build makes from packet_layout.c.
//
// What follows the Ethernet header is taken from the buffer's data, not from the recorded network header: the bridge keeps
// the data there at both hook points, while a frame that a packet socket sends into the bridge device may carry any
// network header. The buffer's control block belongs to the bridge here and is not touched.
#pragma once

#include "platform/linux/packet_layout.h"
#include "platform/platform.h"

// The field of a kernel structure. The kernel is compiled without the rule that types do not alias.
template <typename T> [[nodiscard, gnu::always_inline]] inline T &cp_kernel_field(const void *structure, size_t offset)
{
	return *static_cast<T *>(
		static_cast<void *>(const_cast<char *>(static_cast<const char *>(structure)) + offset));
}

[[gnu::always_inline]] inline const uint8_t *cp_packet_network(const cp_packet *packet)
{
	return cp_kernel_field<const uint8_t *>(packet, CP_SKB_DATA);
}

[[gnu::always_inline]] inline uint32_t cp_packet_network_length(const cp_packet *packet)
{
	return cp_kernel_field<uint32_t>(packet, CP_SKB_LEN);
}

[[gnu::always_inline]] inline uint32_t cp_packet_network_bytes(const cp_packet *packet)
{
	return cp_packet_network_length(packet) - cp_kernel_field<uint32_t>(packet, CP_SKB_DATA_LEN);
}

// A frame whose Ethernet header is not where the bridge puts it has none that the core may read. (Whether its place was set
// is not asked: an unset one is 65,535, and what lies before the data there is head room.)
[[gnu::always_inline]] inline uint32_t cp_packet_ethernet_bytes(const cp_packet *packet)
{
	const uint8_t *const header = cp_kernel_field<const uint8_t *>(packet, CP_SKB_HEAD) +
				      cp_kernel_field<uint16_t>(packet, CP_SKB_MAC_HEADER);
	return header + CP_ETHERNET_HEADER_BYTES == cp_packet_network(packet) ? CP_ETHERNET_HEADER_BYTES : 0;
}

[[gnu::always_inline]] inline const uint8_t *cp_packet_ethernet(const cp_packet *packet)
{
	return cp_packet_network(packet) - CP_ETHERNET_HEADER_BYTES;
}

[[gnu::always_inline]] inline uint32_t &cp_packet_mark(cp_packet *packet)
{
	return cp_kernel_field<uint32_t>(packet, CP_SKB_MARK);
}

[[nodiscard, gnu::always_inline]] inline const char *cp_device_name(const cp_ports *ports, size_t offset)
{
	const char *const device = cp_kernel_field<const char *>(ports, offset);
	return device != nullptr ? device + CP_NET_DEVICE_NAME : nullptr;
}

[[gnu::always_inline]] inline const char *cp_in_name(const cp_ports *ports)
{
	return cp_device_name(ports, CP_STATE_IN);
}

[[gnu::always_inline]] inline const char *cp_out_name(const cp_ports *ports)
{
	return cp_device_name(ports, CP_STATE_OUT);
}
