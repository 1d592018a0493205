// SPDX-License-Identifier: GPL-2.0-only
// Where cpctl runs: its terminals, its environment, and the kernel that loads modules. Tests have surroundings of their
// own.
#pragma once

#include <chrono>
#include <functional>
#include <istream>
#include <string>

#include "cpctl/kernel_modules.h"

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
};

} // namespace cpctl
