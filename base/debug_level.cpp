// SPDX-License-Identifier: GPL-2.0-only
#include "base/debug_level.h"

namespace captive_portal
{

constinit int32_t debug_level = 0;

} // namespace captive_portal
