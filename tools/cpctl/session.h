// SPDX-License-Identifier: GPL-2.0-only
// What a command works with once the device is open.
#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "cpctl/portal.h"
#include "cpctl/status_files.h"

namespace cpctl
{

// Whether answers are JSON, and whether with line breaks for people.
enum class JsonOutput { none, compact, pretty };

struct Session {
	Portal &portal;
	const ReadStatusFile &read_status_file;
	std::ostream &out;
	std::ostream &err;
	JsonOutput json = JsonOutput::none;

	void print(const std::string &line) const { out << line << '\n'; }
	// Says on the error output what is no failure.
	void note(const std::string &text) const { err << "cpctl: " << text << '\n'; }
};

// A command whose arguments are checked; it runs after the whole command line has been understood. Throws Failure.
using Action = std::function<void(const Session &session)>;

} // namespace cpctl
