// SPDX-License-Identifier: GPL-2.0-only
// The proc file as an administrator uses it, for the tests of its write and its read.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/debug_level.h"
#include "garden/summary.h"
#include "tests/support/host_test.h"
#include "tests/support/user_buffer.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

// Lines since the last look; the number of a source line, which may be any, stands as [N].
[[nodiscard]] inline std::vector<LogLine> take_numberless_log()
{
	std::vector<LogLine> lines = host::Machine::current().log.take();
	for (LogLine &line : lines) {
		const size_t number = line.text.find(" [") + 2;
		const size_t end = line.text.find_first_not_of("0123456789", number);
		if (line.text.starts_with("summary_") && end > number && line.text.substr(end, 2) == "]:") {
			line.text.replace(number, end - number, "N");
		}
	}
	return lines;
}

#define EXPECT_NUMBERLESS_LOG(...)                                                                                     \
	EXPECT_EQ(take_numberless_log(), (std::vector<::captive_portal::host::LogLine>{__VA_ARGS__}))

class SummaryTest : public HostTest
{
protected:
	void SetUp() override
	{
		machine.clock.set(1'000'000);
		load_module();
	}

	// Writes the text, its NULs included, from memory that ends with it.
	[[nodiscard]] long write(std::string_view text)
	{
		UserBuffer buffer(machine, text.size());
		buffer.write(std::as_bytes(std::span(text)));
		return machine.proc_write(buffer.address(), text.size());
	}

	// Opens the file and reads once, into memory of exactly this size.
	[[nodiscard]] std::string read(size_t length = 64 * 1024)
	{
		UserBuffer buffer(machine, length);
		const std::vector<std::byte> untouched(length, std::byte{'#'});
		buffer.write(untouched);
		int64_t position = 0;
		const long result = machine.proc_read(buffer.address(), length, position);
		EXPECT_GE(result, 0);
		EXPECT_LE(result, static_cast<long>(length));
		EXPECT_EQ(position, result);
		const std::vector<std::byte> bytes = buffer.read();
		const auto *const text = reinterpret_cast<const char *>(bytes.data());
		EXPECT_EQ(std::string(text + result, length - result), std::string(length - result, '#'));
		return {text, static_cast<size_t>(result)};
	}

	[[nodiscard]] static std::string header(std::string_view target = "all")
	{
		return "Captive Portal DNS A Record Info, target=" + std::string(target) + "\n";
	}

	// Whether the report has shown the entry, and its names.
	[[nodiscard]] static std::vector<int> marks_of(Ipv4Address ip)
	{
		std::vector<int> marks;
		if (const dns_arecord *const entry = entry_of(ip)) {
			marks.push_back(entry->is_dump);
			for (const fqdn_node &node : entry->fqdn_list) {
				marks.push_back(node.is_dump);
			}
		}
		return marks;
	}

	const Ipv4Address server = ipv4(192, 0, 2, 1);
};

} // namespace captive_portal::test
