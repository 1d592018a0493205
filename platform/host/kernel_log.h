// SPDX-License-Identifier: GPL-2.0-only
// The captured kernel log.
#pragma once

#include <cstdarg>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace captive_portal::host
{

// One call of cp_log(): the text as it was printed, its newline included.
struct LogLine {
	cp_log_level level;
	std::string text;

	friend bool operator==(const LogLine &, const LogLine &) = default;
};

std::ostream &operator<<(std::ostream &stream, const LogLine &line);

// The kernel's formatted print: all that printf has, "%pI4", and "(null)" for a null string.
[[nodiscard]] std::string format_kernel_text(const char *format, va_list arguments);

// Any thread may write and read.
class KernelLog
{
public:
	void write(cp_log_level level, std::string text);

	// Copy of all lines since the last take() or clear().
	[[nodiscard]] std::vector<LogLine> lines() const;
	// The same, and forgets them.
	[[nodiscard]] std::vector<LogLine> take();
	void clear();
	// Off: lines are formatted and dropped, for benchmarks and endless runs. On at first.
	void keep(bool on);

private:
	mutable std::mutex mutex_;
	std::vector<LogLine> lines_;
	bool keep_ = true;
};

} // namespace captive_portal::host
