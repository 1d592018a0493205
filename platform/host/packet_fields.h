// SPDX-License-Identifier: GPL-2.0-only
// A packet's fields in user space: see platform/packet_fields.h.
#pragma once

#include "platform/platform.h"

struct cp_packet {
	const uint8_t *ethernet;
	uint32_t ethernet_bytes;
	const uint8_t *network;
	uint32_t network_bytes;
	uint32_t network_length;
	uint32_t *mark;
	void *buffer; // the platform's own
};

struct cp_ports {
	const char *in_name;
	const char *out_name;
};

inline const uint8_t *cp_packet_ethernet(const cp_packet *packet)
{
	return packet->ethernet;
}

inline uint32_t cp_packet_ethernet_bytes(const cp_packet *packet)
{
	return packet->ethernet_bytes;
}

inline const uint8_t *cp_packet_network(const cp_packet *packet)
{
	return packet->network;
}

inline uint32_t cp_packet_network_bytes(const cp_packet *packet)
{
	return packet->network_bytes;
}

inline uint32_t cp_packet_network_length(const cp_packet *packet)
{
	return packet->network_length;
}

inline uint32_t &cp_packet_mark(cp_packet *packet)
{
	return *packet->mark;
}

inline const char *cp_in_name(const cp_ports *ports)
{
	return ports->in_name;
}

inline const char *cp_out_name(const cp_ports *ports)
{
	return ports->out_name;
}
