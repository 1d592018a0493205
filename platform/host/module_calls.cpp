// SPDX-License-Identifier: GPL-2.0-only
// The machine's calls into the module's life cycle, control device and proc file. A file of its own: programs that use a part of
// the module only, such as a parser's fuzzer, need not link the whole.
#include "platform/host/context.h"
#include "platform/host/machine.h"

namespace captive_portal::host
{

namespace
{

constexpr int no_such_device = -6;
constexpr int busy = -16;

} // namespace

int Machine::load()
{
	if (loaded_) {
		die("module loaded twice");
	}
	const int result = captive_portal_init();
	expect_no_lock_held("captive_portal_init");
	threads.settle();
	loaded_ = result == 0;
	return result;
}

int Machine::unload()
{
	if (!loaded_) {
		die("unload of a module that is not loaded");
	}
	if (module_references_ != 0) {
		return busy;
	}
	captive_portal_exit();
	expect_no_lock_held("captive_portal_exit");
	if (!hooks.registered().empty() || misc.registered().has_value() || proc.file().has_value() ||
	    status.directory() != nullptr || counters.are_there()) {
		die("the module left a registration behind");
	}
	if (!threads.threads().empty()) {
		die("the module left a thread behind");
	}
	loaded_ = false;
	return 0;
}

int Machine::open()
{
	if (!misc.registered().has_value()) {
		return no_such_device;
	}
	const int result = captive_portal_open();
	expect_no_lock_held("captive_portal_open");
	return result;
}

int Machine::release()
{
	const int result = captive_portal_release();
	expect_no_lock_held("captive_portal_release");
	return result;
}

long Machine::ioctl(int32_t command, unsigned long argument)
{
	const long result = captive_portal_ioctl(command, argument);
	expect_no_lock_held("captive_portal_ioctl");
	return result;
}

long Machine::compat_ioctl(uint32_t command, unsigned long argument)
{
	const long result = captive_portal_compat_ioctl(command, argument);
	expect_no_lock_held("captive_portal_compat_ioctl");
	return result;
}

long Machine::proc_read(cp_user_address buffer, size_t length, int64_t &position)
{
	return proc.call([&] {
		const long result = captive_portal_summary_read(buffer, length, &position);
		expect_no_lock_held("captive_portal_summary_read");
		return result;
	});
}

long Machine::proc_write(cp_user_address buffer, size_t count)
{
	return proc.call([&] {
		const long result = captive_portal_summary_write(buffer, count);
		expect_no_lock_held("captive_portal_summary_write");
		return result;
	});
}

std::string Machine::status_text(const std::string &name)
{
	const std::optional<std::string> text = status.read(name);
	if (!text.has_value()) {
		die("there is no status file of this name");
	}
	expect_no_lock_held("a status file's write_part");
	return *text;
}

} // namespace captive_portal::host
