// SPDX-License-Identifier: GPL-2.0-only
// The control device as cpctl sees it: the real one, or a test's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "captive_portal/control.h"

namespace cpctl
{

class ControlDevice
{
public:
	ControlDevice() = default;
	ControlDevice(const ControlDevice &) = delete;
	ControlDevice &operator=(const ControlDevice &) = delete;
	virtual ~ControlDevice() = default;

	// Runs `command` on its record, which the device may fill. Returns what ioctl() gives, a failure as the negative
	// error number.
	[[nodiscard]] virtual long exchange(cp_command command, std::span<std::byte> record) = 0;

	// Runs a command whose argument is the value itself. Returns as exchange() does.
	[[nodiscard]] virtual long pass_value(cp_command command, uint32_t value) = 0;
};

} // namespace cpctl
