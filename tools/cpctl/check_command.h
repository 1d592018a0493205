// SPDX-License-Identifier: GPL-2.0-only
// Looks at the machine as an expert would: cpctl check.
#pragma once

#include <string>

#include "cpctl/session.h"

namespace cpctl
{

// Ends with Failure(refused) when something was found.
[[nodiscard]] Action check_machine(const std::string &device);

} // namespace cpctl
