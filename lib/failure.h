// SPDX-License-Identifier: GPL-2.0-only
// How a function of the library fails inside: an exception that the interface turns into a result and a text.
#pragma once

#include <stdexcept>
#include <string>

#include "lib/captiveportal.h"

namespace libcaptiveportal
{

class Failure : public std::runtime_error
{
public:
	// `system_error` is for errno; 0 when the system did not say anything.
	Failure(captiveportal_result result, const std::string &text, int system_error = 0)
	    : std::runtime_error(text), result_(result), system_error_(system_error)
	{
	}

	[[nodiscard]] captiveportal_result result() const { return result_; }
	[[nodiscard]] int system_error() const { return system_error_; }

private:
	captiveportal_result result_;
	int system_error_;
};

[[nodiscard]] inline Failure invalid(const std::string &text)
{
	return {CAPTIVEPORTAL_INVALID, text};
}

[[nodiscard]] inline Failure refused(const std::string &text)
{
	return {CAPTIVEPORTAL_REFUSED, text};
}

} // namespace libcaptiveportal
