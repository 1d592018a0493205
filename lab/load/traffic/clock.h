// Seconds since some moment, which nobody sets.
#pragma once

#include <time.h>

namespace load
{

inline double monotonic()
{
	timespec now;
	clock_gettime(CLOCK_MONOTONIC, &now);
	return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

} // namespace load
