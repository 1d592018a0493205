// SPDX-License-Identifier: GPL-2.0-only
// The status file `status`: what the module has stored for itself, each row and each OWE companion.
#pragma once

#include <cstdint>
#include <vector>

#include "cpctl/status_files.h"

namespace cpctl
{

struct ModuleStatus {
	StatusLine module;
	std::vector<StatusLine> interfaces;
	std::vector<StatusLine> companions;

	// The line of a row, 0..27. Throws Failure(unavailable) when there is none.
	[[nodiscard]] const StatusLine &row(uint32_t row) const;
};

// Throws Failure(unavailable) when the file cannot be read, or has a format that this cpctl does not know.
[[nodiscard]] ModuleStatus read_module_status(const ReadStatusFile &read_status_file);

} // namespace cpctl
