// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/kernel_threads.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "platform/host/context.h"

using captive_portal::host::ThreadState;

// The seam's handle. Everything but the constants is guarded by the mutex of KernelThreads.
struct cp_thread {
	const std::string name;
	int (*const body)(void);
	ThreadState state = ThreadState::created;
	bool woken = false;
	bool stop_requested = false;
	uint64_t wakes_at = 0;
	int result = 0;
	std::thread thread{};
};

namespace captive_portal::host
{

namespace
{

constexpr int interrupted = -4;

thread_local cp_thread *running_thread = nullptr;

cp_thread *expect_running_thread(const char *what)
{
	if (running_thread == nullptr) {
		die("%s outside of a thread of the module", what);
	}
	return running_thread;
}

} // namespace

// Both here, where the handle is complete.
KernelThreads::KernelThreads() = default;

KernelThreads::~KernelThreads()
{
	end_all();
}

cp_thread *KernelThreads::create(int (*body)(void), const char *name)
{
	might_sleep("cp_thread_create");
	const std::lock_guard lock(mutex_);
	++create_calls_;
	if (std::exchange(fail_next_, false)) {
		return nullptr;
	}
	cp_thread *const thread =
		threads_.emplace_back(std::unique_ptr<cp_thread>(new cp_thread{.name = name, .body = body})).get();
	thread->thread = std::thread([this, thread] { run(thread); });
	return thread;
}

cp_thread *KernelThreads::find(const cp_thread *thread) const
{
	const auto found = std::find_if(threads_.begin(), threads_.end(),
					[&](const auto &candidate) { return candidate.get() == thread; });
	if (found == threads_.end()) {
		die("a thread that is not there: %p", static_cast<const void *>(thread));
	}
	return found->get();
}

void KernelThreads::run(cp_thread *thread)
{
	{
		std::unique_lock lock(mutex_);
		changed_.wait(lock, [&] { return thread->state == ThreadState::runnable; });
		if (thread->stop_requested) {
			thread->result = interrupted;
			thread->state = ThreadState::ended;
			changed_.notify_all();
			return;
		}
	}
	running_thread = thread;
	const int result = thread->body();
	expect_no_lock_held("a thread's body");
	const std::lock_guard lock(mutex_);
	thread->result = result;
	thread->state = ThreadState::ended;
	changed_.notify_all();
}

void KernelThreads::wake_up(cp_thread *thread)
{
	const std::lock_guard lock(mutex_);
	++wake_up_calls_;
	find(thread)->woken = true;
	if (thread->state == ThreadState::created && !held_at_start_) {
		thread->state = ThreadState::runnable;
		changed_.notify_all();
	}
}

void KernelThreads::request_stop(cp_thread *thread)
{
	thread->stop_requested = true;
	if (thread->state == ThreadState::created || thread->state == ThreadState::sleeping) {
		thread->state = ThreadState::runnable;
	}
	changed_.notify_all();
}

void KernelThreads::end_and_forget(std::unique_lock<std::mutex> &lock, cp_thread *thread)
{
	request_stop(thread);
	changed_.wait(lock, [&] { return thread->state == ThreadState::ended; });
	thread->thread.join();
	ended_.push_back({thread->name, thread->result});
	std::erase_if(threads_, [&](const auto &candidate) { return candidate.get() == thread; });
	changed_.notify_all();
}

void KernelThreads::stop(cp_thread *thread)
{
	might_sleep("cp_thread_stop");
	if (running_thread != nullptr && running_thread == thread) {
		die("a thread that stops itself waits for ever");
	}
	std::unique_lock lock(mutex_);
	++stop_calls_;
	end_and_forget(lock, find(thread));
}

void KernelThreads::end_all()
{
	std::unique_lock lock(mutex_);
	while (!threads_.empty()) {
		end_and_forget(lock, threads_.front().get());
	}
}

bool KernelThreads::should_stop() const
{
	const cp_thread *const thread = expect_running_thread("cp_thread_should_stop");
	const std::lock_guard lock(mutex_);
	return thread->stop_requested;
}

void KernelThreads::sleep(uint32_t ticks)
{
	might_sleep("cp_thread_sleep");
	cp_thread *const thread = expect_running_thread("cp_thread_sleep");
	std::unique_lock lock(mutex_);
	if (const std::function<void()> action = before_sleep_) {
		lock.unlock();
		action();
		lock.lock();
	}
	if (thread->stop_requested) {
		return;
	}
	thread->wakes_at = ticks_ + ticks;
	thread->state = ThreadState::sleeping;
	changed_.notify_all();
	changed_.wait(lock, [&] { return thread->state != ThreadState::sleeping; });
}

void KernelThreads::yield()
{
	might_sleep("cp_yield_processor");
	if (!watches_yields_.load(std::memory_order_relaxed)) {
		return;
	}
	std::unique_lock lock(mutex_);
	if (const std::function<void(uint64_t)> action = on_yield_) {
		const uint64_t number = ++yields_;
		lock.unlock();
		action(number);
	}
}

std::vector<KernelThreads::Record> KernelThreads::threads() const
{
	const std::lock_guard lock(mutex_);
	std::vector<Record> records;
	for (const auto &thread : threads_) {
		records.push_back({thread->name, thread->state, thread->stop_requested});
	}
	return records;
}

std::vector<KernelThreads::End> KernelThreads::ended() const
{
	const std::lock_guard lock(mutex_);
	return ended_;
}

uint64_t KernelThreads::ticks() const
{
	const std::lock_guard lock(mutex_);
	return ticks_;
}

void KernelThreads::wait_until_settled(std::unique_lock<std::mutex> &lock)
{
	changed_.wait(lock, [&] {
		return std::none_of(threads_.begin(), threads_.end(),
				    [](const auto &thread) { return thread->state == ThreadState::runnable; });
	});
}

void KernelThreads::settle()
{
	std::unique_lock lock(mutex_);
	wait_until_settled(lock);
}

void KernelThreads::advance(uint64_t ticks)
{
	std::unique_lock lock(mutex_);
	const uint64_t target = ticks_ + ticks;
	while (true) {
		wait_until_settled(lock);
		uint64_t next = target + 1;
		for (const auto &thread : threads_) {
			if (thread->state == ThreadState::sleeping) {
				next = std::min(next, thread->wakes_at);
			}
		}
		if (next > target) {
			break;
		}
		ticks_ = std::max(ticks_, next);
		for (const auto &thread : threads_) {
			if (thread->state == ThreadState::sleeping && thread->wakes_at <= ticks_) {
				thread->state = ThreadState::runnable;
			}
		}
		changed_.notify_all();
	}
	ticks_ = target;
}

void KernelThreads::hold_at_start(bool on)
{
	const std::lock_guard lock(mutex_);
	held_at_start_ = on;
	if (on) {
		return;
	}
	for (const auto &thread : threads_) {
		if (thread->state == ThreadState::created && thread->woken) {
			thread->state = ThreadState::runnable;
		}
	}
	changed_.notify_all();
}

void KernelThreads::on_yield(std::function<void(uint64_t)> action)
{
	const std::lock_guard lock(mutex_);
	watches_yields_ = action != nullptr;
	on_yield_ = std::move(action);
	yields_ = 0;
}

void KernelThreads::before_sleep(std::function<void()> action)
{
	const std::lock_guard lock(mutex_);
	before_sleep_ = std::move(action);
}

} // namespace captive_portal::host
