// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/kernel_device.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

constexpr std::chrono::milliseconds retry_interval{20};

class KernelDevice : public ControlDevice
{
public:
	explicit KernelDevice(int descriptor) : descriptor_(descriptor) {}
	KernelDevice(const KernelDevice &) = delete;
	KernelDevice &operator=(const KernelDevice &) = delete;
	~KernelDevice() override { ::close(descriptor_); }

	long exchange(cp_command command, std::span<std::byte> record) override
	{
		return result(::ioctl(descriptor_, command, record.data()));
	}

	long pass_value(cp_command command, uint32_t value) override
	{
		return result(::ioctl(descriptor_, command, static_cast<unsigned long>(value)));
	}

private:
	static long result(int returned) { return returned < 0 ? -errno : returned; }

	int descriptor_;
};

int open_file(const std::string &path)
{
	const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY);
	return descriptor < 0 ? -errno : descriptor;
}

std::string reason_and_remedy(int error, std::chrono::milliseconds wait)
{
	switch (error) {
	case ENOENT:
	case ENXIO:
	case ENODEV:
		return "there is no such device: load the module (modprobe captive_portal), or name its file with -d";
	case EACCES:
	case EPERM:
		return "permission denied: run cpctl as root";
	case EBUSY:
		return "in use by another program, also after " + std::to_string(wait.count()) +
		       " ms: the module admits one opener at a time; wait longer with --wait SECONDS";
	default:
		return std::strerror(error);
	}
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

std::unique_ptr<ControlDevice> open_kernel_device(const std::string &path, std::chrono::milliseconds wait)
{
	const int descriptor =
		open_patiently([&path] { return open_file(path); },
			       [](std::chrono::milliseconds interval) { std::this_thread::sleep_for(interval); }, wait);
	if (descriptor < 0) {
		throw Failure(ExitCode::unavailable, path + ": " + reason_and_remedy(-descriptor, wait));
	}
	auto device = std::make_unique<KernelDevice>(descriptor);
	struct stat status = {};
	if (::fstat(descriptor, &status) != 0 || !S_ISCHR(status.st_mode)) {
		throw Failure(ExitCode::unavailable,
			      path + ": not a character device, so not the module's: name its file with -d");
	}
	return device;
}

} // namespace cpctl
