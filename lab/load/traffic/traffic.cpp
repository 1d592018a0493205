#include "traffic.h"

#include "captive_portal/ports.h"
#include "clock.h"
#include "summary_file.h"
#include "trouble.h"

#include <cstdio>
#include <sched.h>
#include <unistd.h>

namespace load
{

namespace
{

constexpr uint16_t dns_port = 53;
constexpr unsigned smallest_payload = 18, most_records = 32;
// So long after they were cached, short-lived addresses are there for sure, however long a batch takes.
constexpr time_t surely_cached = short_life - 8;
constexpr double seconds_to_wait = 20, seconds_after_last = 0.1;

constexpr End everybody = {{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, 0xffffffff, 67};

End server(Dice &dice)
{
	return {gateways[0], quad(203, 0, dice.below(256), 1 + dice.below(250)), 80};
}

uint16_t any_port(Dice &dice)
{
	return uint16_t(40000 + dice.below(20000));
}

unsigned any_size(Dice &dice)
{
	// Small ones, and now and then a full one.
	return dice.one_in(8) ? 1400 : smallest_payload + dice.below(200);
}

struct Share {
	Kind kind;
	unsigned in_thousand;
};
constexpr Share shares[] = {{Kind::admitted_up, 190},
			    {Kind::admitted_down, 120},
			    {Kind::admitted_ping, 30},
			    {Kind::admitted_ipv6, 20},
			    {Kind::new_connection, 35},
			    {Kind::repeated_syn, 20},
			    {Kind::continued, 160},
			    {Kind::reply, 160},
			    {Kind::https_elsewhere, 30},
			    {Kind::dns_query, 40},
			    {Kind::dns_answer, 15},
			    {Kind::garden_by_name, 40},
			    {Kind::garden_short_lived, 10},
			    {Kind::garden_by_network, 15},
			    {Kind::garden_of_others, 15},
			    {Kind::ping_refused, 15},
			    {Kind::udp_refused, 15},
			    {Kind::ipv6_refused, 10},
			    {Kind::tcp_refused, 15},
			    {Kind::arp, 5},
			    {Kind::dhcp, 5},
			    {Kind::guarded_port, 10},
			    {Kind::logout, 10},
			    {Kind::shut_out, 10},
			    {Kind::social_login, 5}};

Kind any_kind(Dice &dice)
{
	unsigned choice = dice.below(1000);
	for (const Share &share : shares) {
		if (choice < share.in_thousand)
			return share.kind;
		choice -= share.in_thousand;
	}
	return Kind::admitted_up;
}

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
	// What is not there a moment after the last one will not come any more.
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

// --- DNS ----------------------------------------------------------------------------

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

void Traffic::some_answer(Dice &dice)
{
	unsigned row = dice.below(rows);
	bool is_known_full = short_filled == short_lived && !may_be_gone();
	if (is_known_full && dice.one_in(3)) {
		uint32_t address = World::cached_address(cached_addresses + dice.below(100000));
		answer(Kind::dns_answer_too_many, dice, row, &address, 1, everybodys_group, long_life);
	} else {
		unsigned number = dice.below(long_lived);
		uint32_t address = World::cached_address(number);
		answer(Kind::dns_answer, dice, row, &address, 1, World::group_of(number), long_life);
	}
}

void Traffic::dns_query(Dice &dice)
{
	static constexpr uint8_t question[] = {0, 7, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 3, 'w', 'w', 'w', 0, 0, 1, 0, 1};
	unsigned row = dice.below(rows);
	Item &item = next(Kind::dns_query, row);
	make_udp_with(item.in, World::stranger(row, dice.below(strangers_of_a_row), any_port(dice)),
		      {gateways[0], resolver_address, dns_port}, question, sizeof(question), base + filled - 1);
	passes_to(item, at_uplink);
}

// --- everything else ----------------------------------------------------------------

void Traffic::admitted(Kind kind, Dice &dice)
{
	unsigned row = dice.below(rows), number = dice.below(clients_of_a_row);
	while (!world.is_admitted(row, number))
		number = (number + 1) % clients_of_a_row;
	End here = World::client(row, number, any_port(dice)), there = server(dice);
	Item &item = next(kind, kind == Kind::admitted_down ? uplink : row);
	uint32_t tag = base + filled - 1;
	there.port = dice.one_in(2) ? 443 : uint16_t(8000 + dice.below(1000));
	item.port = uint8_t(row);
	passes_to(item, kind == Kind::admitted_down ? at_port : at_uplink);
	if (kind == Kind::admitted_ping)
		make_ping(item.in, here, there, tag);
	else if (kind == Kind::admitted_ipv6)
		make_ipv6_tcp(item.in, here, there, 443, tag);
	else if (kind == Kind::admitted_down)
		make_tcp(item.in, there, here, tcp_ack, any_size(dice), tag);
	else if (dice.one_in(3))
		make_udp(item.in, here, there, any_size(dice), tag);
	else
		make_tcp(item.in, here, there, dice.one_in(8) ? tcp_syn : tcp_ack, any_size(dice), tag);
}

// No SYN: such a request leaves no connection behind.
void Traffic::web_request(Kind kind, Dice &dice, const End &from, unsigned row, uint32_t server_address,
			  uint16_t server_port, bool is_permitted)
{
	Item &item = next(kind, row);
	make_tcp(item.in, from, {gateways[dice.below(2)], server_address, server_port}, tcp_ack, any_size(dice),
		 base + filled - 1);
	Https https = world.https(row);
	if (is_permitted || (server_port == 443 && https == Https::passes))
		passes_to(item, at_uplink);
	else if (server_port == 443 && https == Https::blocked)
		passes_to(item, nowhere);
	else
		becomes_redirect(item, row, server_port);
}

void Traffic::refused(Kind kind, Dice &dice)
{
	unsigned row = dice.below(rows);
	End from = World::stranger(row, dice.below(strangers_of_a_row), any_port(dice)), to = server(dice);
	to.port = uint16_t(kind == Kind::tcp_refused ? 22 : 5000 + dice.below(1000));
	Item &item = next(kind, row);
	uint32_t tag = base + filled - 1;
	if (kind == Kind::ping_refused)
		make_ping(item.in, from, to, tag);
	else if (kind == Kind::ipv6_refused)
		make_ipv6_tcp(item.in, from, to, 80, tag);
	else if (kind == Kind::udp_refused)
		make_udp(item.in, from, to, any_size(dice), tag);
	else
		make_tcp(item.in, from, to, dice.one_in(2) ? tcp_syn : tcp_ack, any_size(dice), tag);
}

void Traffic::to_all(Kind kind, Dice &dice)
{
	unsigned row = dice.below(rows);
	End from = World::stranger(row, dice.below(strangers_of_a_row), 68);
	Item &item = next(kind, row);
	if (kind == Kind::arp)
		make_arp_question(item.in, from, quad(192, 168, 100, 1 + dice.below(200)), base + filled - 1);
	else
		make_udp(item.in, from, everybody, 300, base + filled - 1);
	passes_to(item, at_uplink | at_access_point);
}

// Another row's portal port from a client, and the portal's own service ports from the wired side.
void Traffic::guarded(Dice &dice)
{
	unsigned row = dice.below(rows), other = (row + 1 + dice.below(rows - 1)) % rows;
	bool is_wired = dice.one_in(3);
	End to = World::portal(other, dice.one_in(2) ? 80 : 443);
	if (is_wired && dice.one_in(2))
		to.port = CP_PORT_SOCIAL_LOGIN_HTTP;
	End from = is_wired ? End{gateways[1], quad(192, 168, 100, 7), any_port(dice)} :
			      World::client(row, dice.below(clients_of_a_row), any_port(dice));
	Item &item = next(Kind::guarded_port, is_wired ? uplink : row);
	make_tcp(item.in, from, to, dice.one_in(2) ? tcp_syn : tcp_ack, smallest_payload, base + filled - 1);
}

void Traffic::logout(Dice &dice)
{
	// Who is on one of the first two lists.
	unsigned row = dice.below(rows),
		 number = dice.below(clients_of_a_row / client_lists) * client_lists + dice.below(2);
	while (!world.is_admitted(row, number) || World::list_of(number) > 1)
		number = (number + 1) % clients_of_a_row;
	Item &item = next(Kind::logout, row);
	End to = {gateways[0], logout_address, uint16_t(dice.one_in(2) ? 80 : 1 + dice.below(60000))};
	make_tcp(item.in, World::client(row, number, any_port(dice)), to, tcp_ack, smallest_payload, base + filled - 1);
	item.wanted = at_access_point;
	item.is_changed = true;
	item.out = item.in;
	redirect(item.out, {access_point_mac, access_point_address, CP_PORT_LOGOUT});
}

void Traffic::of_shut_out(Dice &dice)
{
	const auto &gone = world.gone_clients();
	if (gone.empty())
		return;
	ClientNumber who = gone[dice.below(unsigned(gone.size()))];
	web_request(Kind::shut_out, dice, World::client(who.row, who.number, any_port(dice)), who.row,
		    server(dice).address, dice.one_in(3) ? 443 : 80, false);
}

void Traffic::add_mixed(Dice &dice)
{
	Kind kind = any_kind(dice);
	unsigned row = dice.below(rows);
	End stranger = World::stranger(row, dice.below(strangers_of_a_row), any_port(dice));
	size_t number = dice.below(uint32_t(world.connections.size()));
	Connection &one = world.connections[number];
	bool is_short_alive = short_filled != 0 && !may_be_gone();

	switch (kind) {
	case Kind::new_connection:
		reply(one, number, Kind::last_reply, tcp_fin | tcp_ack);
		reply(one, number, Kind::reply_of_none, tcp_ack);
		world.renew(one, dice);
		syn(one, number, Kind::new_connection);
		return;
	case Kind::repeated_syn:
		world.renew(one, dice);
		syn(one, number, Kind::repeated_syn);
		return;
	case Kind::reply:
		reply(one, number, Kind::reply, tcp_ack);
		return;
	case Kind::continued:
		web_request(kind, dice, World::client_end(one), one.row, one.server, one.server_port, false);
		return;
	case Kind::https_elsewhere:
		web_request(kind, dice, stranger, row, server(dice).address, 443, false);
		return;
	case Kind::dns_query:
		dns_query(dice);
		return;
	case Kind::dns_answer:
		some_answer(dice);
		return;
	case Kind::garden_by_name:
	case Kind::garden_of_others: {
		unsigned address = dice.below(long_lived);
		bool wants_permitted = kind == Kind::garden_by_name;
		while (world.permits(row, address) != wants_permitted)
			address = (address + 1) % long_lived;
		web_request(kind, dice, stranger, row, World::cached_address(address), dice.one_in(3) ? 443 : 80,
			    wants_permitted);
		return;
	}
	case Kind::garden_short_lived: {
		// One that is cached, or one that is known to be gone.
		unsigned address = dice.below(short_lived);
		if (!is_short_alive && short_filled != 0)
			return;
		web_request(kind, dice, stranger, row, World::cached_address(long_lived + address), 80,
			    address < short_filled);
		return;
	}
	case Kind::garden_by_network:
		web_request(kind, dice, stranger, row, permitted_network + dice.below(1 << 17),
			    dice.one_in(2) ? 443 : 80, true);
		return;
	case Kind::ping_refused:
	case Kind::udp_refused:
	case Kind::ipv6_refused:
	case Kind::tcp_refused:
		refused(kind, dice);
		return;
	case Kind::arp:
	case Kind::dhcp:
		to_all(kind, dice);
		return;
	case Kind::guarded_port:
		guarded(dice);
		return;
	case Kind::logout:
		logout(dice);
		return;
	case Kind::shut_out:
		of_shut_out(dice);
		return;
	case Kind::social_login: {
		Item &item = next(kind, row);
		make_tcp(item.in, stranger, {gateways[0], social_login_address, 80}, tcp_ack, smallest_payload,
			 base + filled - 1);
		becomes_redirect(item, row, 80);
		item.out = item.in;
		redirect(item.out, {access_point_mac, access_point_address, CP_PORT_SOCIAL_LOGIN_HTTP});
		return;
	}
	default:
		admitted(kind, dice);
	}
}

void Traffic::mixed_batch(Dice &dice)
{
	while (!is_full())
		add_mixed(dice);
	finish();
}

} // namespace load
