// SPDX-License-Identifier: GPL-2.0-only
// The machine's calls into the module's life cycle and control device. A file of its own: programs that use a part of
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
	if (!hooks.registered().empty() || misc.registered().has_value()) {
		die("the module left a registration behind");
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

} // namespace captive_portal::host
