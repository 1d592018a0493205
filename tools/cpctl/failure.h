// SPDX-License-Identifier: GPL-2.0-only
// How a command of cpctl can end, and the exception that ends it early.
#pragma once

#include <stdexcept>
#include <string>

namespace cpctl
{

// The exit codes; scripts rely on them.
enum class ExitCode {
	done = 0,
	// The command line is wrong. The device was not opened.
	usage = 1,
	// The module refused, or what was asked for is not there after (or, for a question, at) the call.
	refused = 2,
	// No module, no permission, somebody else kept the device open, or a file cannot be read or written.
	unavailable = 3,
};

// Ends the command with an exit code; the text goes to the error output and says what to do.
class Failure : public std::runtime_error
{
public:
	Failure(ExitCode code, const std::string &text) : std::runtime_error(text), code_(code) {}

	[[nodiscard]] ExitCode code() const { return code_; }

private:
	ExitCode code_;
};

[[nodiscard]] inline Failure usage_failure(const std::string &text)
{
	return {ExitCode::usage, text};
}

[[nodiscard]] inline Failure refusal(const std::string &text)
{
	return {ExitCode::refused, text};
}

} // namespace cpctl
