// SPDX-License-Identifier: GPL-2.0-only
#include "lib/device_file.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

namespace libcaptiveportal
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

} // namespace

} // namespace libcaptiveportal
