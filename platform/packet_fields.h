// SPDX-License-Identifier: GPL-2.0-only
// Reading a packet's fields where the platform keeps them, without a call and without a copy: three hooks see every frame.
// Pointers are good until the next call that takes the packet and may move its data (cp_packet_make_writable).
#pragma once

#include "platform/platform.h"

// The Ethernet header, not to be read if there are no bytes, and how many bytes are readable there: 14, fewer only in a cut
// frame.
[[nodiscard]] inline const uint8_t *cp_packet_ethernet(const cp_packet *packet);
[[nodiscard]] inline uint32_t cp_packet_ethernet_bytes(const cp_packet *packet);

// What follows the Ethernet header in the packet's buffer, how many bytes are readable there, all inside the packet, and
// how many the packet has there in all; cp_packet_copy() reaches every one.
[[nodiscard]] inline const uint8_t *cp_packet_network(const cp_packet *packet);
[[nodiscard]] inline uint32_t cp_packet_network_bytes(const cp_packet *packet);
[[nodiscard]] inline uint32_t cp_packet_network_length(const cp_packet *packet);

// Its mark, to be read and written.
[[nodiscard]] inline uint32_t &cp_packet_mark(cp_packet *packet);

// The name of the ingress and of the egress device, a field of 16 bytes (IFNAMSIZ) that may change meanwhile; null where
// the hook has none.
[[nodiscard]] inline const char *cp_in_name(const cp_ports *ports);
[[nodiscard]] inline const char *cp_out_name(const cp_ports *ports);

#ifdef __KERNEL__
#include "platform/linux/packet_fields.h"
#else
#include "platform/host/packet_fields.h"
#endif
