// SPDX-License-Identifier: GPL-2.0-only
// The fixture of every test that runs code of the module: a machine and a module image of its own for each case.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/host/machine.h"

namespace captive_portal::test
{

using host::LogLine;

// Lines as EXPECT_LOG() takes them. The text has its newline.
[[nodiscard]] inline LogLine debug_line(std::string text)
{
	return {CP_LOG_DEBUG, std::move(text)};
}
[[nodiscard]] inline LogLine error_line(std::string text)
{
	return {CP_LOG_ERR, std::move(text)};
}
[[nodiscard]] inline LogLine default_line(std::string text)
{
	return {CP_LOG_DEFAULT, std::move(text)};
}

// All lines since the last look are exactly these; the look forgets them.
#define EXPECT_LOG(...)                                                                                                \
	EXPECT_EQ(::captive_portal::host::Machine::current().log.take(),                                               \
		  (std::vector<::captive_portal::host::LogLine>{__VA_ARGS__}))
#define EXPECT_NO_LOG() EXPECT_LOG()

// True when one of the lines since the last EXPECT_LOG() is this one. Forgets nothing.
[[nodiscard]] bool log_has(const LogLine &line);

class HostTest : public ::testing::Test
{
protected:
	HostTest() = default;

	// Nothing may be lost at the end: a record's copy that is not freed, a node that is in no list. What the module's
	// tables still hold is freed silently; machine.live_allocations() tells of it. After a stop nothing may be left but
	// what is kept on purpose (kept_memory.h).
	void TearDown() override;

	// insmod, with success, and the lines of the start forgotten.
	void load_module();

	host::Machine machine;
};

// Fails the running test when the module has lost memory.
void expect_nothing_lost(const host::Machine &machine);

} // namespace captive_portal::test
