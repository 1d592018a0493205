// SPDX-License-Identifier: GPL-2.0-only
#include "core/control_device.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "base/debug_level.h"
#include "portal/interface_table.h"
#include "tests/support/control.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

class ControlDevice : public HostTest
{
protected:
	void SetUp() override
	{
		load_module();
		// The device's lines come whatever the level is.
		debug_level = 0;
	}

	[[nodiscard]] uint64_t all_acquisitions() const
	{
		uint64_t sum = 0;
		for (int lock = 0; lock < CP_LOCKS; ++lock) {
			sum += machine.locks.acquisitions(static_cast<cp_lock_id>(lock));
		}
		return sum;
	}
};

// ---- The file -------------------------------------------------------------------------------------------------------

TEST_F(ControlDevice, IsTheMiscDeviceCpDevWithAMinorOfTheKernelsChoice)
{
	EXPECT_EQ(captive_portal_misc_dev.minor, 255);
	EXPECT_STREQ(captive_portal_misc_dev.name, "CP_dev");
}

TEST_F(ControlDevice, HasOneOpenerAtATime)
{
	EXPECT_EQ(cp_dev_in_use, 0u);
	EXPECT_EQ(machine.open(), 0);
	EXPECT_EQ(cp_dev_in_use, 1u);
	EXPECT_EQ(machine.open(), -16);
	EXPECT_EQ(machine.open(), -16);
	EXPECT_EQ(cp_dev_in_use, 1u);
	EXPECT_EQ(machine.release(), 0);
	EXPECT_EQ(cp_dev_in_use, 0u);
	EXPECT_EQ(machine.open(), 0);
	EXPECT_EQ(machine.release(), 0);
	EXPECT_NO_LOG();
}

TEST_F(ControlDevice, TakesOneOffItsFlagAtRelease)
{
	EXPECT_EQ(machine.open(), 0);
	cp_dev_in_use = 3;
	EXPECT_EQ(machine.release(), 0);
	EXPECT_EQ(cp_dev_in_use, 2u) << "deliberate: a count, not a flag that is cleared";
	EXPECT_EQ(machine.open(), -16);
}

TEST_F(ControlDevice, HoldsTheModuleWhileItIsOpen)
{
	EXPECT_EQ(machine.module_references(), 0);
	EXPECT_EQ(machine.open(), 0);
	EXPECT_EQ(machine.module_references(), 1);
	EXPECT_EQ(machine.open(), -16);
	EXPECT_EQ(machine.module_references(), 1) << "a refused open holds nothing";
	EXPECT_EQ(machine.unload(), -16);
	EXPECT_TRUE(machine.is_loaded());
	EXPECT_EQ(machine.release(), 0);
	EXPECT_EQ(machine.module_references(), 0);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_EQ(machine.open(), -6) << "the device is gone";
}

// ---- The dispatcher -------------------------------------------------------------------------------------------------

TEST_F(ControlDevice, RefusesUnknownCommandsSilently)
{
	const uint64_t locks = all_acquisitions();
	const uint64_t allocations = machine.memory.attempts();
	UserBuffer readable(machine, 16592);
	for (const int32_t number :
	     {0, 5, 12, -1, INT_MAX, INT_MIN, 13, 256 + 1, 0x5401, static_cast<int32_t>(0xc01c0001)}) {
		EXPECT_EQ(machine.ioctl(number, readable.address()), -1) << number;
		EXPECT_EQ(machine.ioctl(number, unmapped_address), -1) << number;
	}
	EXPECT_NO_LOG();
	EXPECT_EQ(all_acquisitions(), locks);
	EXPECT_EQ(machine.memory.attempts(), allocations);
}

