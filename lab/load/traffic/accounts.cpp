#include "accounts.h"

#include <bit>
#include <cinttypes>
#include <cstdio>

namespace load
{

namespace
{

constexpr unsigned most_told = 20;

constexpr const char *names[kind_count] = {
	"admitted client's data, up",
	"data to an admitted client",
	"admitted client's ping",
	"admitted client's IPv6",
	"SYN of a new connection",
	"SYN repeated, to another server",
	"continued connection",
	"reply of the portal",
	"reply with FIN+ACK",
	"reply after FIN+ACK",
	"HTTPS to anywhere",
	"DNS query before login",
	"DNS answer for a cached address",
	"DNS answer, cache is full",
	"garden, address of a name",
	"garden, short-lived address",
	"garden, network",
	"another row's garden",
	"ping before login",
	"UDP before login",
	"IPv6 before login",
	"other TCP before login",
	"ARP to all",
	"DHCP to all",
	"guarded portal port",
	"logout address",
	"web request of who was shut out",
	"social login",
};

void print_bytes(const char *what, const uint8_t *bytes, unsigned length)
{
	printf("      %s:", what);
	for (unsigned i = 0; i < length && i < 80; ++i)
		printf("%s%02x", i % 16 ? "" : " ", bytes[i]);
	printf(length > 80 ? " ... (%u bytes)\n" : " (%u bytes)\n", length);
}

} // namespace

const char *kind_name(Kind kind)
{
	return names[unsigned(kind)];
}

void Accounts::sent(const Item &item)
{
	Account &account = of_kind[unsigned(item.kind)];
	++account.sent;
	account.arrivals_wanted += unsigned(std::popcount(item.wanted));
	account.came_out += item.wanted != nowhere;
	account.changed += item.is_changed;
	++all_frames;
	checked += item.sampled == Sampled::checked;
}

void Accounts::tell(const char *what, const Item &item, const uint8_t *bytes, unsigned length)
{
	++of_kind[unsigned(item.kind)].wrong;
	if (told++ >= most_told)
		return;
	printf("    WRONG: %s: %s (sent at place %u)\n", kind_name(item.kind), what, item.from);
	print_bytes("sent", item.in.bytes, item.in.length);
	if (item.is_changed)
		print_bytes("expected", item.out.bytes, item.out.length);
	if (bytes)
		print_bytes("came", bytes, length);
}

void Accounts::arrived(Item &item, unsigned place, const uint8_t *bytes, unsigned length)
{
	uint8_t bit = place == uplink ? at_uplink : place == access_point ? at_access_point : at_port;
	Account &account = of_kind[unsigned(item.kind)];
	++account.arrivals;
	if (item.sampled == Sampled::checked && item.seen == nowhere && length <= sizeof(item.came.bytes)) {
		item.came.length = uint16_t(length);
		memcpy(item.came.bytes, bytes, length);
	}
	bool is_again = item.seen & bit;
	item.seen |= bit;
	if (!(item.wanted & bit))
		tell("it came out where it must not", item, bytes, length);
	else if (is_again)
		tell("it came out twice", item, bytes, length);
	else if (bit == at_port && place != item.port)
		tell("it came out at another port", item, bytes, length);
	else if (!same_frame(item.expected(), bytes, length))
		tell("other bytes came out", item, bytes, length);
}

void Accounts::close(const Item &item)
{
	if (item.wanted & ~item.seen)
		tell("it did not come out", item, nullptr, 0);
}

void Accounts::stranger_arrived(unsigned place, const uint8_t *bytes, unsigned length)
{
	++unexpected;
	if (told++ < most_told) {
		printf("    WRONG: nobody waits for this at place %u\n", place);
		print_bytes("came", bytes, length);
	}
}

uint64_t Accounts::wrong() const
{
	uint64_t total = unexpected;
	for (const Account &account : of_kind)
		total += account.wrong;
	return total;
}

uint64_t Accounts::unbalanced_kinds() const
{
	uint64_t count = 0;
	for (const Account &account : of_kind)
		count += account.arrivals != account.arrivals_wanted;
	return count;
}

uint64_t Accounts::kinds_never_sent() const
{
	uint64_t count = 0;
	for (const Account &account : of_kind)
		count += account.sent == 0;
	return count;
}

void Accounts::print() const
{
	printf("    %-34s %10s %10s %10s %10s %7s\n", "kind", "sent", "let out", "rewritten", "dropped", "wrong");
	Account all{};
	for (unsigned i = 0; i < kind_count; ++i) {
		const Account &a = of_kind[i];
		printf("    %-34s %10" PRIu64 " %10" PRIu64 " %10" PRIu64 " %10" PRIu64 " %7" PRIu64 "\n", names[i],
		       a.sent, a.came_out, a.changed, a.sent - a.came_out, a.wrong);
		all.sent += a.sent;
		all.came_out += a.came_out;
		all.changed += a.changed;
		all.wrong += a.wrong;
	}
	printf("    %-34s %10" PRIu64 " %10" PRIu64 " %10" PRIu64 " %10" PRIu64 " %7" PRIu64 "\n", "all", all.sent,
	       all.came_out, all.changed, all.sent - all.came_out, all.wrong);
}

} // namespace load
