// SPDX-License-Identifier: GPL-2.0-only
// Where cpctl runs: its terminals, its environment, and the kernel that loads modules. Tests have surroundings of their
// own.
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <istream>
#include <memory>
#include <string>

#include "cpctl/interruption.h"
#include "cpctl/kernel_log.h"
#include "cpctl/kernel_modules.h"
#include "cpctl/machine.h"

namespace cpctl
{

using Clock = std::chrono::steady_clock;

struct Surroundings {
	bool out_is_terminal = false;
	bool err_is_terminal = false;
	// Values of the environment, empty when they are not there.
	std::string no_color = {};
	std::string term = {};
	// The standard input and the kernel's modules; null where there are none.
	std::istream *in = nullptr;
	KernelModules *modules = nullptr;
	std::function<Clock::time_point()> now = Clock::now;
	// Seconds since 1970, as the module's deadlines are.
	std::function<int64_t()> wall_clock = [] { return int64_t{std::time(nullptr)}; };
	// Waits; false when the user wants an end.
	std::function<bool(std::chrono::milliseconds)> pause = pause_for;
	std::function<std::unique_ptr<KernelLog>(KernelLogStart)> kernel_log = [](KernelLogStart start) {
		return open_kernel_log(kernel_log_path, start);
	};
	// What cpctl check looks at; null where there is none.
	Machine *machine = nullptr;
};

} // namespace cpctl
