// SPDX-License-Identifier: GPL-2.0-only
// cpctl explain: what the module would do with a frame, and why.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cpctl/explain/module_copy.h"
#include "cpctl/session.h"

namespace cpctl
{

// What an explanation needs beside the module's status files. No copy of the module in a program for a processor on which
// its core does not run.
struct Explaining {
	MakeModuleCopy make_copy = {};
	ReadNetworkDevices read_devices = {};
};

struct ExplainArguments {
	// As frame_words.h has them.
	std::vector<std::string> words;
	// The frame's bytes, instead of a description.
	std::string hex;
	// Frames of a capture: all of them, or the one with that number, from 1.
	std::string pcap;
	uint32_t number = 0;
	// Also what the module would log.
	bool verbose = false;
};

// Throws Failure(usage). Reads no file of the module yet, but the capture.
[[nodiscard]] Action show_explanation(const ExplainArguments &arguments);

} // namespace cpctl
