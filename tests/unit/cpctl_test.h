// SPDX-License-Identifier: GPL-2.0-only
// cpctl with a control device made of functions in the place of the module.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "cpctl/command_line.h"
#include "cpctl/control_device.h"
#include "cpctl/failure.h"

namespace cpctl::test
{

// What a record looks like, byte by byte, two digits each.
[[nodiscard]] inline std::string hex(std::span<const std::byte> bytes)
{
	constexpr std::string_view digits = "0123456789abcdef";
	std::string text;
	for (const std::byte byte : bytes) {
		text += digits[std::to_integer<unsigned>(byte) >> 4];
		text += digits[std::to_integer<unsigned>(byte) & 0xf];
	}
	return text;
}

// So many zero bytes.
[[nodiscard]] inline std::string zeros(size_t bytes)
{
	return std::string(2 * bytes, '0');
}

struct Call {
	cp_command command;
	std::vector<std::byte> record;
	uint32_t value = 0;

	[[nodiscard]] std::string hex() const { return test::hex(record); }
};

// Keeps every call. A command without an answer of its own returns 0 and leaves the record as it came, as the module does
// with what it refuses silently.
class FakeDevice : public ControlDevice
{
public:
	// `call` counts the calls of this command from 0.
	using Answer = std::function<long(std::span<std::byte> record, size_t call)>;

	void on(cp_command command, Answer answer) { answers_[command] = std::move(answer); }

	long exchange(cp_command command, std::span<std::byte> record) override
	{
		const auto call = static_cast<size_t>(std::ranges::count(calls, command, &Call::command));
		calls.push_back({command, {record.begin(), record.end()}});
		return answers_.contains(command) ? answers_[command](record, call) : 0;
	}

	long pass_value(cp_command command, uint32_t value) override
	{
		calls.push_back({command, {}, value});
		return 0;
	}

	[[nodiscard]] std::vector<Call> of(cp_command command) const
	{
		std::vector<Call> found;
		for (const Call &call : calls) {
			if (call.command == command) {
				found.push_back(call);
			}
		}
		return found;
	}

	[[nodiscard]] std::vector<int> commands() const
	{
		std::vector<int> numbers;
		for (const Call &call : calls) {
			numbers.push_back(call.command);
		}
		return numbers;
	}

	std::vector<Call> calls;

private:
	std::map<int, Answer> answers_;
};

inline void put32(std::span<std::byte> record, size_t offset, uint32_t value)
{
	std::memcpy(&record[offset], &value, sizeof(value));
}

[[nodiscard]] inline uint32_t get32(std::span<const std::byte> record, size_t offset)
{
	uint32_t value = 0;
	std::memcpy(&value, &record[offset], sizeof(value));
	return value;
}

inline void put_text(std::span<std::byte> record, size_t offset, std::string_view text)
{
	std::memcpy(&record[offset], text.data(), text.size());
	record[offset + text.size()] = std::byte{0};
}

// Fills a list reply with clients 02:00:5e:10:00:NN.
inline void put_clients(std::span<std::byte> record, const std::vector<uint8_t> &last_octets)
{
	put32(record, 44, static_cast<uint32_t>(last_octets.size()));
	for (size_t i = 0; i < last_octets.size(); i++) {
		const std::array<uint8_t, 6> mac = {0x02, 0x00, 0x5e, 0x10, 0x00, last_octets[i]};
		std::memcpy(&record[48 + 16 * i + 8], mac.data(), mac.size());
	}
}

// Runs command lines against `device`.
class CpctlTest : public ::testing::Test
{
protected:
	// A device that run_command_line() may own, and lose.
	class Lent : public ControlDevice
	{
	public:
		explicit Lent(FakeDevice &device) : device_(device) {}

		long exchange(cp_command command, std::span<std::byte> record) override
		{
			return device_.exchange(command, record);
		}
		long pass_value(cp_command command, uint32_t value) override
		{
			return device_.pass_value(command, value);
		}

	private:
		FakeDevice &device_;
	};

	// Returns the exit code as the shell sees it.
	int run(const std::vector<std::string> &words)
	{
		std::ostringstream out_stream;
		std::ostringstream err_stream;
		const auto open = [this](const std::string &path, std::chrono::milliseconds wait) {
			opened_path = path;
			opened_wait = wait;
			return std::make_unique<Lent>(device);
		};
		const auto read_status_file = [this](const std::string &name) {
			if (!status_files.contains(name)) {
				throw Failure(ExitCode::unavailable, name + ": permission denied");
			}
			return status_files.at(name);
		};
		device.calls.clear();
		const ExitCode code = run_command_line(words, {open, read_status_file}, out_stream, err_stream);
		out = out_stream.str();
		err = err_stream.str();
		return static_cast<int>(code);
	}

	// A command line that is wrong: exit code 1, the device never opened, `part` in the message.
	void expect_usage_failure(const std::vector<std::string> &words, const std::string &part)
	{
		opened_path.clear();
		EXPECT_EQ(run(words), 1);
		EXPECT_EQ(opened_path, "");
		EXPECT_EQ(out, "");
		EXPECT_NE(err.find(part), std::string::npos) << err;
	}

	FakeDevice device;
	std::string out;
	std::string err;
	std::string opened_path;
	// What the status files hold; others cannot be read.
	std::map<std::string, std::string> status_files;
	std::chrono::milliseconds opened_wait{0};
};

// Names as the 16 bytes of a record's field.
constexpr std::string_view wlan_1_1 = "776c616e2d312d310000000000000000";
constexpr std::string_view wlan_2_3 = "776c616e2d322d330000000000000000";
constexpr std::string_view wlan_1_14 = "776c616e2d312d313400000000000000";
constexpr std::string_view no_name = "00000000000000000000000000000000";

template <typename... Parts> [[nodiscard]] std::string joined(Parts... parts)
{
	std::string text;
	((text += parts), ...);
	return text;
}

} // namespace cpctl::test
