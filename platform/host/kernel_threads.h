// SPDX-License-Identifier: GPL-2.0-only
// The module's threads: real ones, over a clock of scheduler ticks that stands still until a test moves it. So a thread
// that sleeps does so until the test wants its next pass, and the test knows when the pass is over.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace captive_portal::host
{

enum class ThreadState {
	created,  // not woken yet, or woken and held at its start
	runnable, // runs, or is about to
	sleeping,
	ended,
};

class KernelThreads
{
public:
	struct Record {
		std::string name;
		ThreadState state;
		bool stop_requested;
	};
	// A thread that was stopped.
	struct End {
		std::string name;
		int result; // the body's, or the kernel's -4 when the body never ran
		friend bool operator==(const End &, const End &) = default;
	};

	KernelThreads();
	~KernelThreads();

	// The seam's calls. The second group is for a thread's body; all die where a kernel would crash.
	[[nodiscard]] cp_thread *create(int (*body)(void), const char *name);
	void wake_up(cp_thread *thread);
	void stop(cp_thread *thread);

	[[nodiscard]] bool should_stop() const;
	void sleep(uint32_t ticks);
	void yield();

	// The next creation gives nothing.
	void fail_next_creation() { fail_next_ = true; }
	[[nodiscard]] uint32_t create_calls() const { return create_calls_; }
	[[nodiscard]] uint32_t wake_up_calls() const { return wake_up_calls_; }
	[[nodiscard]] uint32_t stop_calls() const { return stop_calls_; }
	// Threads that are there, in the order of their creation; those that were stopped, in the order of their ends.
	[[nodiscard]] std::vector<Record> threads() const;
	[[nodiscard]] std::vector<End> ended() const;

	[[nodiscard]] uint64_t ticks() const;
	// Moves the clock on, stopping at each moment at which a sleeper wakes until all sleep again.
	void advance(uint64_t ticks);
	// Returns when no thread runs.
	void settle();
	// While it is on, threads that are woken for the first time do not get to their bodies.
	void hold_at_start(bool on);

	// Called by the thread that yields, with the number of its call since now, 1 being the first.
	void on_yield(std::function<void(uint64_t)> action);
	// Called by the thread that is about to sleep, which looks for a stop once more afterwards.
	void before_sleep(std::function<void()> action);

	// Stops and forgets all that are left: the end of a machine whose module was not unloaded.
	void end_all();

private:
	[[nodiscard]] cp_thread *find(const cp_thread *thread) const;
	void run(cp_thread *thread);
	void request_stop(cp_thread *thread);
	void wait_until_settled(std::unique_lock<std::mutex> &lock);
	void end_and_forget(std::unique_lock<std::mutex> &lock, cp_thread *thread);

	mutable std::mutex mutex_;
	std::condition_variable changed_;
	std::vector<std::unique_ptr<cp_thread>> threads_;
	std::vector<End> ended_;
	uint64_t ticks_ = 0;
	bool fail_next_ = false;
	bool held_at_start_ = false;
	std::function<void(uint64_t)> on_yield_;
	std::function<void()> before_sleep_;
	// Asked without the mutex, which would order the passing thread against the test.
	std::atomic<bool> watches_yields_ = false;
	uint64_t yields_ = 0;
	std::atomic<uint32_t> create_calls_ = 0;
	std::atomic<uint32_t> wake_up_calls_ = 0;
	std::atomic<uint32_t> stop_calls_ = 0;
};

} // namespace captive_portal::host
