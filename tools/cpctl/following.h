// SPDX-License-Identifier: GPL-2.0-only
// Commands that go on: until the user interrupts them, or the limits that they were given are reached.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "cpctl/session.h"

namespace cpctl
{

// What ends a command that goes on, beside the user; nothing if not given.
struct FollowLimits {
	std::optional<double> seconds = std::nullopt;
	// Of lines.
	std::optional<int64_t> count = std::nullopt;
};

// Throws Failure(usage) for what is no time or no number.
void check_limits(const FollowLimits &limits);

class Following
{
public:
	Following(const Session &session, const FollowLimits &limits);

	// Writes a line of the answer at once: who reads it may wait for it.
	void line(const std::string &text);

	// Whether nothing more is wanted, time aside: enough lines, the user had enough, or the answer cannot be written any
	// more.
	[[nodiscard]] bool is_stopped() const;
	// The same, or no time is left.
	[[nodiscard]] bool is_over() const;
	// The user wants an end.
	void interrupt() { interrupted_ = true; }

	// So long, or as long as there is time left; never negative.
	[[nodiscard]] std::chrono::milliseconds at_most(std::chrono::milliseconds longest) const;
	// Waits so long, or until it is over.
	void pause(std::chrono::milliseconds longest);

private:
	const Session &session_;
	std::optional<Clock::time_point> end_;
	std::optional<int64_t> lines_left_;
	bool interrupted_ = false;
};

} // namespace cpctl
