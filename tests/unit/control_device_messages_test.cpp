// SPDX-License-Identifier: GPL-2.0-only
// Lines that the control device has for results that its copies never give: no call prints them, so what can be seen is
// that they are in the program, letter for letter.
#include <cstdint>
#include <cstdio>
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
	// The file that holds the module's code: this program, or a library that it has loaded.
	static std::string file_of_module()
	{
		const auto wanted = reinterpret_cast<uintptr_t>(&captive_portal_ioctl);
		std::ifstream mappings("/proc/self/maps");
		for (std::string line; std::getline(mappings, line);) {
			uintptr_t start = 0;
			uintptr_t end = 0;
			if (std::sscanf(line.c_str(), "%zx-%zx", &start, &end) == 2 && start <= wanted &&
			    wanted < end) {
				return line.substr(line.find('/'));
			}
		}
		return {};
	}

	static std::string program_with_module()
	{
		std::ifstream file(file_of_module(), std::ios::binary);
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
	load_module();
	const std::string program = program_with_module();
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
