// An admitted client that pings a host beyond the bridge all the time, from name spaces of its own: how long a frame takes
// for the way there and back, while nothing else goes on and under load.
#pragma once

#include <atomic>
#include <cstdint>
#include <sys/types.h>

namespace load
{

class Probe
{
public:
	// Its process begins at once.
	Probe();
	~Probe();

	void begin_load() { shared.is_loaded = true; }
	void pause(bool is_paused) { shared.is_paused = is_paused; }
	struct Outcome {
		uint64_t unanswered;
		uint32_t median_under_load; // microseconds
	};
	// Ends the process, prints how many answers came and, if wanted, how long they took.
	Outcome finish(bool tells_times);

private:
	static constexpr unsigned most = 100000;
	struct Times {
		std::atomic<uint32_t> count, unanswered;
		// Microseconds.
		uint32_t of[most];

		// Of answers in order: how long the one at this part of them took.
		[[nodiscard]] uint32_t at(double part) const;
	};
	struct Shared {
		std::atomic<bool> is_loaded, is_paused, must_end;
		Times idle, loaded;
	};

	void ping_for_ever();
	static void print(const char *when, Times &, bool tells_times);

	Shared &shared;
	pid_t process;
};

} // namespace load
