// SPDX-License-Identifier: GPL-2.0-only
// Turning a packet towards the access point's own web service, and knowing who the access point is.
#pragma once

#include "base/packet.h"

namespace captive_portal
{

enum class Identity {
	// "br0" or the ingress port's bridge is not there, or "br0" has no IPv4 configuration.
	unknown,
	// "br0" has no address: `ap_addr` and `ap_mac` are as they were.
	unchanged,
	refreshed,
};

// Learns `ap_addr` (first address of "br0") and `ap_mac` (hardware address of `bridge`, the bridge that the ingress port
// belongs to). No lock.
[[nodiscard]] Identity refresh_ap_identity(const char *bridge);

// Rewrites the destination of a rewritable packet to `ap_addr`, `ap_mac` and `port` (host order) and hands it to this
// machine. False, and the packet unchanged, when it cannot be made writable.
[[nodiscard]] bool redirect_to_ap(Packet packet, uint16_t port);

// True for the two ports whose connections are recorded and redirected by name: 80 and 443.
[[nodiscard]] bool is_web_port(Field<be16> port);

} // namespace captive_portal
