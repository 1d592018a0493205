// Every frame's account: what it is, where it must come out and how, and whether it did.
#pragma once

#include "wires.h"

#include <cstdint>

namespace load
{

enum class Kind : uint8_t {
	admitted_up,
	admitted_down,
	admitted_ping,
	admitted_ipv6,
	new_connection,
	repeated_syn,
	continued,
	reply,
	last_reply,
	reply_of_none,
	https_elsewhere,
	dns_query,
	dns_answer,
	dns_answer_too_many,
	garden_by_name,
	garden_short_lived,
	garden_by_network,
	garden_of_others,
	ping_refused,
	udp_refused,
	ipv6_refused,
	tcp_refused,
	arp,
	dhcp,
	guarded_port,
	logout,
	shut_out,
	social_login,
	kinds
};
inline constexpr unsigned kind_count = unsigned(Kind::kinds);

const char *kind_name(Kind);

// Places of coming out; check_sample.py knows them, too.
enum : uint8_t { nowhere = 0, at_port = 1, at_uplink = 2, at_access_point = 4 };

// What the sample is told of a frame.
enum class Sampled : uint8_t { no, followed, checked };

struct Item {
	Frame in, out, came;
	Kind kind;
	Sampled sampled;
	bool is_changed;
	uint8_t from, port, wanted, seen;

	const Frame &expected() const { return is_changed ? out : in; }
};

class Accounts
{
public:
	void sent(const Item &);
	// A frame that has come out at `place`.
	void arrived(Item &, unsigned place, const uint8_t *bytes, unsigned length);
	// Nothing more can come of it.
	void close(const Item &);
	// A frame that nobody waits for: one of an earlier batch, or not of the load's at all.
	void stranger_arrived(unsigned place, const uint8_t *bytes, unsigned length);

	void print() const;

	uint64_t frames() const { return all_frames; }
	uint64_t wrong() const;
	uint64_t unbalanced_kinds() const;
	uint64_t kinds_never_sent() const;
	uint64_t sampled() const { return checked; }

private:
	struct Account {
		uint64_t sent, came_out, arrivals_wanted, arrivals, changed, wrong;
	};

	void tell(const char *what, const Item &, const uint8_t *bytes, unsigned length);

	Account of_kind[kind_count] = {};
	uint64_t all_frames = 0, checked = 0, unexpected = 0;
	unsigned told = 0;
};

} // namespace load
