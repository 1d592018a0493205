// The stream that check_sample.py reads: what happened, in its order, for the second implementation to follow.
//
// All commands and all DNS answers are in it, one in a hundred of the connections with everything that they send, and one
// in a hundred of all other frames.  Who reads slowly makes the sender wait.
#pragma once

#include "frame.h"

#include <ctime>
#include <string>

namespace load
{

inline constexpr unsigned one_in = 100;

class Sample
{
public:
	explicit Sample(const std::string &path);
	~Sample();

	void set_time(time_t seconds) { now = uint32_t(seconds); }

	// `seen_at`: places where it came out, as bits of traffic.h; `out` is null when it came out nowhere.
	// With `is_checked` false the frame only changes what the model holds.
	void frame(unsigned place, const Frame &in, unsigned out_place, unsigned seen_at, const Frame *out,
		   bool is_checked);
	void command(unsigned number, const void *record, unsigned size);
	// A pass of the expiry thread took what was stale.
	void pass();

private:
	// As check_sample.py unpacks it.
	struct Head {
		uint8_t kind, place, out_place, seen_at;
		uint16_t in_size, out_size;
		uint32_t seconds;
		uint32_t is_checked;
	};
	static_assert(sizeof(Head) == 16);

	void put(const void *data, unsigned size);
	void flush();

	int file;
	uint32_t now = 0;
	unsigned filled = 0;
	uint8_t buffer[1 << 16];
};

} // namespace load
