// The kinds of frames of the mixture, and what must become of each.
#include "captive_portal/ports.h"
#include "traffic.h"

namespace load
{

namespace
{

constexpr End everybody = {{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, 0xffffffff, 67};

End server(Dice &dice)
{
	return {gateways[0], quad(203, 0, dice.below(256), 1 + dice.below(250)), 80};
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

// --- DNS ------------------------------------------------------------------------------

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

// --- everything else ------------------------------------------------------------------

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
