// SPDX-License-Identifier: GPL-2.0-only
// Lines that the control device has for results that its copies never give: no call prints them, so what can be seen is
// that they are in the program, letter for letter.
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

class ControlDeviceMessages : public HostTest
{
protected:
	static std::string this_program()
	{
		std::ifstream file("/proc/self/exe", std::ios::binary);
		std::ostringstream bytes;
		bytes << file.rdbuf();
		return bytes.str();
	}
};

// Texts come in pieces, so that the program does not hold them for this file's sake.
std::string with_end(std::string begin, const char *middle, const char *end)
{
	begin += middle;
	begin += end;
	begin += '\0';
	return begin;
}

TEST_F(ControlDeviceMessages, AreThereThoughNeverPrinted)
{
	load_module(); // the device is part of this program
	const std::string program = this_program();
	ASSERT_FALSE(program.empty());
	const auto has = [&](const char *begin, const char *middle, const char *end) {
		const std::string text = with_end(begin, middle, end);
		return memmem(program.data(), program.size(), text.data(), text.size()) != nullptr;
	};
	EXPECT_TRUE(has("[captive portal] ", "GATEKEEPER_IOCTL_GET", " copy to user space error\n"))
		<< "deliberate: the portal's line names the gatekeeper";
	EXPECT_TRUE(has("[walled garden] ", "WALLED_GARDEN_IOCTL_GET", " copy to user space error\n"));
	EXPECT_TRUE(has("[gateway] ", "GATEWAY_IOCTL_GET", " copy to user space error\n"));
	EXPECT_TRUE(has("[gatekeeper] ", "GATEKEEPER_IOCTL_GET", " copy to user space error\n"));
	EXPECT_TRUE(has("[gateway] ", "get data from", " user space error\n"));

	EXPECT_FALSE(has("[captive portal] ", "CAPTIVE_PORTAL_IOCTL_GET", " copy to user space error\n"));
}

} // namespace

} // namespace captive_portal::test
