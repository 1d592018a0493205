// SPDX-License-Identifier: GPL-2.0-only
// The part of the manual page that tells options and commands: `cpctl --generate man`.
#pragma once

#include <string>

#include "cpctl/command_tree.h"

namespace cpctl
{

// Sections OPTIONS and COMMANDS in the mdoc language.
[[nodiscard]] std::string manual_sections(const Command &top);

} // namespace cpctl
