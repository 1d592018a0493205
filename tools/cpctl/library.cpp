// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/library.h"

#include <cerrno>
#include <new>

#include "captiveportal.h"
#include "cpctl/failure.h"
#include "cpctl/quoted.h"

namespace cpctl
{

int judged(int result)
{
	if (result >= 0) {
		return result;
	}
	const std::string text = captiveportal_error_text();
	switch (result) {
	case CAPTIVEPORTAL_INVALID:
		throw usage_failure(text);
	case CAPTIVEPORTAL_REFUSED:
		throw refusal(text);
	case CAPTIVEPORTAL_NO_MEMORY:
		throw std::bad_alloc();
	default:
		throw Failure(ExitCode::unavailable, errno == ENOTTY ? text + " See -d" : text);
	}
}

std::string library_text(std::string_view text)
{
	if (text.find('\0') != std::string_view::npos) {
		throw usage_failure(quoted(text) + " has a sign that no text has");
	}
	return std::string(text);
}

} // namespace cpctl
