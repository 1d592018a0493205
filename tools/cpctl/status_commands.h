// SPDX-License-Identifier: GPL-2.0-only
// What the module has stored and counted: cpctl status and cpctl metrics.
#pragma once

#include "cpctl/session.h"

namespace cpctl
{

// Settings and numbers of the access point and of each interface; with `statistics` what became of frames.
[[nodiscard]] Action show_status(bool statistics);

// All counts, in the text format that Prometheus reads.
[[nodiscard]] Action show_metrics();

} // namespace cpctl
