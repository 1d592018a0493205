// SPDX-License-Identifier: GPL-2.0-only
#include <iostream>
#include <string>
#include <vector>

#include "cpctl/command_line.h"
#include "cpctl/kernel_device.h"

namespace
{

std::string read_status_file(const std::string &name)
{
	return cpctl::read_kernel_status_file(cpctl::status_directory, name);
}

} // namespace

int main(int count, char **words)
{
	try {
		const cpctl::ExitCode code =
			cpctl::run_command_line({words + 1, words + count},
						{cpctl::open_kernel_device, read_status_file}, std::cout, std::cerr);
		if (!std::cout.flush()) {
			std::cerr << "cpctl: the answer could not be written: is the disk full?\n";
			return static_cast<int>(cpctl::ExitCode::unavailable);
		}
		return static_cast<int>(code);
	} catch (const std::exception &error) {
		std::cerr << "cpctl: " << error.what() << '\n';
		return static_cast<int>(cpctl::ExitCode::unavailable);
	}
}
