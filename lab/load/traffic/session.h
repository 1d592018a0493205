// A whole run: everything filled, then the mixture for so long, then everything emptied.
#pragma once

#include <cstdint>
#include <string>

namespace load
{

struct Options {
	// The mixture ends after so many seconds, or after so many frames if there is a number of them.
	unsigned seconds = 600;
	uint64_t frames = 0;
	uint64_t seed = 1;
	unsigned connections = 100000;
	std::string sample;
	// A clock that leaps times nothing.
	bool tells_times = true;
};

// Prints figures, and one line for each thing that was held against what it must be; whether all were right.
bool run(const Options &);

} // namespace load
