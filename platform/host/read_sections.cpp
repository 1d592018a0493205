// SPDX-License-Identifier: GPL-2.0-only
// Each thread has a word: 0, or the epoch in which its section began. Whoever waits begins a new epoch and looks at each
// word until it is 0 or of the new epoch.
//
// A thread writes its word and then looks whether the epoch is still the one that it wrote. If it is, whoever begins a
// later one sees the word. If not, the thread has seen the new epoch, and with it all that was written before: it cannot
// find what is about to be freed.
#include "platform/host/read_sections.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

#include "platform/host/context.h"

namespace captive_portal::host
{

namespace
{

struct alignas(64) Place {
	std::atomic<bool> taken = false;
	std::atomic<uint64_t> section = 0;
};

// More threads than any test has at a time.
std::array<Place, 256> places;
std::atomic<uint64_t> epoch = 1;

// A thread's place, as long as the thread lives.
class OwnPlace
{
public:
	OwnPlace()
	{
		for (Place &place : places) {
			if (!place.taken.exchange(true)) {
				place_ = &place;
				return;
			}
		}
		die("more threads run hooks than there are places for");
	}
	~OwnPlace() { place_->taken = false; }
	OwnPlace(const OwnPlace &) = delete;
	OwnPlace &operator=(const OwnPlace &) = delete;

	[[nodiscard]] std::atomic<uint64_t> &section() { return place_->section; }

private:
	Place *place_ = nullptr;
};

std::atomic<uint64_t> &own_section()
{
	thread_local OwnPlace place;
	return place.section();
}

} // namespace

ReadSection::ReadSection()
{
	std::atomic<uint64_t> &own = own_section();
	if (own.load(std::memory_order_relaxed) != 0) {
		die("a read section begins inside a read section");
	}
	for (uint64_t now = epoch.load();;) {
		own.store(now);
		const uint64_t then = epoch.load();
		if (then == now) {
			return;
		}
		now = then;
	}
}

ReadSection::~ReadSection()
{
	own_section().store(0, std::memory_order_release);
}

void wait_for_readers()
{
	if (own_section().load(std::memory_order_relaxed) != 0) {
		die("a thread waits for readers inside a read section");
	}
	const uint64_t now = epoch.fetch_add(1) + 1;
	for (const Place &place : places) {
		for (uint64_t section = place.section.load(); section != 0 && section < now;
		     section = place.section.load()) {
			std::this_thread::yield();
		}
	}
}

} // namespace captive_portal::host
