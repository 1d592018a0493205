#include "session.h"

#include "clock.h"
#include "meanwhile.h"
#include "probe.h"
#include "summary_file.h"
#include "traffic.h"
#include "trouble.h"
#include "watch.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <sched.h>
#include <unistd.h>

namespace load
{

namespace
{

// Frames between two commands, and commands between two looks at the whole cache.
constexpr unsigned batches_to_command = 8, batches_to_listing = 500;
// What the kernel's own books may take: slabs that are half full, neighbours, the log.
constexpr uint64_t growth_allowed = 1024, growth_allowed_after = 2048; // KiB
// And all memory: the second implementation holds what it has seen.
constexpr uint64_t loss_allowed = 16384;
// Where half of an admitted client's pings take longer, it is the module that they wait for: a busy host only makes the slow
// ones slower. Hundreds of times what a quiet one measures.
constexpr uint32_t longest_median = 50000; // microseconds
constexpr Mac probe_mac = {2, 0, 0, 0x40, 0, 1};

class Checks
{
public:
	void check(bool is_right, const char *what)
	{
		printf("%s %s\n", is_right ? "right:" : "WRONG:", what);
		all_right &= is_right;
	}
	bool are_right() const { return all_right; }

private:
	bool all_right = true;
};

void stay_on_one_processor()
{
	// What is sent from one processor arrives in the order in which it was sent.
	cpu_set_t set;
	CPU_ZERO(&set);
	CPU_SET(0, &set);
	if (sched_setaffinity(0, sizeof(set), &set))
		throw_errno("one processor");
}

void say(const char *text)
{
	printf("  %s\n", text);
	fflush(stdout);
}

} // namespace

bool run(const Options &options)
{
	Sample sample(options.sample);
	Device device(&sample);
	sample.set_time(time(nullptr));
	device.pair_companion("wlan-1-14", 0);
	device.set_client(ADD_LOGIN_MAC, 0, probe_mac);
	Probe probe;
	sleep(2);
	probe.pause(true);

	World world(device, options.connections);
	world.probe_clients_on_first_row = 1;
	stay_on_one_processor();
	Wires wires;
	Traffic traffic(world, wires, sample);
	Watch watch;
	Checks checks;

	say("every station says that it is there, then the tables are filled");
	traffic.every_station_once();
	uint64_t empty = watch.read("tables empty").held();
	world.set_up_portal();
	world.admit_everybody();
	watch.read("clients admitted");
	traffic.open_connections();
	watch.read("connections recorded");
	traffic.cache_long_lived();
	unsigned listed = count_listed_addresses();
	checks.check(listed == world.listed_addresses(0), "the cache lists every address that some garden permits");
	probe.pause(false);
	probe.begin_load();

	say("the mixture");
	Meanwhile meanwhile(device);
	uint64_t wrong_listings = 0, listings = 0, frames_before = traffic.accounts.frames();
	Watch::Reading full{}, after{};
	double began = monotonic();
	auto part_done = [&] {
		return options.frames ? double(traffic.accounts.frames() - frames_before) / double(options.frames) :
					(monotonic() - began) / options.seconds;
	};
	bool is_half = false;
	unsigned batch = 0, next_listing = batches_to_listing;
	for (; part_done() < 1; ++batch) {
		Dice dice(options.seed, batch + 1);
		traffic.mixed_batch(dice);
		traffic.follow_expiry();
		if (batch % batches_to_command == 0)
			world.any_command(dice);
		if (full.objects == 0 && traffic.short_filled == short_lived)
			full = watch.read("cache full for the first time");
		if (batch >= next_listing && !traffic.may_be_gone()) {
			next_listing = batch + batches_to_listing;
			++listings;
			wrong_listings += count_listed_addresses() != world.listed_addresses(traffic.short_filled);
		}
		if (!is_half && part_done() > 0.5) {
			is_half = true;
			watch.read("half of the mixture over");
		}
	}
	double seconds = monotonic() - began;
	Dice last_looks(options.seed, 0);
	for (unsigned i = 0; i < rows; ++i)
		world.check_lists(last_looks);
	uint64_t frames = traffic.accounts.frames() - frames_before;
	bool others_right = meanwhile.finish();
	after = watch.read("all of the mixture over");
	probe.pause(true);

	say("what is stale expires");
	unsigned passes_under_load = traffic.passes;
	double patience = monotonic() + 150;
	// In a machine that sleeps, time may leap; in another it passes.
	while (!traffic.may_be_gone() && monotonic() < patience) {
		Dice dice(options.seed + 1, batch++);
		traffic.mixed_batch(dice);
		traffic.follow_expiry();
		usleep(100000);
	}
	unsigned short_filled = traffic.short_filled;
	while (traffic.passes == passes_under_load && monotonic() < patience) {
		sleep(1);
		Dice dice(options.seed + 2, batch++);
		traffic.mixed_batch(dice);
		traffic.follow_expiry();
	}
	Dice dice(options.seed + 3, 0);
	checks.check(traffic.passes > passes_under_load && short_filled != 0,
		     "a pass of the thread takes what is stale");
	if (traffic.short_filled == 0)
		traffic.ask_expired(dice, 1000);

	say("everything is emptied");
	traffic.close_connections();
	world.close_portal();
	timespec later;
	clock_gettime(CLOCK_REALTIME, &later);
	later.tv_sec += 2 * long_life;
	if (clock_settime(CLOCK_REALTIME, &later))
		throw_errno("the clock");
	patience = monotonic() + 100;
	while (count_listed_addresses() != 0 && monotonic() < patience)
		sleep(1);
	checks.check(count_listed_addresses() == 0, "the whole cache expires");
	sleep(2);
	uint64_t emptied = watch.read("tables emptied").held();

	Probe::Outcome pings = probe.finish(options.tells_times);
	printf("\n");
	traffic.accounts.print();
	printf("\n");
	watch.print();
	printf("\n    %" PRIu64 " frames in the mixture", frames);
	if (options.tells_times)
		printf(", %.0f a second", double(frames) / seconds);
	printf("; of all, %" PRIu64 " for the model; %" PRIu64 " + %" PRIu64
	       " commands; %u passes of the thread under load; %" PRIu64 " listings; %" PRIu64 " waits for a frame\n\n",
	       traffic.accounts.sampled(), device.calls(), meanwhile.calls(), passes_under_load, listings,
	       traffic.late_batches);

	checks.check(traffic.accounts.wrong() == 0, "no frame came out where or as it must not, or did not come");
	checks.check(traffic.accounts.unbalanced_kinds() == 0, "every kind's frames balance");
	checks.check(traffic.accounts.kinds_never_sent() == 0, "frames of every kind were sent");
	checks.check(wires.lost() == 0, "no receiver lost a frame");
	checks.check(world.list_checks != 0 && world.wrong_lists == 0, "lists of clients have who was added");
	checks.check(listings != 0 && wrong_listings == 0, "the cache lists what it must, under load");
	checks.check(others_right, "other commands all succeeded meanwhile");
	checks.check(pings.unanswered == 0, "every ping of an admitted client was answered");
	if (options.tells_times)
		checks.check(pings.median_under_load <= longest_median,
			     "half of the pings under load were answered within 50 milliseconds");
	checks.check(full.objects != 0, "the cache was full");
	checks.check(after.held() <= full.held() + growth_allowed && after.available + loss_allowed >= full.available,
		     "the mixture takes no more memory than when all was full for the first time");
	checks.check(emptied <= empty + growth_allowed_after, "the memory is back when all is empty");
	return checks.are_right();
}

} // namespace load
