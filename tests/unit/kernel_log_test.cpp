// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/kernel_log.h"

#include <climits>
#include <thread>

#include "tests/support/host_test.h"

namespace captive_portal::test
{

using KernelLog = HostTest;
using KernelLogDeathTest = HostTest;

namespace
{

// What one call prints; the format is checked against its arguments as in the module.
#define PRINTED(...) (cp_log(CP_LOG_DEBUG, __VA_ARGS__), host::Machine::current().log.take().at(0).text)

} // namespace

TEST_F(KernelLog, KeepsLevelAndText)
{
	cp_log(CP_LOG_DEBUG, "one\n");
	cp_log(CP_LOG_ERR, "two\n");
	cp_log(CP_LOG_DEFAULT, "three");
	EXPECT_TRUE(log_has(error_line("two\n")));
	EXPECT_FALSE(log_has(debug_line("two\n")));
	EXPECT_LOG(debug_line("one\n"), error_line("two\n"), default_line("three"));
	EXPECT_NO_LOG();
}

TEST_F(KernelLog, PrintsNumbers)
{
	EXPECT_EQ(PRINTED("%d %i", INT_MIN, -1), "-2147483648 -1");
	EXPECT_EQ(PRINTED("%u %x %X %o", UINT_MAX, 0xabu, 0xABu, 8u), "4294967295 ab AB 10");
	EXPECT_EQ(PRINTED("%ld %lu", LONG_MIN, ULONG_MAX), "-9223372036854775808 18446744073709551615");
	EXPECT_EQ(PRINTED("%lld %llx", -5LL, 0x123456789abcdefULL), "-5 123456789abcdef");
	EXPECT_EQ(PRINTED("%zu", sizeof(char[77])), "77");
	EXPECT_EQ(PRINTED("%hd %hu %hhd %hhu", static_cast<short>(-2), static_cast<unsigned short>(65535),
			  static_cast<signed char>(-3), static_cast<unsigned char>(255)),
		  "-2 65535 -3 255");
	EXPECT_EQ(PRINTED("%5d|%-5d|%05d|%+d|%.3d|%*d", 42, 42, 42, 42, 7, 4, 1), "   42|42   |00042|+42|007|   1");
	EXPECT_EQ(PRINTED("%#x %c%%", 16u, 'z'), "0x10 z%");
}

TEST_F(KernelLog, PrintsAMacAddress)
{
	EXPECT_EQ(PRINTED("%02X:%02X:%02X:%02X:%02X:%02X", 0x02, 0xaa, 0, 0x0b, 0xff, 1), "02:AA:00:0B:FF:01");
}

TEST_F(KernelLog, PrintsAddresses)
{
	const uint8_t address[] = {192, 168, 0, 255};
	EXPECT_EQ(PRINTED("<%pI4> %d", static_cast<const void *>(address), 3), "<192.168.0.255> 3");
}

TEST_F(KernelLog, PrintsTexts)
{
	const char unterminated[3] = {'a', 'b', 'c'};
	EXPECT_EQ(PRINTED("%s|%.2s|%5s|%-5s|", "ab", "abc", "ab", "ab"), "ab|ab|   ab|ab   |");
	EXPECT_EQ(PRINTED("%.*s", 3, unterminated), "abc");
	EXPECT_EQ(PRINTED("%.3s", unterminated), "abc");
}

TEST_F(KernelLog, PrintsANullTextAsTheKernelDoes)
{
	const char *volatile const nothing = nullptr;
	EXPECT_EQ(PRINTED("in_name=%s.", nothing), "in_name=(null).");
	EXPECT_EQ(PRINTED("%.15s.", nothing), "(null).");
}

TEST_F(KernelLog, HasAFormatterThatCutsAtTheBuffersEnd)
{
	char out[8] = "#######";
	const uint8_t address[] = {10, 0, 0, 1};
	EXPECT_EQ(cp_format(out, sizeof(out), "%d-%s", 12, "ab"), 5u);
	EXPECT_STREQ(out, "12-ab");
	EXPECT_EQ(out[6], '#');
	EXPECT_EQ(cp_format(out, sizeof(out), "%pI4", address), 7u);
	EXPECT_STREQ(out, "10.0.0.");
	EXPECT_EQ(cp_format(out, 1, "abc"), 0u);
	EXPECT_STREQ(out, "");
	out[0] = '#';
	EXPECT_EQ(cp_format(out, 0, "abc"), 0u);
	EXPECT_EQ(out[0], '#');
	EXPECT_NO_LOG();
}

TEST_F(KernelLog, TakesLinesFromManyThreads)
{
	const auto write = [] {
		for (int i = 0; i < 100; ++i) {
			cp_log(CP_LOG_DEBUG, "%d\n", i);
		}
	};
	std::thread first(write);
	std::thread second(write);
	first.join();
	second.join();
	EXPECT_EQ(machine.log.take().size(), 200u);
}

TEST_F(KernelLog, DropsLinesWhenToldSo)
{
	machine.log.keep(false);
	cp_log(CP_LOG_DEBUG, "one\n");
	EXPECT_NO_LOG();
	machine.log.keep(true);
	cp_log(CP_LOG_DEBUG, "two\n");
	EXPECT_LOG(debug_line("two\n"));
}

TEST(KernelLogWithoutMachineDeathTest, Dies)
{
	EXPECT_DEATH(cp_log(CP_LOG_DEBUG, "x"), "without a machine");
}

} // namespace captive_portal::test
