// SPDX-License-Identifier: GPL-2.0-only
// cpctl over the module's own core.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>

#include <unistd.h>

#include "cpctl/command_line.h"
#include "cpctl/failure.h"
#include "tests/support/host_test.h"
#include "tests/support/user_buffer.h"

namespace captive_portal::test
{

// The control device of the machine, with records in its user memory.
class MachineDevice : public cpctl::ControlDevice
{
public:
	// Counts the calls of each command.
	MachineDevice(host::Machine &machine, bool file_layer_answers, std::map<int, size_t> &calls)
	    : machine_(machine), file_layer_answers_(file_layer_answers), calls_(calls)
	{
		EXPECT_EQ(machine_.open(), 0);
	}
	MachineDevice(const MachineDevice &) = delete;
	MachineDevice &operator=(const MachineDevice &) = delete;
	~MachineDevice() override { EXPECT_EQ(machine_.release(), 0); }

	long exchange(cp_command command, std::span<std::byte> record) override
	{
		++calls_[command];
		if (command == CAPTIVE_PORTAL_IOCTL_GET && file_layer_answers_) {
			const uint32_t block_size = 4096;
			std::memcpy(record.data(), &block_size, sizeof(block_size));
			return 0;
		}
		UserBuffer user(machine_, record.size());
		user.write(record);
		const long result = machine_.ioctl(command, user.address());
		std::ranges::copy(user.read(), record.begin());
		return result;
	}

	long pass_value(cp_command command, uint32_t value) override
	{
		++calls_[command];
		return machine_.ioctl(command, value);
	}

private:
	host::Machine &machine_;
	bool file_layer_answers_;
	std::map<int, size_t> &calls_;
};

class CpctlWithTheCore : public HostTest
{
protected:
	void SetUp() override { load_module(); }

	// A list, on that of wlan-1-1 where it is one of an interface.
	void fill_list(gk_set_command sub_command, unsigned clients)
	{
		for (unsigned i = 0; i < clients; i++) {
			gk_cmd record = {};
			record.cmd = sub_command;
			std::memcpy(record.iface, "wlan-1-1", 8);
			record.mac[0] = 0x02;
			record.mac[4] = static_cast<uint8_t>(i >> 8);
			record.mac[5] = static_cast<uint8_t>(i);
			send(GATEKEEPER_IOCTL_SET, record);
		}
	}

	int run(const std::vector<std::string> &words)
	{
		std::ostringstream out_stream;
		std::ostringstream err_stream;
		std::istringstream in_stream(standard_input);
		surroundings.in = &in_stream;
		const auto open = [this](const std::string &, std::chrono::milliseconds) {
			++openings;
			return std::make_unique<MachineDevice>(machine, file_layer_answers, calls);
		};
		const auto read_status_file = [this](const std::string &name) {
			++status_reads[name];
			if (before_status_file) {
				before_status_file(name);
			}
			if (!status_files_are_readable) {
				throw cpctl::Failure(cpctl::ExitCode::unavailable, name + ": permission denied");
			}
			return machine.status_text(name);
		};
		const cpctl::ExitCode code = cpctl::run_command_line(
			words, {open, read_status_file, surroundings, explaining}, out_stream, err_stream);
		out = out_stream.str();
		err = err_stream.str();
		return static_cast<int>(code);
	}

	// A command that is done, without a word on the error output; returns the answer.
	std::string answer(const std::vector<std::string> &words)
	{
		EXPECT_EQ(run(words), 0) << err;
		EXPECT_EQ(err, "");
		return out;
	}

	// Sends a record past cpctl, as a daemon does.
	template <typename Record> void send(cp_command command, Record record)
	{
		MachineDevice device(machine, false, calls);
		ASSERT_EQ(device.exchange(command, std::as_writable_bytes(std::span(&record, 1))), 0);
	}

	// A file for the test alone, with this text.
	std::string file_with(const std::string &text)
	{
		const std::string path = ::testing::TempDir() + "cpctl-" + std::to_string(getpid()) + "-" +
					 ::testing::UnitTest::GetInstance()->current_test_info()->name() + "-" +
					 std::to_string(files_++);
		std::ofstream(path) << text;
		return path;
	}
	static std::string text_of_file(const std::string &path)
	{
		std::ifstream file(path);
		return {std::istreambuf_iterator<char>(file), {}};
	}

	bool file_layer_answers = false;
	bool status_files_are_readable = true;
	// What happens meanwhile.
	std::function<void(const std::string &name)> before_status_file;
	std::string standard_input;
	cpctl::Surroundings surroundings;
	cpctl::Explaining explaining;
	// Of the device, all together and by command.
	int openings = 0;
	std::map<int, size_t> calls;
	// Of the status files, by name.
	std::map<std::string, size_t> status_reads;
	std::string out;
	std::string err;

private:
	int files_ = 0;
};

} // namespace captive_portal::test
