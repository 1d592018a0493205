// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/kernel_device.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

using std::chrono::milliseconds;

// A device that is busy for a number of attempts, and what was slept meanwhile.
struct BusyDevice {
	int busy_attempts;
	int then;
	int attempts = 0;
	std::vector<milliseconds> pauses = {};

	int open(milliseconds wait)
	{
		return open_patiently([this] { return attempts++ < busy_attempts ? -EBUSY : then; },
				      [this](milliseconds interval) { pauses.push_back(interval); }, wait);
	}
};

TEST(OpenPatiently, TakesAFreeDeviceAtOnce)
{
	BusyDevice device{0, 5};
	EXPECT_EQ(device.open(milliseconds(2000)), 5);
	EXPECT_EQ(device.attempts, 1);
	EXPECT_TRUE(device.pauses.empty());
}

TEST(OpenPatiently, WaitsForAnotherOpener)
{
	BusyDevice device{3, 5};
	EXPECT_EQ(device.open(milliseconds(2000)), 5);
	EXPECT_EQ(device.pauses, std::vector<milliseconds>(3, milliseconds(20)));
}

TEST(OpenPatiently, GivesUpAfterTheWait)
{
	BusyDevice device{1000, 5};
	EXPECT_EQ(device.open(milliseconds(50)), -EBUSY);
	EXPECT_EQ(device.pauses, (std::vector{milliseconds(20), milliseconds(20), milliseconds(10)}));
	EXPECT_EQ(device.attempts, 4);
}

TEST(OpenPatiently, TriesOnceWithoutAWait)
{
	BusyDevice device{1, 5};
	EXPECT_EQ(device.open(milliseconds(0)), -EBUSY);
	EXPECT_EQ(device.attempts, 1);
}

TEST(OpenPatiently, DoesNotWaitForAnythingElse)
{
	BusyDevice device{0, -ENOENT};
	EXPECT_EQ(device.open(milliseconds(2000)), -ENOENT);
	EXPECT_TRUE(device.pauses.empty());
}

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
