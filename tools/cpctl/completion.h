// SPDX-License-Identifier: GPL-2.0-only
// What may stand at the cursor: `cpctl --complete WORD...`, which the files in completion/ ask on behalf of shells.
#pragma once

#include <span>
#include <string>

#include "cpctl/command_tree.h"

namespace cpctl
{

// The answer for a command line of which `words` (without the program's name) are known; the last one is being typed
// and may be empty. A line for each word that may stand there and begins like the last: the word, a tab, and what it
// is; or the one line ":files" where the name of a file may stand.
[[nodiscard]] std::string complete(const Command &top, std::span<const std::string> words);

} // namespace cpctl
