// Batches of frames: made, sent, and each held against its account before the next begins.
#pragma once

#include "accounts.h"
#include "sample.h"
#include "world.h"

#include <memory>

namespace load
{

inline constexpr uint16_t dns_port = 53;
inline constexpr unsigned smallest_payload = 18;

// A client's port; none that the portal has.
inline uint16_t any_port(Dice &dice)
{
	return uint16_t(40000 + dice.below(20000));
}

class Traffic
{
public:
	Traffic(World &, Wires &, Sample &);

	// Batches of one sort, before the mixture.
	void every_station_once();
	void open_connections();
	void cache_long_lived();

	// One batch of everything; a batch number makes the same batch again, but for what the time decides.
	void mixed_batch(Dice &);

	// And after it.
	void close_connections();
	// Garden requests to addresses that are not cached any more.
	void ask_expired(Dice &, unsigned frames);

	// What is known of the short-lived addresses: filled, alive for sure, or perhaps gone with a pass of the thread.
	// Caches them anew when they are gone.
	void follow_expiry();
	unsigned passes = 0;
	unsigned short_filled = 0;
	bool may_be_gone() const;

	Accounts accounts;
	uint64_t late_batches = 0;

private:
	static constexpr unsigned batch_size = 128;

	Item &next(Kind, unsigned from);
	static void passes_to(Item &item, uint8_t where) { item.wanted = where; }
	void becomes_redirect(Item &, unsigned row, unsigned server_port);
	bool is_full() const { return filled + 4 > batch_size; }
	void finish();
	void add_mixed(Dice &);
	void cache_short_lived();

	void admitted(Kind, Dice &);
	void syn(const Connection &, size_t number, Kind);
	void reply(const Connection &, size_t number, Kind, uint8_t flags);
	void web_request(Kind, Dice &, const End &from, unsigned row, uint32_t server, uint16_t server_port,
			 bool is_permitted);
	void answer(Kind, Dice &, unsigned row, const uint32_t *addresses, unsigned count, unsigned group,
		    unsigned life);
	void some_answer(Dice &);
	void dns_query(Dice &);
	void refused(Kind, Dice &);
	void to_all(Kind, Dice &);
	void guarded(Dice &);
	void logout(Dice &);
	void of_shut_out(Dice &);

	World &world;
	Wires &wires;
	Sample &sample;
	std::unique_ptr<Item[]> items;
	unsigned filled = 0;
	uint32_t base = 1;
	time_t now = 0;
	time_t filling_since = 0, last_look = 0;
};

} // namespace load
