// SPDX-License-Identifier: GPL-2.0-only
// A machine that runs the host kernel: everything below the seam, for one test, one fuzzer input or one benchmark.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/host/counters.h"
#include "platform/host/devices.h"
#include "platform/host/kernel_log.h"
#include "platform/host/kernel_memory.h"
#include "platform/host/kernel_threads.h"
#include "platform/host/mutexes.h"
#include "platform/host/packet_buffer.h"
#include "platform/host/proc_files.h"
#include "platform/host/registrations.h"
#include "platform/host/spin_locks.h"
#include "platform/host/status_files.h"
#include "platform/host/user_memory.h"
#include "platform/platform.h"

namespace captive_portal::host
{

class WallClock
{
public:
	void set(int64_t seconds) { seconds_ = seconds; }
	void advance(int64_t seconds) { seconds_ += seconds; }
	[[nodiscard]] int64_t seconds() const { return seconds_; }

private:
	std::atomic<int64_t> seconds_ = 1'700'000'000;
};

// Calls of the seam that change what the module is known by, in the order in which they came.
enum class Event {
	hooks_registered,
	hooks_refused,
	hooks_unregistered,
	misc_registered,
	misc_refused,
	misc_deregistered,
	thread_created,
	thread_refused,
	thread_woken,
	thread_stopped,
	proc_created,
	proc_refused,
	proc_removed,
	status_created,
	status_refused,
	status_removed,
};

// One at a time: the seam's functions serve the machine that lives. Its making loads the module's image afresh (all
// static state as the linker left it); its end stops the threads that the module has not, dies when a lock is held, and
// frees what the module has not.
class Machine
{
public:
	Machine();
	~Machine();
	Machine(const Machine &) = delete;
	Machine &operator=(const Machine &) = delete;

	// Dies when there is none.
	[[nodiscard]] static Machine &current();

	KernelLog log;
	KernelMemory memory;
	UserMemory user;
	Devices devices;
	WallClock clock;
	SpinLocks locks;
	Mutexes mutexes;
	BridgeHooks hooks;
	MiscDevices misc;
	ProcFiles proc;
	StatusFiles status;
	Counters counters;
	KernelThreads threads;

	// Memory that the module has asked for and not freed, oldest first.
	[[nodiscard]] std::vector<Allocation> live_allocations() const { return memory.live(); }
	// What of it nothing in the module points to any more.
	[[nodiscard]] std::vector<Allocation> lost_allocations() const;

	// insmod: the module's start and its result, once its threads sleep. A failed start leaves the module as its
	// start left it, so that a test can look at it.
	[[nodiscard]] int load();
	// rmmod: the module's stop, or -16 and nothing done while the module is in use.
	[[nodiscard]] int unload();
	[[nodiscard]] bool is_loaded() const { return loaded_; }
	// What holds the module in memory.
	[[nodiscard]] int32_t module_references() const { return module_references_; }
	void get_module() { ++module_references_; }
	void put_module();

	// The control device's file: 0 or a negative error, and -6 while it is not registered; the dispatcher's result as
	// it is. All four die if the module returns with a lock held.
	[[nodiscard]] int open();
	[[nodiscard]] int release();
	[[nodiscard]] long ioctl(int32_t command, unsigned long argument);
	[[nodiscard]] long compat_ioctl(uint32_t command, unsigned long argument);

	// The proc file, as a process that has it open sees it, and -5 while it is not there. A read moves `position`.
	[[nodiscard]] long proc_read(cp_user_address buffer, size_t length, int64_t &position);
	[[nodiscard]] long proc_write(cp_user_address buffer, size_t count);

	// The whole text of a status file; dies when it is not there, or the module returns with a lock held.
	[[nodiscard]] std::string status_text(const std::string &name);

	// The bridge's hook points. The hook state has no egress device at the first, no ingress device at the second.
	[[nodiscard]] cp_verdict pre_routing(PacketBuffer &packet, const std::string &in_name);
	[[nodiscard]] cp_verdict post_routing(PacketBuffer &packet, const std::string &out_name);

	[[nodiscard]] std::vector<Event> events() const;
	// Calls `action` each time right after the event, before the module goes on.
	void after(Event event, std::function<void()> action);
	void happened(Event event);

private:
	bool loaded_ = false;
	std::atomic<int32_t> module_references_ = 0;
	mutable std::mutex events_mutex_;
	std::vector<Event> events_;
	std::map<Event, std::function<void()>> actions_;
};

} // namespace captive_portal::host
