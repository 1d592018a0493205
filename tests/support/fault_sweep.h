// SPDX-License-Identifier: GPL-2.0-only
// Everything that an operation of the module asks of its kernel and that may fail does fail, one at a time: the first
// request, then the second, until none is left. Each failure is a row that says what comes of it. An operation that asks
// for more than it has rows for, or for less, fails its test: so the rows are all there are.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/machine.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

// Does something to a machine with a loaded module.
using Deed = std::function<void(host::Machine &)>;

enum class Service {
	allocation,    // atomic or large, copies of user records included
	user_copy,     // from user space or to it
	packet_copy,   // of bytes that a packet has elsewhere
	make_writable, // of a packet
	registration, // of counters, hooks, device, thread, proc file, status files: the order in which they are asked for
};

// A failure, in the order of the requests.
struct AfterFault {
	const char *what; // failed
	long result = 0;
	std::vector<LogLine> log = {};
	// Done to the operation's state, leaves the tables as the failure does. No deed: the tables are as before.
	std::vector<Deed> leaves = {};
	// Without a failure the operation then gives what it gives in the first place.
	bool second_try_heals = true;
};

// For AfterFault::leaves: the tables are as if nothing had failed.
[[nodiscard]] std::vector<Deed> all_of_it();

struct Operation {
	std::string name;
	// Before it, on a machine with build_access_point()'s devices.
	std::vector<Deed> state = {};
	// What it answers: the result of a call, or a hook's verdict. Packets are made by packet_under_faults().
	std::function<long(host::Machine &)> run = {};
	long result = 0;

	std::vector<AfterFault> allocations = {};
	std::vector<AfterFault> user_copies = {};
	std::vector<AfterFault> packet_copies = {};
	std::vector<AfterFault> make_writables = {};
	std::vector<AfterFault> registrations = {};

	// Off: for the start itself.
	bool module_is_loaded = true;
};

// Fails each request of the operation, each on a machine of its own, and looks at the answer, the log, the tables and
// their indexes, the locks, and the memory: no more and no less of it is in use than where the same tables came about
// without a failure, nothing is lost, and the stop leaves only what it deliberately keeps. The test must not have a
// machine. Numbers of source lines in the log stand as [N].
void fail_each_request(const Operation &operation);

// All that a program's tests have swept. One test alone says nothing; a run of the whole program prints both numbers, and
// fails when they are others.
class SweepTotals : public ::testing::Environment
{
public:
	SweepTotals(size_t operations, size_t failures) : operations_(operations), failures_(failures) {}
	void TearDown() override;

private:
	size_t operations_;
	size_t failures_;
};

// Sends the frame through the hooks, in from `in` or out to `out`; what is to fail of a packet's requests does.
// `headers_only`: the bytes behind the headers lie elsewhere.
[[nodiscard]] long pass_in(host::Machine &machine, const host::Frame &frame, const std::string &in,
			   std::optional<uint32_t> firewall_mark = {});
[[nodiscard]] long pass_out(host::Machine &machine, const host::Frame &frame, const std::string &out,
			    host::Layout layout = host::Layout::linear);

} // namespace captive_portal::test
