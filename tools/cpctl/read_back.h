// SPDX-License-Identifier: GPL-2.0-only
// What a command has set, read back: the module takes most of what it refuses for done.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "cpctl/failure.h"
#include "cpctl/module_status.h"
#include "cpctl/session.h"

namespace cpctl
{

// Whether the module's status has what was set.
using IsStored = std::function<bool(const ModuleStatus &status)>;

// Whether the device tells what was set; nothing where it does not tell.
using DeviceTellsStored = std::function<std::optional<bool>()>;

// The failure of a setting that is not there: "wlan-1-1: mode".
[[nodiscard]] Failure not_stored(const std::string &setting);

// Says that what was set may be there or not, and why that is not known.
void note_unverified(const Session &session, const std::string &setting, const std::string &why);

// Throws not_stored() when the status file, or where that cannot be read the device, tells another value. Where neither
// tells, notes it.
void require_stored(const Session &session, const std::string &setting, const IsStored &is_stored,
		    const DeviceTellsStored &device_tells = {});

} // namespace cpctl
