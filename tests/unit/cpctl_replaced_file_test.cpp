// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/replaced_file.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cpctl/failure.h"

namespace cpctl::test
{

namespace
{

class CpctlReplacedFile : public ::testing::Test
{
protected:
	CpctlReplacedFile()
	{
		std::string name = ::testing::TempDir() + "cpctl-files.XXXXXX";
		EXPECT_NE(::mkdtemp(name.data()), nullptr);
		directory = name;
	}
	~CpctlReplacedFile() override { std::filesystem::remove_all(directory); }

	[[nodiscard]] std::string path(const std::string &name) const { return directory + "/" + name; }
	[[nodiscard]] std::string text(const std::string &name) const
	{
		std::ifstream file(path(name));
		return {std::istreambuf_iterator<char>(file), {}};
	}
	void write(const std::string &name, const std::string &text) const { std::ofstream(path(name)) << text; }
	[[nodiscard]] mode_t mode(const std::string &name) const
	{
		struct stat status = {};
		EXPECT_EQ(::stat(path(name).c_str(), &status), 0);
		return status.st_mode & 07777;
	}
	[[nodiscard]] std::ptrdiff_t files() const
	{
		return std::distance(std::filesystem::directory_iterator(directory), {});
	}
	ExitCode failure(const std::string &name)
	{
		message.clear();
		try {
			replace_file(path(name), "# mine\nnew\n", "# mine");
		} catch (const Failure &failure) {
			message = failure.what();
			return failure.code();
		}
		return ExitCode::done;
	}

	std::string directory;
	// Of the last failure().
	std::string message;
};

TEST_F(CpctlReplacedFile, MakesAFileForItsOwnerAlone)
{
	replace_file(path("a"), "# mine\none\n", "# mine");
	EXPECT_EQ(text("a"), "# mine\none\n");
	EXPECT_EQ(mode("a"), 0600U);
	EXPECT_EQ(files(), 1);
}

TEST_F(CpctlReplacedFile, ReplacesWhatItWroteAndKeepsTheMode)
{
	write("a", "# mine\nold\n");
	ASSERT_EQ(::chmod(path("a").c_str(), 0640), 0);
	replace_file(path("a"), "# mine\nnew\n", "# mine");
	EXPECT_EQ(text("a"), "# mine\nnew\n");
	EXPECT_EQ(mode("a"), 0640U);
	write("empty", "");
	EXPECT_EQ(failure("empty"), ExitCode::done);
	EXPECT_EQ(files(), 2);
}

TEST_F(CpctlReplacedFile, LeavesOtherFilesAlone)
{
	write("a", "precious\n");
	EXPECT_EQ(failure("a"), ExitCode::usage);
	EXPECT_EQ(text("a"), "precious\n");
	std::filesystem::create_directory(path("d"));
	EXPECT_EQ(failure("d"), ExitCode::usage);
	EXPECT_EQ(files(), 2);
}

TEST_F(CpctlReplacedFile, SaysWhyThereIsNoPlaceForIt)
{
	EXPECT_EQ(failure("nowhere/a"), ExitCode::unavailable);
	EXPECT_EQ(message, path("nowhere/a") + " could not be written: No such file or directory: choose a directory "
					       "that is there, has room, and lets you write");
	EXPECT_EQ(files(), 0);
}

// A limit of the process, where a full disk would be.
TEST_F(CpctlReplacedFile, AFileThatFindsNoRoomLeavesTheOldOne)
{
	write("a", "# mine\nold\n");
	struct rlimit before = {};
	ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
	const auto handler = std::signal(SIGXFSZ, SIG_IGN);
	// The first four bytes go out.
	const struct rlimit little = {.rlim_cur = 4, .rlim_max = before.rlim_max};
	ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &little), 0);
	const ExitCode code = failure("a");
	ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
	std::signal(SIGXFSZ, handler);
	EXPECT_EQ(code, ExitCode::unavailable);
	EXPECT_EQ(message, path("a") + " could not be written: File too large: choose a directory that is there, has "
				       "room, and lets you write");
	EXPECT_EQ(text("a"), "# mine\nold\n");
	EXPECT_EQ(files(), 1);
}

TEST_F(CpctlReplacedFile, FollowsALink)
{
	write("a", "# mine\nold\n");
	std::filesystem::create_symlink("a", path("link"));
	EXPECT_EQ(failure("link"), ExitCode::done);
	EXPECT_TRUE(std::filesystem::is_symlink(path("link")));
	EXPECT_EQ(text("a"), "# mine\nnew\n");
}

} // namespace

} // namespace cpctl::test
