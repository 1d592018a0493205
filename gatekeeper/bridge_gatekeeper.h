// SPDX-License-Identifier: GPL-2.0-only
// The first bridge hook: guards the access point's own portal ports, admits known clients, marks the others.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

// Bridge pre-routing, before the portal check. May set the packet's mark. Takes no lock, but
// gatekeeper_lock where it meets commands twice.
extern "C" [[nodiscard]] cp_verdict ebt_gate_keeper(cp_packet *packet, const cp_ports *ports);

} // namespace captive_portal
