// SPDX-License-Identifier: GPL-2.0-only
// Waiting that the user can end: with SIGINT, or SIGTERM. A second signal ends the program.
#pragma once

#include <chrono>

namespace cpctl
{

enum class Woken { time_is_over, input, interrupted };

// Waits until the file has something to read, if there is one (not negative), so long at most. The signals are caught
// from the first call on.
[[nodiscard]] Woken wait_for_input(int file, std::chrono::milliseconds longest);

// The same without a file: false when the user wants an end.
[[nodiscard]] bool pause_for(std::chrono::milliseconds longest);

} // namespace cpctl
