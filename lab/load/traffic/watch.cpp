#include "watch.h"

#include "trouble.h"

#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <time.h>

namespace load
{

namespace
{

constexpr uint64_t guard_page = 4096;

uint64_t from_meminfo(const std::string &name)
{
	std::ifstream file("/proc/meminfo");
	for (std::string line; std::getline(file, line);)
		if (line.starts_with(name + ":"))
			return std::stoull(line.substr(name.size() + 1));
	throw Trouble("/proc/meminfo has no " + name);
}

// Its text and data, and what it has asked for in whole pages.
uint64_t module_bytes()
{
	std::ifstream file("/proc/vmallocinfo");
	uint64_t total = 0;
	for (std::string line; std::getline(file, line);) {
		std::string range;
		uint64_t size = 0;
		std::istringstream(line) >> range >> size;
		if (line.find("[captive_portal]") != line.npos && size > guard_page)
			total += size - guard_page;
	}
	return total;
}

} // namespace

const Watch::Reading &Watch::read(const std::string &when)
{
	static timespec start{};
	timespec now;
	clock_gettime(CLOCK_MONOTONIC, &now);
	if (start.tv_sec == 0)
		start = now;
	double seconds = double(now.tv_sec - start.tv_sec) + double(now.tv_nsec - start.tv_nsec) / 1e9;
	readings.push_back(
		{when, seconds, from_meminfo("SUnreclaim"), module_bytes() / 1024, from_meminfo("MemAvailable")});
	return readings.back();
}

void Watch::print() const
{
	printf("    %-34s %10s %14s %14s %14s\n", "memory, KiB", "second", "slab", "module's pages", "available");
	for (const Reading &one : readings)
		printf("    %-34s %10.1f %14" PRIu64 " %14" PRIu64 " %14" PRIu64 "\n", one.when.c_str(), one.seconds,
		       one.objects, one.module, one.available);
}

} // namespace load
