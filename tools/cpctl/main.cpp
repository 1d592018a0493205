// SPDX-License-Identifier: GPL-2.0-only
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include <ext/stdio_filebuf.h>
#include <unistd.h>

#include "cpctl/command_line.h"
#include "cpctl/kernel_device.h"

namespace
{

cpctl::Explaining explaining()
{
#ifdef CPCTL_HAS_MODULE_COPY
	return {.make_copy = cpctl::make_module_copy, .read_devices = cpctl::read_network_devices};
#else
	return {};
#endif
}

// Nothing else runs in this program, so nobody changes the environment meanwhile.
std::string environment(const char *name)
{
	const char *const value = std::getenv(name);
	return value == nullptr ? "" : value;
}

cpctl::Surroundings surroundings(std::istream *standard_input)
{
	return {
		.out_is_terminal = isatty(STDOUT_FILENO) == 1,
		.err_is_terminal = isatty(STDERR_FILENO) == 1,
		.no_color = environment("NO_COLOR"),
		.term = environment("TERM"),
		.in = standard_input,
		.modules = &cpctl::running_kernel_modules(),
		.machine = &cpctl::running_machine(),
	};
}

} // namespace

int main(int count, char **words)
{
	try {
		// Of std::cin nobody learns that it could not be read.
		__gnu_cxx::stdio_filebuf<char> input_buffer(STDIN_FILENO, std::ios::in);
		std::istream standard_input(&input_buffer);
		const cpctl::ExitCode code = cpctl::run_command_line(
			{words + 1, words + count},
			{cpctl::open_kernel_device, cpctl::read_kernel_status_file,
			 surroundings(input_buffer.is_open() ? &standard_input : nullptr), explaining()},
			std::cout, std::cerr);
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
