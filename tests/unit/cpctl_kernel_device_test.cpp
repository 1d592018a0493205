// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/kernel_device.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

using std::chrono::milliseconds;

std::string failure_of_opening(const std::string &path)
{
	try {
		(void)open_kernel_device(path, milliseconds(0));
	} catch (const Failure &failure) {
		EXPECT_EQ(failure.code(), ExitCode::unavailable);
		return failure.what();
	}
	return "";
}

TEST(KernelDevice, SaysThatThereIsNoModule)
{
	EXPECT_EQ(failure_of_opening("/nonexistent/CP_dev"), "/nonexistent/CP_dev: there is no such device: load the "
							     "module (modprobe captive_portal), or name its file "
							     "with -d");
}

TEST(KernelDevice, RefusesAFileThatIsNoDevice)
{
	const std::string path = ::testing::TempDir() + "cpctl_no_device";
	const std::unique_ptr<FILE, int (*)(FILE *)> file(fopen(path.c_str(), "w"), fclose);
	ASSERT_TRUE(file);
	EXPECT_EQ(failure_of_opening(path),
		  path + ": not a character device, so not the module's: name its file with -d");
	remove(path.c_str());
}

TEST(KernelDevice, PassesTheKernelsErrorOn)
{
	const auto device = open_kernel_device("/dev/null", milliseconds(0));
	std::byte record[4] = {};
	EXPECT_EQ(device->exchange(GATEWAY_IOCTL_GET, record), -ENOTTY);
	EXPECT_EQ(device->pass_value(ENV_SET_DEBUG_LEVEL, 1), -ENOTTY);
}

} // namespace

} // namespace cpctl
