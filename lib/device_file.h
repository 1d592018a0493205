// SPDX-License-Identifier: GPL-2.0-only
// The module's device file.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace libcaptiveportal
{

class DeviceFile
{
public:
	// Opens it. The module admits one opener at a time; while there is another one, tries again for `wait`. Throws
	// Failure with the reason and the remedy.
	DeviceFile(const std::string &path, std::chrono::milliseconds wait);
	DeviceFile(const DeviceFile &) = delete;
	DeviceFile &operator=(const DeviceFile &) = delete;
	~DeviceFile();

	// What ioctl() gives, a failure as the negative error number.
	[[nodiscard]] long exchange(uint32_t command, void *record);
	[[nodiscard]] long pass_value(uint32_t command, uint32_t value);

private:
	int descriptor_;
};

// Calls `attempt` (a descriptor, or a negative error number) until it gives something else than busy or `wait` has been
// slept away through `pause`. Returns what the last attempt gave.
[[nodiscard]] int open_patiently(const std::function<int()> &attempt,
				 const std::function<void(std::chrono::milliseconds)> &pause,
				 std::chrono::milliseconds wait);

} // namespace libcaptiveportal
