// SPDX-License-Identifier: GPL-2.0-only
// How far a long run of commands has come.
#pragma once

#include <cstddef>
#include <ostream>

#include "cpctl/surroundings.h"

namespace cpctl
{

// After a second one line on the error output, which is written over and goes at the end. Only where that is a terminal.
class Progress
{
public:
	Progress(std::ostream &err, const Surroundings &surroundings, size_t steps)
	    : err_(err), surroundings_(surroundings), steps_(steps), next_(surroundings.now() + first_after)
	{
	}
	Progress(const Progress &) = delete;
	Progress &operator=(const Progress &) = delete;
	~Progress() { clear(); }

	void step()
	{
		++done_;
		// Asking for the time at each step would cost more than some steps.
		if (surroundings_.err_is_terminal && done_ % steps_per_look == 0) {
			look();
		}
	}

	// Takes the line away, before others write.
	void clear()
	{
		if (shown_) {
			err_ << "\r\x1b[K" << std::flush;
			shown_ = false;
		}
	}

private:
	static constexpr std::chrono::milliseconds first_after{1000};
	static constexpr std::chrono::milliseconds again_after{200};
	static constexpr size_t steps_per_look = 16;

	void look()
	{
		const Clock::time_point now = surroundings_.now();
		if (now < next_) {
			return;
		}
		next_ = now + again_after;
		shown_ = true;
		err_ << "\rcpctl: " << done_ << " of " << steps_ << std::flush;
	}

	std::ostream &err_;
	const Surroundings &surroundings_;
	size_t steps_;
	size_t done_ = 0;
	Clock::time_point next_;
	bool shown_ = false;
};

} // namespace cpctl
