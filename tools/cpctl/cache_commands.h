// SPDX-License-Identifier: GPL-2.0-only
// The address cache: cpctl cache show and cpctl cache follow. Both read the module's status file, which changes nothing.
#pragma once

#include <string>

#include "cpctl/following.h"

namespace cpctl
{

// As the command line has them; empty ones are missing.
struct CacheArguments {
	std::string interface;
	std::string name;
	std::string address;
};

[[nodiscard]] Action show_cache(const CacheArguments &arguments);

// A line for each name of an address that comes or goes, or whose gardens change; looks once in `interval` seconds.
[[nodiscard]] Action follow_cache(const CacheArguments &arguments, double interval, const FollowLimits &limits);

} // namespace cpctl
