// Who is there, what the module has been told about them, and so what it must do: the load's own account.
#pragma once

#include "device.h"
#include "dice.h"
#include "wires.h"

#include <ctime>
#include <vector>

namespace load
{

inline constexpr unsigned clients_of_a_row = 1034, strangers_of_a_row = 200;
inline constexpr unsigned client_lists = 5;
// As many as the module caches; the last ones come with a short life, again and again.
inline constexpr unsigned cached_addresses = 16384, short_lived = 2000, long_lived = cached_addresses - short_lived;
inline constexpr unsigned short_life = 20, long_life = 1000000;

inline constexpr uint32_t access_point_address = quad(192, 168, 100, 1);
inline constexpr uint32_t logout_address = quad(192, 168, 77, 1);
inline constexpr uint32_t social_login_address = quad(2, 2, 2, 2);
inline constexpr uint32_t resolver_address = quad(203, 0, 113, 53);
inline constexpr uint32_t permitted_network = quad(198, 18, 0, 0), permitted_netmask = quad(255, 254, 0, 0);
inline constexpr Mac access_point_mac = {2, 0, 0, 0, 0, 1};
inline constexpr Mac gateways[2] = {{2, 0, 0, 0, 0, 0xfe}, {2, 0, 0, 0, 0, 0xfd}};

// Names of addresses: four groups, of which each row permits one, one that nobody permits and one that all do.
inline constexpr unsigned groups = 4, nobodys_group = 4, everybodys_group = 5, all_groups = 6;

enum class Https : uint32_t { passes, blocked, redirected, values };

struct Connection {
	uint8_t row, stranger, gateway;
	uint16_t port, server_port;
	uint32_t server;
};

struct ClientNumber {
	uint8_t row;
	uint16_t number;
};

class World
{
public:
	World(Device &, unsigned connection_count);

	// Who can be meant.
	static Mac client_mac(unsigned row, unsigned number)
	{
		return {2, 0x10, uint8_t(row), 0, uint8_t(number >> 8), uint8_t(number)};
	}
	static End client(unsigned row, unsigned number, uint16_t port);
	static End stranger(unsigned row, unsigned number, uint16_t port);
	static End client_end(const Connection &);
	static End server_end(const Connection &);
	static End portal(unsigned row, unsigned server_port);
	static uint32_t cached_address(unsigned number);
	static unsigned group_of(unsigned number);
	static std::string name_of_group(unsigned group);

	// What they may do.
	bool permits(unsigned row, unsigned address_number) const;
	Https https(unsigned row) const { return https_of[row]; }
	bool is_admitted(unsigned row, unsigned number) const { return admitted[row][number]; }
	static unsigned list_of(unsigned number) { return number % client_lists; }
	const std::vector<ClientNumber> &gone_clients() const { return gone; }

	// Commands.
	void set_up_portal();
	void admit_everybody();
	void any_command(Dice &);
	// Whether one of some row's lists is as long as it must be, and has who must be on it.
	void check_lists(Dice &);
	void close_portal();

	// Where the next connection of this place in the table goes.
	void renew(Connection &, Dice &) const;
	std::vector<Connection> connections;

	// Addresses that a walled garden permits, by number; what is beyond `short_filled` is not cached.
	unsigned listed_addresses(unsigned short_filled) const;

	uint64_t list_checks = 0, wrong_lists = 0;
	unsigned probe_clients_on_first_row = 0;

private:
	void set_row_rules(unsigned row);
	void shut_out(unsigned row, unsigned number);
	void admit(unsigned row, unsigned number);

	Device &device;
	std::vector<bool> admitted[rows];
	unsigned listed[rows][client_lists] = {};
	std::vector<ClientNumber> gone;
	unsigned group_of_row[rows];
	Https https_of[rows];
};

} // namespace load
