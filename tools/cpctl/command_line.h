// SPDX-License-Identifier: GPL-2.0-only
// The command line: words in, exit code out.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "cpctl/control_device.h"
#include "cpctl/explain/explain_command.h"
#include "cpctl/failure.h"
#include "cpctl/status_files.h"
#include "cpctl/surroundings.h"

namespace cpctl
{

// Opens the device file, waiting so long while another program has it; throws Failure(unavailable).
using OpenDevice =
	std::function<std::unique_ptr<ControlDevice>(const std::string &path, std::chrono::milliseconds wait)>;

// How the module is reached.
struct Module {
	OpenDevice open_device;
	ReadStatusFile read_status_file;
	Surroundings surroundings = {};
	Explaining explaining = {};
};

// Runs the command that `words` (without the program's name) ask for. The device is opened after all of them have been
// checked, by the commands that need it. Answers go to `out`, messages to `err`.
[[nodiscard]] ExitCode run_command_line(const std::vector<std::string> &words, const Module &module, std::ostream &out,
					std::ostream &err);

} // namespace cpctl
