// SPDX-License-Identifier: GPL-2.0-only
// The module's lines in the kernel log, said for administrators: cpctl monitor.
#pragma once

#include "cpctl/following.h"
#include "cpctl/kernel_log.h"

namespace cpctl
{

// Goes on until a limit is reached. What the log has already is told whole, whatever the time.
[[nodiscard]] Action monitor(KernelLogStart start, const FollowLimits &limits);

} // namespace cpctl
