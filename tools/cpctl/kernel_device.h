// SPDX-License-Identifier: GPL-2.0-only
// The module's device file.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "cpctl/control_device.h"

namespace cpctl
{

// Opens the device file. The module admits one opener at a time; while there is another one, tries again for `wait`.
// Throws Failure(unavailable) with the reason and the remedy.
[[nodiscard]] std::unique_ptr<ControlDevice> open_kernel_device(const std::string &path,
								std::chrono::milliseconds wait);

} // namespace cpctl
