#include "traffic.h"

#include "clock.h"
#include "summary_file.h"

#include <unistd.h>

namespace load
{

namespace
{

constexpr unsigned most_records = 32;
// So long after they were cached, short-lived addresses are there for sure, however long a batch takes.
constexpr time_t surely_cached = short_life - 8;
// A ring shows frames in the order in which places for them were taken: one that another processor is still writing, the
// probe's, hides those behind it.
constexpr double seconds_to_wait = 20, seconds_after_last = 5;

} // namespace

Traffic::Traffic(World &world, Wires &wires, Sample &sample)
    : world(world), wires(wires), sample(sample), items(std::make_unique<Item[]>(batch_size)), now(time(nullptr))
{
}

// --- one batch ------------------------------------------------------------------

Item &Traffic::next(Kind kind, unsigned from)
{
	Item &item = items[filled];
	uint32_t number = base + filled++;
	item.kind = kind;
	item.sampled = number % one_in == 0 ? Sampled::checked : Sampled::no;
	item.is_changed = false;
	item.from = uint8_t(from);
	item.port = 0;
	item.wanted = item.seen = nowhere;
	item.came.length = 0;
	return item;
}

void Traffic::becomes_redirect(Item &item, unsigned row, unsigned server_port)
{
	item.wanted = at_access_point;
	item.is_changed = true;
	item.out = item.in;
	redirect(item.out, World::portal(row, server_port));
}

void Traffic::finish()
{
	// All frames take the same queues: when this last one is out, nothing of the others is under way any more.
	Item &last = next(Kind::admitted_up, 0);
	make_udp(last.in, World::client(0, 5, 50000), {gateways[0], quad(203, 0, 113, 99), 9999}, smallest_payload,
		 base + filled - 1);
	bool is_admitted = world.is_admitted(0, 5);
	if (!is_admitted)
		make_arp_question(last.in, World::client(0, 5, 0), quad(192, 168, 100, 9), base + filled - 1);
	last.kind = is_admitted ? Kind::admitted_up : Kind::arp;
	passes_to(last, is_admitted ? at_uplink : at_uplink | at_access_point);

	unsigned missing = 0;
	for (unsigned i = 0; i < filled; ++i) {
		Item &item = items[i];
		accounts.sent(item);
		missing += unsigned(__builtin_popcount(item.wanted));
		wires.queue(item.from, item.in);
	}
	wires.send_all();
	auto seen = [&](unsigned place, const uint8_t *bytes, unsigned length) {
		uint32_t number;
		if (!read_tag(bytes, length, number)) {
			// The probe's own, to all.
			if (bytes[6] != 2 || bytes[7] != 0 || bytes[8] != 0 || bytes[9] != 0x40)
				accounts.stranger_arrived(place, bytes, length);
			return;
		}
		if (number - base >= filled) {
			accounts.stranger_arrived(place, bytes, length);
			return;
		}
		uint8_t before = items[number - base].seen;
		accounts.arrived(items[number - base], place, bytes, length);
		if ((items[number - base].seen & ~before) & items[number - base].wanted)
			--missing;
	};
	double began = monotonic();
	bool is_late = false;
	// What is not there by then, with the last one out, will not come any more.
	while (wires.receive(seen), missing) {
		bool is_last_out = (last.wanted & ~last.seen) == 0;
		if (monotonic() - began > (is_last_out ? seconds_after_last : seconds_to_wait))
			break;
		is_late = true;
		usleep(100);
	}
	late_batches += is_late;
	for (unsigned i = 0; i < filled; ++i) {
		Item &item = items[i];
		accounts.close(item);
		if (item.sampled != Sampled::no)
			sample.frame(item.from, item.in, item.port, item.seen, item.seen ? &item.came : nullptr,
				     item.sampled == Sampled::checked);
	}
	base += filled;
	filled = 0;
	now = time(nullptr);
	sample.set_time(now);
}

// --- connections ----------------------------------------------------------------

void Traffic::syn(const Connection &one, size_t number, Kind kind)
{
	Item &item = next(kind, one.row);
	if (number % one_in == 0)
		item.sampled = Sampled::checked;
	else
		item.sampled = Sampled::no;
	make_tcp(item.in, World::client_end(one), World::server_end(one), tcp_syn, tag_size, base + filled - 1);
	becomes_redirect(item, one.row, one.server_port);
}

void Traffic::reply(const Connection &one, size_t number, Kind kind, uint8_t flags)
{
	Item &item = next(kind, access_point);
	item.sampled = number % one_in == 0 ? Sampled::checked : Sampled::no;
	item.port = one.row;
	make_tcp(item.in, World::portal(one.row, one.server_port), World::client_end(one), flags,
		 kind == Kind::reply ? 100 : tag_size, base + filled - 1);
	item.wanted = at_port;
	if (kind == Kind::reply_of_none)
		return;
	item.is_changed = true;
	item.out = item.in;
	pretend(item.out, World::server_end(one));
}

void Traffic::open_connections()
{
	for (size_t i = 0; i < world.connections.size(); ++i) {
		syn(world.connections[i], i, Kind::new_connection);
		if (is_full())
			finish();
	}
	finish();
}

void Traffic::close_connections()
{
	for (size_t i = 0; i < world.connections.size(); ++i) {
		reply(world.connections[i], i, Kind::last_reply, tcp_fin | tcp_ack);
		if (is_full())
			finish();
	}
	finish();
}

// --- what is before, and what is after --------------------------------------------

void Traffic::every_station_once()
{
	auto announce = [&](const End &from, unsigned row) {
		Item &item = next(Kind::arp, row);
		make_arp_question(item.in, from, quad(192, 168, 100, 9), base + filled - 1);
		passes_to(item, at_uplink | at_access_point);
		if (is_full())
			finish();
	};
	for (unsigned row = 0; row < rows; ++row) {
		for (unsigned number = 0; number < clients_of_a_row; ++number)
			announce(World::client(row, number, 0), row);
		for (unsigned number = 0; number < strangers_of_a_row; ++number)
			announce(World::stranger(row, number, 0), row);
	}
	finish();
}

void Traffic::cache_long_lived()
{
	Dice dice(2, 2);
	// The names of an answer are one, so are its addresses' groups.
	for (unsigned group = 0; group < all_groups; ++group) {
		uint32_t addresses[most_records];
		unsigned count = 0;
		for (unsigned number = 0; number < long_lived; ++number) {
			if (World::group_of(number) != group)
				continue;
			addresses[count++] = World::cached_address(number);
			if (count == most_records || number + all_groups >= long_lived) {
				answer(Kind::dns_answer, dice, dice.below(rows), addresses, count, group, long_life);
				count = 0;
				if (is_full())
					finish();
			}
		}
	}
	finish();
}

void Traffic::cache_short_lived()
{
	Dice dice(4, passes);
	uint32_t addresses[most_records];
	filling_since = now;
	while (short_filled < short_lived) {
		unsigned count = 0;
		while (count < most_records && short_filled < short_lived)
			addresses[count++] = World::cached_address(long_lived + short_filled++);
		answer(Kind::dns_answer, dice, dice.below(rows), addresses, count, everybodys_group, short_life);
		if (is_full())
			finish();
	}
	finish();
}

void Traffic::ask_expired(Dice &dice, unsigned frames)
{
	for (unsigned i = 0; i < frames; ++i) {
		unsigned row = dice.below(rows);
		uint32_t address = World::cached_address(long_lived + dice.below(short_lived));
		web_request(Kind::garden_short_lived, dice,
			    World::stranger(row, dice.below(strangers_of_a_row), any_port(dice)), row, address, 80,
			    false);
		if (is_full())
			finish();
	}
	finish();
}

// --- short-lived addresses --------------------------------------------------------

bool Traffic::may_be_gone() const
{
	return short_filled != 0 && now >= filling_since + surely_cached;
}

void Traffic::follow_expiry()
{
	if (short_filled == 0)
		cache_short_lived();
	if (!may_be_gone() || now == last_look)
		return;
	last_look = now;
	// The one that was filled last has the last deadline: when it is gone, so are all.
	if (!is_address_listed(World::cached_address(long_lived + short_filled - 1))) {
		sample.pass();
		short_filled = 0;
		++passes;
	}
}

// --- answers ------------------------------------------------------------------------

void Traffic::answer(Kind kind, Dice &dice, unsigned row, const uint32_t *addresses, unsigned count, unsigned group,
		     unsigned life)
{
	uint8_t message[1400] = {0, 1, 0x81, 0x80, 0, 1, 0, uint8_t(count), 0, 0, 0, 0};
	unsigned size = 12;
	std::string name = World::name_of_group(group) + ".";
	for (size_t start = 0, end; (end = name.find('.', start)) != name.npos; start = end + 1) {
		message[size++] = uint8_t(end - start);
		memcpy(message + size, name.data() + start, end - start);
		size += unsigned(end - start);
	}
	static constexpr uint8_t question[] = {0, 0, 1, 0, 1};
	memcpy(message + size, question, sizeof(question));
	size += sizeof(question);
	for (unsigned i = 0; i < count; ++i) {
		uint8_t record[16] = {0xc0,
				      12,
				      0,
				      1,
				      0,
				      1,
				      uint8_t(life >> 24),
				      uint8_t(life >> 16),
				      uint8_t(life >> 8),
				      uint8_t(life),
				      0,
				      4,
				      uint8_t(addresses[i] >> 24),
				      uint8_t(addresses[i] >> 16),
				      uint8_t(addresses[i] >> 8),
				      uint8_t(addresses[i])};
		memcpy(message + size, record, sizeof(record));
		size += sizeof(record);
	}
	unsigned number = dice.below(strangers_of_a_row);
	Item &item = next(kind, uplink);
	if (item.sampled == Sampled::no)
		item.sampled = Sampled::followed;
	make_udp_with(item.in, {gateways[0], resolver_address, dns_port}, World::stranger(row, number, any_port(dice)),
		      message, size, base + filled - 1);
	item.port = uint8_t(row);
	passes_to(item, at_port);
}

} // namespace load
