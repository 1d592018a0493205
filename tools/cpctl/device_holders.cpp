// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/device_holders.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include <sys/stat.h>

#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

bool is_number(const std::string &name)
{
	return !name.empty() && name.find_first_not_of("0123456789") == std::string::npos;
}

// Whether a process has the device open. Of those of other users nothing can be seen without privilege.
bool has_open(const std::filesystem::path &process, dev_t device)
{
	std::error_code error;
	for (std::filesystem::directory_iterator file(process / "fd", error), end; !error && file != end;
	     file.increment(error)) {
		struct stat status = {};
		if (::stat(file->path().c_str(), &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == device) {
			return true;
		}
	}
	return false;
}

} // namespace

std::vector<std::string> holders_of_device(const std::string &proc, dev_t device)
{
	std::vector<std::string> holders;
	std::error_code error;
	for (std::filesystem::directory_iterator process(proc, error), end; !error && process != end;
	     process.increment(error)) {
		const std::string number = process->path().filename();
		if (!is_number(number) || !has_open(process->path(), device)) {
			continue;
		}
		std::string name;
		std::getline(std::ifstream(process->path() / "comm"), name);
		holders.push_back(cpctl::quoted(name) + " (process " + number + ")");
	}
	return holders;
}

} // namespace cpctl
