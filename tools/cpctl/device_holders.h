// SPDX-License-Identifier: GPL-2.0-only
// Who keeps a device for himself.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace cpctl
{

// Which processes have the device of that number open, as "'portald' (process 1234)", as far as this process may know:
// without privilege, its user's own. `proc` is where the kernel lists processes.
[[nodiscard]] std::vector<std::string> holders_of_device(const std::string &proc, dev_t device);

} // namespace cpctl
