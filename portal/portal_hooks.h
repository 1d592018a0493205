// SPDX-License-Identifier: GPL-2.0-only
// The two bridge hooks of the portal.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

// Bridge pre-routing, after the gatekeeper: passes, drops, or redirects a packet by its mark.
extern "C" [[nodiscard]] cp_verdict nf_cp_check(cp_packet *packet, const cp_ports *ports);

// Bridge post-routing: makes the replies of the redirect ports look as if they came from where the client sent its
// request. Accepts always.
extern "C" [[nodiscard]] cp_verdict nf_cp_change(cp_packet *packet, const cp_ports *ports);

} // namespace captive_portal
