// SPDX-License-Identifier: GPL-2.0-only
// Each request of the start, of the stop after it, of the expiry pass, and of the proc file fails once.
// tests/support/fault_sweep.h says what is looked at.
#include <gtest/gtest.h>

#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "base/atomic_word.h"
#include "base/counters.h"
#include "base/debug_level.h"
#include "core/module.h"
#include "core/status.h"
#include "garden/arecord_table.h"
#include "garden/summary.h"
#include "tests/support/cast.h"
#include "tests/support/control.h"
#include "tests/support/fault_sweep.h"
#include "tests/support/user_buffer.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

namespace
{

using host::Machine;

// ---- Start ----------------------------------------------------------------------------------------------------------

Deed started(std::function<void(Machine &)> order)
{
	return [=](Machine &machine) {
		order(machine);
		static_cast<void>(machine.load());
	};
}

// The sweep stops the module after each start that succeeded, so a stop follows each half-made start too.
TEST(FaultsOfTheModule, Start)
{
	const LogLine begins[] = {debug_line("captive_portal_init\n"),
				  debug_line("[init captive portal] minor:255, name:CP_dev\n")};
	const LogLine no_hooks = debug_line("nf_register_hook fail\n");
	const LogLine dns_side = debug_line("dns_parse_init\n");
	const LogLine thread = default_line("wake_up_process schedule_check_thread\n");
	fail_each_request({
		.name = "start",
		.run = [](Machine &machine) -> long { return machine.load(); },
		.registrations =
			{
				{.what = "counters",
				 .log = {begins[0], begins[1], dns_side, thread},
				 .leaves = {started([](Machine &machine) {
					 machine.after(host::Event::hooks_registered, [] { cp_counters_remove(); });
				 })},
				 .second_try_heals = false},
				{.what = "hooks",
				 .log = {begins[0], begins[1], no_hooks, dns_side, thread},
				 .leaves = {started([](Machine &machine) {
					 machine.after(host::Event::proc_created, [&machine] {
						 cp_unregister_hooks(captive_portal_hooks, captive_portal_hook_count);
					 });
				 })},
				 .second_try_heals = false},
				// The hooks stay registered: the platform takes them off.
				{.what = "device",
				 .result = -16,
				 .log = {begins[0], begins[1],
					 debug_line(
						 "[captive portal] cannot register miscdev on minor=255 (err=-16)\n"),
					 debug_line("[captive portal] captive_portal_misc_dev failed!!\n")},
				 .leaves = {[](Machine &) {
					 EXPECT_EQ(cp_register_hooks(captive_portal_hooks, captive_portal_hook_count),
						   0);
					 EXPECT_EQ(cp_counters_create(counter_count), 0);
					 store_word(debug_level, 1);
				 }},
				 .second_try_heals = false},
				{.what = "thread", .log = {begins[0], begins[1], dns_side}, .leaves = all_of_it()},
				{.what = "proc file",
				 .log = {begins[0], begins[1], dns_side, thread},
				 .leaves = {started([](Machine &machine) {
					 machine.after(host::Event::proc_created,
						       [] { cp_proc_remove(&summary_file); });
				 })},
				 .second_try_heals = false},
				{.what = "status files",
				 .log = {begins[0], begins[1], dns_side, thread},
				 .leaves = {started([](Machine &machine) {
					 machine.after(host::Event::status_created,
						       [] { cp_status_remove(&status_directory); });
				 })},
				 .second_try_heals = false},
			},
		.module_is_loaded = false,
	});
}

TEST(FaultsOfTheModule, StopAndExpiryAskForNothing)
{
	const Deed full = [](Machine &machine) {
		change_clients(machine, ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1.mac);
		set_garden(machine, UPDATE_RULE, 0, 1, {domain_rule("*.example")});
		add(upstream_server.address, "www.example", 1);
	};
	fail_each_request({.name = "expiry pass", .state = {full}, .run = [](Machine &machine) {
				   machine.clock.advance(3600);
				   machine.threads.advance(60'000);
				   return static_cast<long>(
					   addresses_in(arecord_bucket(upstream_server.address)).size());
			   }});
	fail_each_request({.name = "stop", .state = {full}, .run = [](Machine &machine) -> long {
				   return machine.is_loaded() ? machine.unload() : 0;
			   }});
}

// ---- Proc file ------------------------------------------------------------------------------------------------------

long read_report(Machine &machine, size_t length)
{
	UserBuffer buffer(machine, length);
	int64_t position = 0;
	return machine.proc_read(buffer.address(), length, position);
}

long write_target(Machine &machine, std::string_view text)
{
	UserBuffer buffer(machine, text.size());
	buffer.write(std::as_bytes(std::span(text)));
	return machine.proc_write(buffer.address(), text.size());
}

const Deed two_addresses = [](Machine &) {
	add(ipv4(192, 0, 2, 1), "www.example", 1);
	add(ipv4(192, 0, 2, 2), "ftp.example", 2);
};

const std::string whole_report = "Captive Portal DNS A Record Info, target=all\n"
				 "[192]IP=192.0.2.1, timeout=1700000060\n"
				 "  match walled garden: 1-1\n"
				 "  fqdn = www.example\n"
				 "[192]IP=192.0.2.2, timeout=1700000060\n"
				 "  match walled garden: 1-2\n"
				 "  fqdn = ftp.example\n"
				 "Finished...\n";

// Without memory nothing is marked as shown; what cannot be written to the reader was shown all the same.
TEST(FaultsOfTheModule, ProcRead)
{
	const auto length = static_cast<long>(whole_report.size());
	fail_each_request({.name = "read of the report",
			   .state = {two_addresses},
			   .run = [](Machine &machine) { return read_report(machine, 4096); },
			   .result = length,
			   .allocations = {{.what = "the report", .result = -12}},
			   .user_copies = {{.what = "copy of the report", .result = length, .leaves = all_of_it()}}});
	fail_each_request({.name = "read with no room", .state = {two_addresses}, .run = [](Machine &machine) {
				   return read_report(machine, 0);
			   }});
}

// What cannot be read counts as empty, which is refused.
TEST(FaultsOfTheModule, ProcWrite)
{
	fail_each_request(
		{.name = "write of a target",
		 .state = {two_addresses, [](Machine &machine) { static_cast<void>(read_report(machine, 4096)); }},
		 .run = [](Machine &machine) { return write_target(machine, "wlan-1-2"); },
		 .result = 8,
		 .user_copies = {{.what = "copy of the text",
				  .result = -22,
				  .log = {error_line("summary_write [N]: iface() is wrong!\n")}}}});
	fail_each_request({.name = "write that is too long",
			   .run = [](Machine &machine) { return write_target(machine, "wlan-1-2 and more text"); },
			   .result = -22,
			   .user_copies = {{.what = "copy of the text",
					    .result = -22,
					    .log = {error_line("summary_write [N]: iface() is wrong!\n")}}}});
}

[[maybe_unused]] const ::testing::Environment *const totals =
	::testing::AddGlobalTestEnvironment(new SweepTotals(7, 10));

} // namespace

} // namespace captive_portal::test
