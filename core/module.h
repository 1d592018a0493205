// SPDX-License-Identifier: GPL-2.0-only
// The module's hooks; its start and stop are declared in platform/platform.h.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

inline constexpr uint32_t captive_portal_hook_count = 3;
extern const cp_hook captive_portal_hooks[captive_portal_hook_count];

} // namespace captive_portal
