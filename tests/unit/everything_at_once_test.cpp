// SPDX-License-Identifier: GPL-2.0-only
// Everything that the module does, at once and for as long as is wanted: frames of all kinds and answers of the name
// service at the hooks, every command, readers and writers of the proc file, readers of the status files, expiry, new
// rules, and the module's unload and load in the midst of them.
//
// RACES_SECONDS in the environment says for how long; two seconds if it is not there. The last line says what ran.
#include <chrono>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/host/context.h"
#include "tests/support/user_buffer.h"
#include "tests/unit/concurrency_fixture.h"

namespace captive_portal::test
{

namespace
{

std::chrono::seconds wanted_time()
{
	const char *const text = std::getenv("RACES_SECONDS");
	return std::chrono::seconds(text == nullptr ? 2 : std::strtol(text, nullptr, 10));
}

// How each line of a status file begins, and how often it was seen: the file's keywords.
struct StatusLines {
	const char *file;
	const char *keyword;
	std::atomic<uint64_t> seen = 0;
};

class EverythingAtOnce : public Concurrency
{
protected:
	EverythingAtOnce()
	{
		// A thread's first pass comes with the load, whatever the clock does; each later one is the clock's work.
		machine.threads.before_sleep([this] {
			thread_local bool had_first_pass = false;
			if (std::exchange(had_first_pass, true)) {
				++passes;
			}
		});
	}
	~EverythingAtOnce() override { stop_traffic(); }

	// One reader's turn: a listing, or the error of a file that is gone.
	void read_listing(size_t length)
	{
		UserBuffer buffer(machine, length);
		int64_t position = 0;
		const long produced = machine.proc_read(buffer.address(), length, position);
		if (produced == file_is_gone) {
			return;
		}
		ASSERT_GE(produced, 0);
		const std::vector<std::byte> bytes = buffer.read();
		const std::string_view text(reinterpret_cast<const char *>(bytes.data()),
					    static_cast<size_t>(produced));
		EXPECT_TRUE(text.starts_with("Captive Portal DNS A Record Info, target=")) << text;
		++reads;
	}

	void select_target(std::string_view target)
	{
		UserBuffer buffer(machine, target.size());
		buffer.write(std::as_bytes(std::span(target)));
		const long taken = machine.proc_write(buffer.address(), target.size());
		EXPECT_TRUE(taken == static_cast<long>(target.size()) || taken == file_is_gone) << taken;
		writes += taken == file_is_gone ? 0 : 1;
	}

	// One reader's turn: a status file, or none where it is gone.
	void read_status_file(const char *file)
	{
		const std::optional<std::string> text = machine.status.read(file);
		host::expect_no_lock_held("a status file's reader");
		if (!text.has_value()) {
			return;
		}
		ASSERT_TRUE(text->empty() || text->ends_with('\n')) << file << ": " << *text;
		size_t rows = 0;
		for (std::string_view rest = *text; !rest.empty(); rest.remove_prefix(rest.find('\n') + 1)) {
			const std::string_view line = rest.substr(0, rest.find('\n'));
			const auto known =
				std::find_if(status_lines.begin(), status_lines.end(), [&](const StatusLines &lines) {
					return std::string_view(file) == lines.file && line.starts_with(lines.keyword);
				});
			ASSERT_NE(known, status_lines.end()) << file << ": " << line;
			++known->seen;
			rows += line.starts_with("interface index=") ? 1 : 0;
		}
		EXPECT_EQ(rows, std::string_view(file) == "status" ? 28u : 0u) << *text;
		++status_reads;
	}

	// What has not run yet, for people.
	[[nodiscard]] std::string missing() const
	{
		std::string names;
		const auto note = [&names](bool ran, const std::string &name) {
			if (!ran) {
				names += name;
				names += "; ";
			}
		};
		note(frames() >= 100, "frames");
		note(command_turns() != 0, "commands");
		note(reads != 0, "reads of the proc file");
		note(writes != 0, "writes of the proc file");
		note(passes != 0, "expiry passes");
		for (const StatusLines &lines : status_lines) {
			note(lines.seen != 0, lines.keyword);
		}
		return names;
	}

	void start_proc_and_expiry()
	{
		for (const size_t length : {size_t{64} * 1024, size_t{300}}) {
			start([this, length] { read_listing(length); });
		}
		start([this, dice = Dice(50)]() mutable {
			constexpr std::array<const char *, 4> targets = {"all", "mirel", "wlan-1-1", "203.0.1.3"};
			select_target(dice.one_of(targets));
			std::this_thread::yield();
		});
		for (const unsigned seed : {51U, 52U}) {
			start([this, dice = Dice(seed)]() mutable {
				constexpr std::array<const char *, 5> files = {"status", "clients", "garden",
									       "counters", "cache"};
				read_status_file(dice.one_of(files));
				std::this_thread::yield();
			});
		}
		start([this] {
			machine.clock.advance(1);
			machine.threads.advance(6000);
			std::this_thread::yield();
		});
	}

	// The module goes and comes back. A process that has the device open keeps it here for that time.
	void reload()
	{
		change_clients(machine, FLUSH_CAPTIVE_PORTAL_TABLE, "all");
		int result = 0;
		while ((result = unload()) != 0) {
			ASSERT_EQ(result, -16);
			std::this_thread::yield();
		}
		load_and_configure();
		++loads;
	}

	std::atomic<uint64_t> reads = 0;
	std::atomic<uint64_t> writes = 0;
	std::atomic<uint64_t> passes = 0;
	std::atomic<uint64_t> status_reads = 0;
	std::array<StatusLines, 11> status_lines = {{
		{"status", "module format=1 "},
		{"status", "interface index="},
		{"status", "owe name="},
		{"clients", "client table="},
		{"garden", "default-rule slot="},
		{"garden", "rule interface="},
		{"counters", "count interface=wlan-1-1 reason=redirect-portal value="},
		{"counters", "count interface=other reason=address-expired value="},
		{"counters", "count interface="},
		{"cache", "cached address="},
		{"cache", "cached-name address="},
	}};
	uint64_t processes = 0;
	uint64_t loads = 0;

private:
	static constexpr long file_is_gone = -5;
};

TEST_F(EverythingAtOnce, ForAsLongAsIsWanted)
{
	const auto end = std::chrono::steady_clock::now() + wanted_time();
	load_and_configure();
	start_traffic();
	unsigned seed = 20;
	for (const Work work : more_traffic) {
		start_frames(work, ++seed);
	}
	start_proc_and_expiry();
	const auto latest = end + std::chrono::minutes(1); // ctest gives two
	const auto goes_on = [&] {
		const auto now = std::chrono::steady_clock::now();
		return now < end || (now < latest && !missing().empty());
	};
	while (!HasFailure() && goes_on()) {
		// The module is unloaded under all that does not hold it, and while a process wants it.
		std::thread process([this] { run_process(25); });
		reload();
		process.join();
		run_process(10);
		++processes;
	}
	stop_traffic();
	EXPECT_EQ(missing(), "");
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(machine.lost_allocations().empty());
	std::printf("%llu frames, %llu turns of commands, %llu reads and %llu writes of the proc file, %llu reads of "
		    "status files, "
		    "%llu expiry passes, %llu loads\n",
		    static_cast<unsigned long long>(frames()), static_cast<unsigned long long>(command_turns()),
		    static_cast<unsigned long long>(reads), static_cast<unsigned long long>(writes),
		    static_cast<unsigned long long>(status_reads), static_cast<unsigned long long>(passes),
		    static_cast<unsigned long long>(loads));
}

} // namespace

} // namespace captive_portal::test
