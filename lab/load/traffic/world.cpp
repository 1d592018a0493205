#include "world.h"

#include "captive_portal/ports.h"

#include <cstdio>

namespace load
{

namespace
{

constexpr gk_set_command add_to[client_lists] = {ADD_LOGIN_MAC, ADD_AUTH_MAC, ADD_WHITELIST_MAC, ADD_GA_WHITELIST_MAC,
						 ADD_MAC_AUTH_FALLBACK};
constexpr gk_set_command take_off[client_lists] = {DEL_LOGIN_MAC, DEL_AUTH_MAC, DEL_WHITELIST_MAC, DEL_GA_WHITELIST_MAC,
						   DEL_MAC_AUTH_FALLBACK};
// The last list is that of meanwhile.cpp, too.
constexpr unsigned lists_of_our_own = 4;
constexpr gk_get_command get[lists_of_our_own] = {GET_LOGIN_MAC, GET_AUTH_MAC, GET_WHITELIST_MAC, GET_GA_WHITELIST_MAC};
// So many at most are shut out at a time.
constexpr unsigned most_gone = 400;
constexpr uint16_t first_port = 33000;

} // namespace

World::World(Device &device, unsigned connection_count) : device(device)
{
	for (unsigned row = 0; row < rows; ++row) {
		admitted[row].assign(clients_of_a_row, false);
		group_of_row[row] = row % groups;
		https_of[row] = Https(row % unsigned(Https::values));
	}
	Dice dice(1, 1);
	for (unsigned i = 0; i < connection_count; ++i) {
		unsigned of_row = i / rows;
		Connection one{.row = uint8_t(i % rows),
			       .stranger = uint8_t(of_row % strangers_of_a_row),
			       .gateway = uint8_t(i / 7 % 2),
			       .port = uint16_t(first_port + of_row / strangers_of_a_row),
			       .server_port = 80,
			       .server = 0};
		renew(one, dice);
		connections.push_back(one);
	}
}

End World::client(unsigned row, unsigned number, uint16_t port)
{
	return {client_mac(row, number), quad(10, row + 1, number >> 8, number & 255), port};
}

End World::stranger(unsigned row, unsigned number, uint16_t port)
{
	return {{2, 0x20, uint8_t(row), 0, 0, uint8_t(number)}, quad(10, row + 101, 0, number), port};
}

End World::client_end(const Connection &one)
{
	return stranger(one.row, one.stranger, one.port);
}
End World::server_end(const Connection &one)
{
	return {gateways[one.gateway], one.server, one.server_port};
}

End World::portal(unsigned row, unsigned server_port)
{
	uint16_t port = server_port == 443 ? cp_https_port(row) : cp_http_port(row);
	return {access_point_mac, access_point_address, port};
}

void World::renew(Connection &one, Dice &dice) const
{
	one.server = quad(203, 0, dice.below(256), 1 + dice.below(250));
	// HTTPS is recorded where it is redirected. A row's switch may change later; what is recorded stays.
	one.server_port = https_of[one.row] == Https::redirected && dice.one_in(3) ? 443 : 80;
}

uint32_t World::cached_address(unsigned number)
{
	constexpr unsigned first_octets = 100;
	return quad(11 + number % first_octets, number / first_octets % 256, number / first_octets / 256, 1);
}

unsigned World::group_of(unsigned number)
{
	return number < long_lived ? number % all_groups : everybodys_group;
}

std::string World::name_of_group(unsigned group)
{
	if (group == nobodys_group)
		return "www.nobody.example.com";
	if (group == everybodys_group)
		return "all.example.net";
	return "host.group-" + std::to_string(group) + ".example.org";
}

bool World::permits(unsigned row, unsigned address_number) const
{
	unsigned group = group_of(address_number);
	return group == everybodys_group || group == group_of_row[row];
}

unsigned World::listed_addresses(unsigned short_filled) const
{
	bool is_permitted[all_groups] = {};
	is_permitted[everybodys_group] = true;
	for (unsigned group : group_of_row)
		is_permitted[group] = true;
	unsigned count = short_filled;
	for (unsigned number = 0; number < long_lived; ++number)
		count += is_permitted[group_of(number)];
	return count;
}

void World::set_row_rules(unsigned row)
{
	device.set_rules(row, {"*.group-" + std::to_string(group_of_row[row]) + ".example.org"}, permitted_network,
			 permitted_netmask);
}

void World::set_up_portal()
{
	device.set_default_rules({name_of_group(everybodys_group)});
	for (unsigned row = 0; row < rows; ++row) {
		set_row_rules(row);
		device.set_portal(LOGOUT_IP_NOTIFY, row, 0, "192.168.77.1");
		device.set_portal(BLOCK_HTTPS, row, uint32_t(https_of[row]));
		device.set_portal(CAPTIVE_PORTAL, row, CP_MODE_ON);
	}
}

void World::admit_everybody()
{
	for (unsigned number = 0; number < clients_of_a_row; ++number)
		for (unsigned row = 0; row < rows; ++row)
			admit(row, number);
}

void World::admit(unsigned row, unsigned number)
{
	device.set_client(add_to[list_of(number)], row, client_mac(row, number));
	admitted[row][number] = true;
	++listed[row][list_of(number)];
}

void World::shut_out(unsigned row, unsigned number)
{
	device.set_client(take_off[list_of(number)], row, client_mac(row, number));
	admitted[row][number] = false;
	--listed[row][list_of(number)];
}

void World::any_command(Dice &dice)
{
	unsigned row = dice.below(rows);
	unsigned choice = dice.below(1000);
	if (choice < 10) {
		group_of_row[row] = dice.below(groups);
		set_row_rules(row);
	} else if (choice < 40) {
		https_of[row] = Https(dice.below(unsigned(Https::values)));
		device.set_portal(BLOCK_HTTPS, row, uint32_t(https_of[row]));
	} else if (choice < 80) {
		check_lists(dice);
	} else if (gone.empty() || (gone.size() < most_gone && dice.one_in(2))) {
		unsigned number = dice.below(clients_of_a_row);
		if (!admitted[row][number])
			return;
		shut_out(row, number);
		gone.push_back({uint8_t(row), uint16_t(number)});
	} else {
		unsigned place = dice.below(unsigned(gone.size()));
		admit(gone[place].row, gone[place].number);
		gone[place] = gone.back();
		gone.pop_back();
	}
}

void World::check_lists(Dice &dice)
{
	unsigned row = dice.below(rows), list = dice.below(lists_of_our_own);
	unsigned wanted = listed[row][list] + (row == 0 && list == 0 ? probe_clients_on_first_row : 0);
	unsigned number = dice.below(clients_of_a_row) / client_lists * client_lists;
	++list_checks;
	bool is_right = device.count_clients(get[list], row) == wanted &&
			device.is_listed(CHECK_LOGIN_MAC, row, client_mac(row, number)) == admitted[row][number];
	wrong_lists += !is_right;
}

void World::close_portal()
{
	device.flush_all_clients();
	for (unsigned row = 0; row < rows; ++row) {
		device.set_portal(CAPTIVE_PORTAL, row, CP_MODE_OFF);
		admitted[row].assign(clients_of_a_row, false);
	}
}

} // namespace load
