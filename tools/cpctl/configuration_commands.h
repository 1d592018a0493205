// SPDX-License-Identifier: GPL-2.0-only
// cpctl save and cpctl restore.
#pragma once

#include <string>

#include "cpctl/configuration_changes.h"
#include "cpctl/session.h"

namespace cpctl
{

// Writes the configuration into the file, or to the answer when none is named. What no command could set again is left
// out, told, and a refusal at the end.
[[nodiscard]] Action save_configuration(const std::string &file);

enum class RestoreRun { change, dry };

// Makes the module's configuration that of the file; "-" is the standard input. The file is checked whole before
// anything is changed, and only what differs is changed.
[[nodiscard]] Action restore_configuration(const std::string &file, RestoreRun run);

// The configuration that a file's text is; throws Failure(usage) with every mistake.
[[nodiscard]] Configuration parse_configuration(const Session &session, const std::string &text,
						const std::string &name);

// Makes the running module's configuration the wanted one, and looks whether it is. Gives the number of changes. Throws
// Failure with the command at which it stopped.
size_t apply_configuration(const Session &session, const Configuration &wanted);

} // namespace cpctl
