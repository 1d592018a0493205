// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/kernel_modules.h"

#include <array>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace cpctl
{

namespace
{

class RunningKernelModules : public KernelModules
{
public:
	int load(const std::string &path) override
	{
		const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
		if (file < 0) {
			return errno;
		}
		const int error = ::syscall(SYS_finit_module, file, "", 0) == 0 ? 0 : errno;
		::close(file);
		return error;
	}

	int unload(const std::string &name) override
	{
		return ::syscall(SYS_delete_module, name.c_str(), O_NONBLOCK) == 0 ? 0 : errno;
	}

	std::string path_of(const std::string &name) override
	{
		std::FILE *const answer = ::popen(("modinfo -n " + name + " 2>/dev/null").c_str(), "re");
		if (answer == nullptr) {
			return "";
		}
		std::string path;
		std::array<char, 256> part = {};
		while (std::fgets(part.data(), static_cast<int>(part.size()), answer) != nullptr) {
			path += part.data();
		}
		const bool answered = ::pclose(answer) == 0;
		if (path.ends_with('\n')) {
			path.pop_back();
		}
		return answered && path.starts_with('/') ? path : "";
	}
};

} // namespace

KernelModules &running_kernel_modules()
{
	static RunningKernelModules modules;
	return modules;
}

} // namespace cpctl
