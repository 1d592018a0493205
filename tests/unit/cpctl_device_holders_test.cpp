// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/device_holders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cpctl::test
{

namespace
{

TEST(CpctlDeviceHolders, AreThoseThatHaveTheDeviceOpen)
{
	struct stat zero = {};
	ASSERT_EQ(::stat("/dev/zero", &zero), 0);
	const auto has = [](const std::vector<std::string> &holders) {
		const std::string own = "(process " + std::to_string(::getpid()) + ")";
		return std::ranges::any_of(holders, [&own](const std::string &holder) {
			return holder.find("cpctl_device_ho") != std::string::npos && holder.ends_with(own);
		});
	};
	EXPECT_FALSE(has(holders_of_device("/proc", zero.st_rdev)));
	const int descriptor = ::open("/dev/zero", O_RDONLY);
	ASSERT_GE(descriptor, 0);
	EXPECT_TRUE(has(holders_of_device("/proc", zero.st_rdev)));
	::close(descriptor);
	EXPECT_FALSE(has(holders_of_device("/proc", zero.st_rdev)));
	EXPECT_TRUE(holders_of_device("/nonexistent", zero.st_rdev).empty());
}

} // namespace

} // namespace cpctl::test