TEST_F(ControlDevice, SetsTheDebugLevelToTheArgumentItself)
{
	const struct {
		unsigned long argument;
		int32_t level;
		const char *line;
	} rows[] = {
		{3, 3, "[env_set] set debug_level = 3\n"},
		{0, 0, "[env_set] set debug_level = 0\n"},
		{0xdead'beef'0000'0005, 5, "[env_set] set debug_level = 5\n"},
		{0xffff'ffff, -1, "[env_set] set debug_level = -1\n"},
		{0x8000'0000, INT_MIN, "[env_set] set debug_level = -2147483648\n"},
		{0x7fff'ffff, INT_MAX, "[env_set] set debug_level = 2147483647\n"},
	};
	for (const auto &row : rows) {
		EXPECT_EQ(machine.ioctl(11, row.argument), 0);
		EXPECT_EQ(debug_level, row.level);
		EXPECT_LOG(debug_line(row.line));
	}
}

TEST_F(ControlDevice, TakesNoLockAndNoMemoryForTheDebugLevel)
{
	const uint64_t locks = all_acquisitions();
	const uint64_t allocations = machine.memory.attempts();
	EXPECT_EQ(machine.ioctl(11, 2), 0);
	EXPECT_EQ(all_acquisitions(), locks);
	EXPECT_EQ(machine.memory.attempts(), allocations);
}

// A command with a record that is copied in, and what it says when it cannot be.
struct RecordCommand {
	int32_t number;
	size_t size;
	const char *copy_in_line;
	bool replies;
};

constexpr RecordCommand record_commands[] = {
	{1, 28, "[captive portal] get data from user space error\n", false},
	{2, 320, "[captive portal] get data from user space error\n", true},
	{3, 3376, "[walled garden] get data from user space error\n", false},
	{4, 3376, "[walled garden] get data from user space error\n", true},
	{8, 52, "[gatekeeper] get data from user space error\n", false},
	{9, 16592, "[gatekeeper] get data from user space error\n", true},
	{10, 32, "[gatekeeper] get data from user space error\n", true},
};

// Bytes before a page border: every one of short records, those around pages and ends of long ones.
std::vector<size_t> borders(size_t size)
{
	std::vector<size_t> all;
	for (size_t border = 1; border < size; ++border) {
		if (size <= 400 || border < 4 || border + 4 > size || border % 4096 < 2 || border % 4096 == 4095) {
			all.push_back(border);
		}
	}
	return all;
}

// A record whose first word, the sub-command, is one that no command knows or does anything for; the rest is not zero.
std::vector<std::byte> harmless_record(size_t size)
{
	return std::vector<std::byte>(size, std::byte{0xa5});
}

// What comes back of it: as it was sent, but that command 10 says "not found" in its last four bytes.
std::vector<std::byte> reply_to_harmless_record(const RecordCommand &row)
{
	std::vector<std::byte> bytes = harmless_record(row.size);
	if (row.number == 10) {
		std::fill(bytes.end() - 4, bytes.end(), std::byte{0});
	}
	return bytes;
}

TEST_F(ControlDevice, CopiesARecordInWhole)
{
	for (const RecordCommand &row : record_commands) {
		SCOPED_TRACE(row.number);
		UserBuffer user(machine, row.size);
		user.write(harmless_record(row.size));
		// The buffer ends with its page: one byte more could not be read.
		const uint64_t allocations = machine.memory.attempts();
		EXPECT_EQ(machine.ioctl(row.number, user.address()), row.replies ? 0 : -1);
		EXPECT_GE(machine.memory.attempts(), allocations + 1);
		EXPECT_EQ(user.read(), reply_to_harmless_record(row));
		EXPECT_NO_LOG();
		EXPECT_TRUE(machine.live_allocations().empty());
	}
}

TEST_F(ControlDevice, RefusesARecordThatEndsAtAPageBorder)
{
	for (const RecordCommand &row : record_commands) {
		for (const size_t border : borders(row.size)) {
			SCOPED_TRACE("command " + std::to_string(row.number) + ", " + std::to_string(border));
			UserBuffer user(machine, row.size, border, UserAccess::none);
			user.write(harmless_record(row.size));
			EXPECT_EQ(machine.ioctl(row.number, user.address()), -1);
			EXPECT_LOG(debug_line(row.copy_in_line));
			EXPECT_EQ(user.read(), harmless_record(row.size));
			EXPECT_TRUE(machine.live_allocations().empty());
		}
	}
}

TEST_F(ControlDevice, RefusesARecordAtAnAddressThatCannotBeRead)
{
	for (const RecordCommand &row : record_commands) {
		UserBuffer unreadable(machine, row.size);
		unreadable.protect_all(UserAccess::none);
		for (const cp_user_address address : {unreadable.address(), unmapped_address, refused_address,
						      ~cp_user_address{0}, host::UserMemory::address_limit - 1}) {
			SCOPED_TRACE("command " + std::to_string(row.number) + ", address " + std::to_string(address));
			EXPECT_EQ(machine.ioctl(row.number, address), -1);
			EXPECT_LOG(debug_line(row.copy_in_line));
		}
	}
}

TEST_F(ControlDevice, RefusesARecordWithoutMemoryForItsCopy)
{
	for (const RecordCommand &row : record_commands) {
		SCOPED_TRACE(row.number);
		UserBuffer user(machine, row.size);
		user.write(harmless_record(row.size));
		machine.memory.fail_allocation(1);
		EXPECT_EQ(machine.ioctl(row.number, user.address()), -1);
		EXPECT_LOG(debug_line(row.copy_in_line));
		EXPECT_TRUE(machine.live_allocations().empty());
	}
}

TEST_F(ControlDevice, TakesNoLockForARecordThatCannotBeRead)
{
	const uint64_t locks = all_acquisitions();
	for (const RecordCommand &row : record_commands) {
		EXPECT_EQ(machine.ioctl(row.number, unmapped_address), -1);
	}
	EXPECT_EQ(all_acquisitions(), locks);
}

TEST_F(ControlDevice, GivesTheNumberOfReplyBytesThatCouldNotBeWritten)
{
	for (const RecordCommand &row : record_commands) {
		if (!row.replies) {
			continue;
		}
		for (const size_t border : borders(row.size)) {
			SCOPED_TRACE("command " + std::to_string(row.number) + ", " + std::to_string(border));
			UserBuffer user(machine, row.size, border, UserAccess::read_only);
			user.write(harmless_record(row.size));
			EXPECT_EQ(machine.ioctl(row.number, user.address()), static_cast<long>(row.size - border));
			std::vector<std::byte> expected = harmless_record(row.size);
			const std::vector<std::byte> reply = reply_to_harmless_record(row);
			std::copy_n(reply.begin(), border, expected.begin());
			EXPECT_EQ(user.read(), expected);
			EXPECT_TRUE(machine.live_allocations().empty());
		}
		UserBuffer read_only(machine, row.size);
		read_only.protect_all(UserAccess::read_only);
		EXPECT_EQ(machine.ioctl(row.number, read_only.address()), static_cast<long>(row.size));
	}
	EXPECT_NO_LOG();
}

TEST_F(ControlDevice, WritesTheReplyUpToThePageThatCannotBeWritten)
{
	cp_status record{};
	record.cmd = 2;
	record.iface = 1;
	// The border lies behind `cp_mode`: mark and mode are written, what follows is not.
	UserRecord<cp_status> user(machine, record, 16, UserAccess::read_only);
	set_portal(machine, CAPTIVE_PORTAL, 1, 9);
	EXPECT_EQ(machine.ioctl(2, user.address()), 304);
	const cp_status got = user.load();
	EXPECT_EQ(got.mark, 5201u);
	EXPECT_EQ(got.cp_mode, 9u);
	EXPECT_EQ(got.block_https, 0u) << "as sent: it is 1 in the table";
}

TEST_F(ControlDevice, DoesWhatAWriteAsksEvenFromReadOnlyMemory)
{
	const cp_cmd record{.cmd = CAPTIVE_PORTAL, .iface = 2, .enable_value = 6, .value = ""};
	UserRecord<cp_cmd> user(machine, record);
	user.protect_all(UserAccess::read_only);
	EXPECT_EQ(machine.ioctl(1, user.address()), 0);
	EXPECT_EQ(captive_portal_table[2].cp_mode, 6u);
}

TEST_F(ControlDevice, PassesOnTheHandlersResult)
{
	wg_cmd rules{};
	rules.cmd = UPDATE_RULE;
	rules.rule_number = 25;
	EXPECT_EQ(command(machine, 3, rules), -22);
	rules.rule_number = 0;
	machine.memory.fail_allocation(2);
	EXPECT_EQ(command(machine, 3, rules), -12);
	EXPECT_EQ(command(machine, 3, rules), 0);
	gk_cmd client{};
	client.cmd = 35;
	EXPECT_EQ(command(machine, 8, client), -1);
	client.cmd = FLUSH_MAPPING_OWE_VAP;
	EXPECT_EQ(command(machine, 8, client), 0);
}

// ---- Gateway: plain copies of four bytes ----------------------------------------------------------------------------

TEST_F(ControlDevice, StoresNoGatewayForAnAddressThatCannotBeRead)
{
	UserBuffer unreadable(machine, 4);
	unreadable.protect_all(UserAccess::none);
	for (const cp_user_address address :
	     {unreadable.address(), unmapped_address, refused_address, host::UserMemory::address_limit - 3}) {
		ap_gateway = be32{0x12345678};
		EXPECT_EQ(machine.ioctl(6, address), 0);
		EXPECT_EQ(ap_gateway.raw, 0u) << "deliberate: the refused read stores 0.0.0.0";
	}
	EXPECT_NO_LOG();
}

TEST_F(ControlDevice, StoresTheReadablePartOfAGatewayAndZeros)
{
	constexpr uint32_t expected[] = {0, 0x0000'0011, 0x0000'2211, 0x0033'2211};
	for (size_t border = 1; border < 4; ++border) {
		UserRecord<uint32_t> user(machine, 0x44332211, border, UserAccess::none);
		ap_gateway = be32{0xffffffff};
		EXPECT_EQ(machine.ioctl(6, user.address()), 0);
		EXPECT_EQ(ap_gateway.raw, expected[border]);
	}
	EXPECT_NO_LOG();
}

TEST_F(ControlDevice, GivesTheResidueOfAGatewayReply)
{
	ap_gateway = be32{0x44332211};
	constexpr uint32_t expected[] = {0, 0xffff'ff11, 0xffff'2211, 0xff33'2211};
	for (size_t border = 1; border < 4; ++border) {
		UserRecord<uint32_t> user(machine, 0xffffffff, border, UserAccess::read_only);
		EXPECT_EQ(machine.ioctl(7, user.address()), static_cast<long>(4 - border));
		EXPECT_EQ(user.load(), expected[border]);
	}
	UserRecord<uint32_t> read_only(machine, 0xffffffff);
	read_only.protect_all(UserAccess::read_only);
	EXPECT_EQ(machine.ioctl(7, read_only.address()), 4);
	EXPECT_EQ(read_only.load(), 0xffffffffu);
	for (const cp_user_address address : {unmapped_address, refused_address, host::UserMemory::address_limit - 3}) {
		EXPECT_EQ(machine.ioctl(7, address), 4);
	}
	EXPECT_NO_LOG();
}

TEST_F(ControlDevice, WritesAGatewayReplyWithoutReadingItsPlace)
{
	const uint64_t allocations = machine.memory.attempts();
	uint32_t back = 1;
	EXPECT_EQ(command(machine, 7, back), 0);
	EXPECT_EQ(back, 0u);
	EXPECT_EQ(machine.memory.attempts(), allocations) << "neither gateway command copies into an allocation";
	EXPECT_EQ(command(machine, 6, back), 0);
	EXPECT_EQ(machine.memory.attempts(), allocations);
}

// ---- 32-bit callers -------------------------------------------------------------------------------------------------

TEST_F(ControlDevice, AnnouncesEveryCompatCall)
{
	EXPECT_EQ(machine.compat_ioctl(11, 3), 0);
	EXPECT_LOG(debug_line("[walled garden] start to get compat ioctl\n"),
		   debug_line("[env_set] set debug_level = 3\n"));
}

TEST_F(ControlDevice, TakesTheLow32BitsOfACompatArgument)
{
	EXPECT_EQ(machine.compat_ioctl(11, 0xdead'beef'ffff'fffe), 0);
	EXPECT_EQ(debug_level, -2);
	// A pointer of 32 bits is not extended by its sign.
	cp_status record{};
	record.cmd = 2;
	record.iface = 3;
	UserRecord<cp_status> user(machine, record);
	ASSERT_EQ(user.address() >> 32, 0u);
	EXPECT_EQ(machine.compat_ioctl(2, user.address() | 0xffff'ffff'0000'0000), 0);
	EXPECT_EQ(user.load().mark, 5203u);
	constexpr cp_user_address upper_half = 0xffff'e000;
	constexpr uint8_t gateway[] = {192, 168, 1, 254};
	machine.user.map_at(upper_half, UserAccess::read_write);
	machine.user.write(upper_half, std::as_bytes(std::span(gateway)));
	EXPECT_EQ(machine.compat_ioctl(6, upper_half), 0);
	EXPECT_EQ(ap_gateway.raw, 0xfe01a8c0u);
}

TEST_F(ControlDevice, GivesCompatCallersTheSameRecordsAndResults)
{
	for (const RecordCommand &row : record_commands) {
		SCOPED_TRACE(row.number);
		UserBuffer user(machine, row.size);
		user.write(harmless_record(row.size));
		const auto number = static_cast<uint32_t>(row.number);
		EXPECT_EQ(machine.compat_ioctl(number, user.address()), row.replies ? 0 : -1);
		EXPECT_LOG(debug_line("[walled garden] start to get compat ioctl\n"));
		EXPECT_EQ(machine.compat_ioctl(number, unmapped_address), -1);
		EXPECT_LOG(debug_line("[walled garden] start to get compat ioctl\n"), debug_line(row.copy_in_line));
	}
}

TEST_F(ControlDevice, RefusesUnknownCompatCommandsAfterTheirLine)
{
	for (const uint32_t number : {0u, 5u, 12u, 0xffffffffu, 0x80000000u}) {
		EXPECT_EQ(machine.compat_ioctl(number, 0), -1);
		EXPECT_LOG(debug_line("[walled garden] start to get compat ioctl\n"));
	}
}

} // namespace

} // namespace captive_portal::test
