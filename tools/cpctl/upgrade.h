// SPDX-License-Identifier: GPL-2.0-only
// cpctl upgrade: another version of the module in the place of the one that runs.
#pragma once

#include <string>

#include "cpctl/session.h"

namespace cpctl
{

// Where upgrade keeps the configuration while the module changes, and afterwards.
inline constexpr const char *kept_configuration = "/var/lib/captive-portal/before-upgrade";

struct UpgradeFiles {
	// The new module.
	std::string module;
	// The file of the running one, which is loaded again when the new one cannot be; "none" goes without, empty asks
	// modinfo.
	std::string old_module;
	std::string kept = kept_configuration;
};

// With `in_any_case` also when something is stored that no command of cpctl would store again; it is lost.
[[nodiscard]] Action upgrade_module(const UpgradeFiles &files, bool in_any_case);

} // namespace cpctl
