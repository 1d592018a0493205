// SPDX-License-Identifier: GPL-2.0-only
// What the host platform makes of a status file's text.
#pragma once

#include <string>

struct cp_status_text {
	std::string characters;
};
