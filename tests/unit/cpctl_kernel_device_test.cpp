// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/kernel_device.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

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

// While it lives, this thread is an ordinary program's where devices that are kept for one opener are concerned.
class WithoutAdministration
{
public:
	WithoutAdministration()
	{
		EXPECT_EQ(::syscall(SYS_capget, &header_, before_), 0);
		__user_cap_data_struct now[2] = {before_[0], before_[1]};
		now[0].effective &= ~(1U << CAP_SYS_ADMIN);
		EXPECT_EQ(::syscall(SYS_capset, &header_, now), 0);
	}
	WithoutAdministration(const WithoutAdministration &) = delete;
	WithoutAdministration &operator=(const WithoutAdministration &) = delete;
	~WithoutAdministration() { EXPECT_EQ(::syscall(SYS_capset, &header_, before_), 0); }

private:
	__user_cap_header_struct header_ = {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
	__user_cap_data_struct before_[2] = {};
};

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

// A terminal can be kept for one opener, too.
TEST(KernelDevice, SaysWhoHasIt)
{
	const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
	ASSERT_GE(terminal, 0);
	ASSERT_EQ(::unlockpt(terminal), 0);
	const std::string path = ::ptsname(terminal);
	const int holder = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
	ASSERT_GE(holder, 0);
	ASSERT_EQ(::ioctl(holder, TIOCEXCL), 0);
	{
		const WithoutAdministration ordinary;
		EXPECT_EQ(failure_of_opening(path),
			  path +
				  ": in use by another program, also after 0 ms: the module admits one opener at a "
				  "time; 'cpctl_kernel_de' (process " +
				  std::to_string(::getpid()) + ") has it; wait longer with --wait SECONDS");
	}
	::close(holder);
	::close(terminal);
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
