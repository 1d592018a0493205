#include "meanwhile.h"

#include "device.h"
#include "dice.h"
#include "shared.h"
#include "wires.h"

#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

namespace load
{

namespace
{

constexpr unsigned stations = 20, rounds_to_new_rules = 16, pause_between = 20000; // microseconds

Mac station(unsigned number)
{
	return {2, 0x30, 0, 0, 0, uint8_t(number)};
}

} // namespace

Meanwhile::Meanwhile(Device &device) : shared(make_shared_memory<Shared>())
{
	process = fork();
	if (process < 0)
		throw_errno("a process for what goes on meanwhile");
	if (process)
		return;
	int status = 1;
	try {
		work(device);
		status = 0;
	} catch (const Trouble &trouble) {
		printf("    meanwhile: %s\n", trouble.what());
		fflush(stdout);
	}
	_exit(status);
}

Meanwhile::~Meanwhile()
{
	shared.must_end = true;
	if (process > 0)
		waitpid(process, nullptr, 0);
}

void Meanwhile::work(Device &device)
{
	device.tell_nobody();
	uint64_t before = device.calls();
	Dice dice(3, 3);
	for (unsigned round = 0; !shared.must_end; ++round) {
		unsigned row = dice.below(rows);
		for (unsigned i = 0; i < stations; ++i) {
			device.set_client(ADD_MAC_AUTH_FALLBACK, row, station(i));
			device.set_global_client(ADD_MIREL_BLACK_LIST_MAC, station(i));
		}
		device.count_clients(GET_MAC_AUTH_FALLBACK, row);
		if (round % rounds_to_new_rules == 0)
			device.set_mirel_rules({"*.generation-" + std::to_string(round) + ".example.com"});
		for (unsigned i = 0; i < stations; ++i) {
			device.set_client(DEL_MAC_AUTH_FALLBACK, row, station(i));
			device.set_global_client(DEL_MIREL_BLACK_LIST_MAC, station(i));
		}
		shared.calls = device.calls() - before;
		usleep(pause_between);
	}
	device.set_mirel_rules({});
}

bool Meanwhile::finish()
{
	shared.must_end = true;
	int status = 1;
	bool is_good = waitpid(process, &status, 0) == process && status == 0;
	process = 0;
	return is_good && shared.calls != 0;
}

} // namespace load
