// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/kernel_device.h"

#include <cerrno>

#include <sys/stat.h>

#include "captiveportal.h"
#include "cpctl/device_holders.h"
#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

class KernelDevice : public ControlDevice
{
public:
	explicit KernelDevice(captiveportal *handle) : handle_(handle, captiveportal_close) {}

	long exchange(cp_command command, std::span<std::byte> record) override
	{
		return captiveportal_exchange(handle_.get(), command, record.data(), record.size());
	}

	long pass_value(cp_command command, uint32_t value) override
	{
		return captiveportal_pass_value(handle_.get(), command, value);
	}

private:
	std::unique_ptr<captiveportal, void (*)(captiveportal *)> handle_;
};

// "; NAME (process NUMBER) has it", for those that are known to have the device open.
std::string by_whom(const std::string &path)
{
	struct stat status = {};
	if (::stat(path.c_str(), &status) != 0 || !S_ISCHR(status.st_mode)) {
		return "";
	}
	std::string names;
	for (const std::string &holder : holders_of_device("/proc", status.st_rdev)) {
		names += (names.empty() ? "; " : ", ") + holder;
	}
	return names.empty() ? "" : names + " has it";
}

// The library says what is the matter; these are the words of the command line that help.
std::string remedy(const std::string &path, int result, int error)
{
	switch (result) {
	case CAPTIVEPORTAL_BUSY:
		return by_whom(path) + "; wait longer with --wait SECONDS";
	case CAPTIVEPORTAL_UNAVAILABLE:
		return error == ENOENT || error == ENXIO || error == ENODEV ? ", or name its file with -d" :
		       error == ENOTTY                                      ? ": name its file with -d" :
									      "";
	default:
		return "";
	}
}

} // namespace

std::unique_ptr<ControlDevice> open_kernel_device(const std::string &path, std::chrono::milliseconds wait)
{
	captiveportal *handle = nullptr;
	const int result = captiveportal_open(path.c_str(), static_cast<unsigned>(wait.count()), &handle);
	if (result < 0) {
		throw Failure(ExitCode::unavailable, captiveportal_error_text() + remedy(path, result, errno));
	}
	return std::make_unique<KernelDevice>(handle);
}

} // namespace cpctl
