// SPDX-License-Identifier: GPL-2.0-only
// What a command works with once the device is open.
#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "cpctl/portal.h"

namespace cpctl
{

struct Session {
	Portal &portal;
	std::ostream &out;
	std::ostream &err;

	// Says on the error output what is no failure.
	void note(const std::string &text) const { err << "cpctl: " << text << '\n'; }
};

// A command whose arguments are checked; it runs after the whole command line has been understood. Throws Failure.
using Action = std::function<void(const Session &session)>;

} // namespace cpctl
