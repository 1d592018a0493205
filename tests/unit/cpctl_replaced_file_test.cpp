// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/replaced_file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

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
	[[nodiscard]] ExitCode failure(const std::string &name) const
	{
		try {
			replace_file(path(name), "# mine\nnew\n", "# mine");
		} catch (const Failure &failure) {
			return failure.code();
		}
		return ExitCode::done;
	}

	std::string directory;
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
	EXPECT_EQ(failure("nowhere/a"), ExitCode::unavailable);
	EXPECT_EQ(files(), 2);
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
