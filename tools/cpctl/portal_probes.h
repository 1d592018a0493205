// SPDX-License-Identifier: GPL-2.0-only
// The hosts that systems ask, when they join a network, whether there is a portal.
#pragma once

#include <span>
#include <string_view>

namespace cpctl
{

struct PortalProbe {
	std::string_view host;
	// Who asks.
	std::string_view system;
};

[[nodiscard]] std::span<const PortalProbe> portal_probes();

} // namespace cpctl
