// SPDX-License-Identifier: GPL-2.0-only
// To which ports of the access point the module sends clients, as it is set.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cpctl/status_files.h"

namespace cpctl
{

struct RedirectPort {
	uint32_t port;
	// What sends them there: a row of the module's tables, "dns-filter" or "social-login".
	std::string sender;
	// Of what they ask there: "web requests before login".
	std::string_view requests;
};

// Of the status file "status", in the order of its lines. Reputation marks are not in it: rules of others set them. Rules
// of a garden are not looked at, nor is an interface's disconnection: both come and go while its service stays.
[[nodiscard]] std::vector<RedirectPort> redirect_ports(const std::vector<StatusLine> &status);

} // namespace cpctl
