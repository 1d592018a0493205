// SPDX-License-Identifier: GPL-2.0-only
#include "lib/device_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lib/failure.h"

namespace libcaptiveportal
{

namespace
{

constexpr std::chrono::milliseconds retry_interval{20};

int open_file(const std::string &path)
{
	const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY);
	return descriptor < 0 ? -errno : descriptor;
}

Failure failure_of_opening(const std::string &path, int error, std::chrono::milliseconds wait)
{
	switch (error) {
	case ENOENT:
	case ENXIO:
	case ENODEV:
		return {CAPTIVEPORTAL_UNAVAILABLE,
			path + ": there is no such device: load the module (modprobe captive_portal)", error};
	case EACCES:
	case EPERM:
		return {CAPTIVEPORTAL_NO_PERMISSION,
			path + ": permission denied: run as root, or as a member of the device's group", error};
	case EBUSY:
		return {CAPTIVEPORTAL_BUSY,
			path + ": in use by another program, also after " + std::to_string(wait.count()) +
				" ms: the module admits one opener at a time",
			error};
	default:
		return {CAPTIVEPORTAL_UNAVAILABLE, path + ": " + std::strerror(error), error};
	}
}

long result(int returned)
{
	return returned < 0 ? -errno : returned;
}

} // namespace

int open_patiently(const std::function<int()> &attempt, const std::function<void(std::chrono::milliseconds)> &pause,
		   std::chrono::milliseconds wait)
{
	std::chrono::milliseconds waited{0};
	for (;;) {
		const int descriptor = attempt();
		if (descriptor != -EBUSY || waited >= wait) {
			return descriptor;
		}
		const auto interval = std::min(retry_interval, wait - waited);
		pause(interval);
		waited += interval;
	}
}

DeviceFile::DeviceFile(const std::string &path, std::chrono::milliseconds wait)
    : descriptor_(open_patiently([&path] { return open_file(path); },
				 [](std::chrono::milliseconds interval) { std::this_thread::sleep_for(interval); },
				 wait))
{
	if (descriptor_ < 0) {
		throw failure_of_opening(path, -descriptor_, wait);
	}
	struct stat status = {};
	if (::fstat(descriptor_, &status) != 0 || !S_ISCHR(status.st_mode)) {
		::close(descriptor_);
		throw Failure(CAPTIVEPORTAL_UNAVAILABLE, path + ": not a character device, so not the module's",
			      ENOTTY);
	}
}

DeviceFile::~DeviceFile()
{
	::close(descriptor_);
}

long DeviceFile::exchange(uint32_t command, void *record)
{
	return result(::ioctl(descriptor_, command, record));
}

long DeviceFile::pass_value(uint32_t command, uint32_t value)
{
	return result(::ioctl(descriptor_, command, static_cast<unsigned long>(value)));
}

} // namespace libcaptiveportal
