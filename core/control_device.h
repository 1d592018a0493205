// SPDX-License-Identifier: GPL-2.0-only
// The control device: one opener at a time, and the dispatcher of its commands. Its entries are declared in
// platform/platform.h.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

// The device's record.
extern const cp_misc_device captive_portal_misc_dev;

// Not 0 while the device is open. No lock: the kernel lets one open of a misc device run at a time.
extern uint32_t cp_dev_in_use;

} // namespace captive_portal
