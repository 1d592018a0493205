// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/following.h"

#include <algorithm>

#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

// Ten years. Whoever wants more leaves the limit out.
constexpr double most_seconds = 315360000;

} // namespace

void check_limits(const FollowLimits &limits)
{
	// Not true for NaN, which the parser takes for a number.
	if (limits.seconds && !(*limits.seconds >= 0 && *limits.seconds <= most_seconds)) {
		throw usage_failure("--seconds takes 0 to 315360000");
	}
	if (limits.count && *limits.count < 0) {
		throw usage_failure("--count takes 0 or more lines");
	}
}

Following::Following(const Session &session, const FollowLimits &limits) : session_(session), lines_left_(limits.count)
{
	if (limits.seconds) {
		end_ = session.surroundings->now() +
		       std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*limits.seconds));
	}
}

void Following::line(const std::string &text)
{
	if (lines_left_) {
		if (*lines_left_ == 0) {
			return;
		}
		--*lines_left_;
	}
	session_.print(text);
	session_.out.flush();
}

bool Following::is_stopped() const
{
	return interrupted_ || !session_.out || (lines_left_ && *lines_left_ == 0);
}

bool Following::is_over() const
{
	return is_stopped() || (end_ && session_.surroundings->now() >= *end_);
}

std::chrono::milliseconds Following::at_most(std::chrono::milliseconds longest) const
{
	if (!end_) {
		return longest;
	}
	const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end_ - session_.surroundings->now());
	return std::clamp(left, std::chrono::milliseconds(0), longest);
}

void Following::pause(std::chrono::milliseconds longest)
{
	if (!is_over() && !session_.surroundings->pause(at_most(longest))) {
		interrupt();
	}
}

} // namespace cpctl
