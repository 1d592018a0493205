// SPDX-License-Identifier: GPL-2.0-only
// Loading and unloading of kernel modules.
#pragma once

#include <string>

namespace cpctl
{

class KernelModules
{
public:
	KernelModules() = default;
	KernelModules(const KernelModules &) = delete;
	KernelModules &operator=(const KernelModules &) = delete;
	virtual ~KernelModules() = default;

	// Both give 0 or an error number.
	[[nodiscard]] virtual int load(const std::string &path) = 0;
	[[nodiscard]] virtual int unload(const std::string &name) = 0;
	// The file from which the module would be loaded by its name; empty when nobody knows.
	[[nodiscard]] virtual std::string path_of(const std::string &name) = 0;
};

// Those of the running kernel, by its system calls; the path comes from modinfo.
[[nodiscard]] KernelModules &running_kernel_modules();

} // namespace cpctl
