// The far ends of all cables, and the access point's own device: frames go in and come out here.
//
// Places 0 to 23 are wlan-1-1 to wlan-3-8, in the order of rows; then come the uplink and the access point itself.
#pragma once

#include "frame.h"

#include <sys/socket.h>
#include <vector>

namespace load
{

inline constexpr unsigned rows = 24, uplink = 24, access_point = 25, places = 26;

class Wires
{
public:
	Wires();

	// The frame has to live until send_all().
	void queue(unsigned place, const Frame &frame);
	void send_all();

	// Calls seen(place, bytes, length) for what has come out and not been seen; the number of frames.
	template <typename Seen> unsigned receive(Seen seen)
	{
		unsigned count = 0;
		for (unsigned place = 0; place < places; ++place)
			while (const uint8_t *slot = filled_slot(place)) {
				unsigned length;
				const uint8_t *bytes = frame_in(slot, length);
				seen(place, bytes, length);
				free_slot(place);
				++count;
			}
		return count;
	}

	// Frames that no ring had room for.
	uint64_t lost();

private:
	struct Ring {
		int socket;
		uint8_t *memory;
		unsigned slots, next;
	};

	const uint8_t *filled_slot(unsigned place);
	static const uint8_t *frame_in(const uint8_t *slot, unsigned &length);
	void free_slot(unsigned place);

	int sender;
	int device[places];
	Ring ring[places];
	uint64_t lost_so_far = 0;
	std::vector<const Frame *> queued;
	std::vector<unsigned> queued_at;
};

} // namespace load
