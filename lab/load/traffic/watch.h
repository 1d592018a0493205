// The machine's memory, as it was at certain moments.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace load
{

class Watch
{
public:
	struct Reading {
		std::string when;
		double seconds;
		// KiB: of the kernel's small objects, of the module's own pages, of all that is free or could be.
		uint64_t objects, module, available;

		uint64_t held() const { return objects + module; }
	};

	const Reading &read(const std::string &when);
	void print() const;

private:
	std::vector<Reading> readings;
};

} // namespace load
