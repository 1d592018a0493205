// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/replaced_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

[[nodiscard]] Failure not_written(const std::string &path)
{
	return {ExitCode::unavailable, path + " could not be written: " + std::strerror(errno) +
					       ": choose a directory that is there, has room, and lets you write"};
}

class Descriptor
{
public:
	explicit Descriptor(int number) : number_(number) {}
	Descriptor(const Descriptor &) = delete;
	Descriptor &operator=(const Descriptor &) = delete;
	~Descriptor() { ::close(number_); }
	[[nodiscard]] int number() const { return number_; }

private:
	int number_;
};

// Beside its place; removed unless it has got there.
class TemporaryFile
{
public:
	explicit TemporaryFile(const std::string &place)
	    : place_(place), path_(place + ".XXXXXX"), file_(::mkostemp(path_.data(), O_CLOEXEC))
	{
		if (file_.number() < 0) {
			throw not_written(place_);
		}
	}
	TemporaryFile(const TemporaryFile &) = delete;
	TemporaryFile &operator=(const TemporaryFile &) = delete;
	~TemporaryFile()
	{
		if (!placed_) {
			::unlink(path_.c_str());
		}
	}

	void write(std::string_view text)
	{
		while (!text.empty()) {
			const ssize_t written = ::write(file_.number(), text.data(), text.size());
			if (written < 0 && errno != EINTR) {
				throw not_written(place_);
			}
			text.remove_prefix(written < 0 ? 0 : static_cast<size_t>(written));
		}
		if (::fsync(file_.number()) != 0) {
			throw not_written(place_);
		}
	}

	void take_owner_and_mode(const struct stat &old)
	{
		if (::fchown(file_.number(), old.st_uid, old.st_gid) != 0 ||
		    ::fchmod(file_.number(), old.st_mode & 07777) != 0) {
			throw not_written(place_);
		}
	}

	void take_place()
	{
		if (::rename(path_.c_str(), place_.c_str()) != 0) {
			throw not_written(place_);
		}
		placed_ = true;
	}

private:
	std::string place_;
	std::string path_;
	Descriptor file_;
	bool placed_ = false;
};

void require_replaceable(const std::string &path, const struct stat &old, std::string_view first_line)
{
	if (!S_ISREG(old.st_mode)) {
		throw usage_failure(path + " is no regular file: name none to have the answer on the standard output");
	}
	std::ifstream file(path);
	std::string line;
	if (!file) {
		throw Failure(ExitCode::unavailable, path + " could not be read: is it yours?");
	}
	if (std::getline(file, line) && line != first_line) {
		throw usage_failure(path +
				    " is there and is nothing that cpctl wrote: remove it, or choose another name");
	}
}

} // namespace

void replace_file(const std::string &path, std::string_view text, std::string_view first_line)
{
	// What a link leads to is replaced, not the link.
	std::error_code error;
	const std::filesystem::path target = std::filesystem::weakly_canonical(path, error);
	const std::string place = error ? path : target.string();
	struct stat old = {};
	const bool is_there = ::stat(place.c_str(), &old) == 0;
	if (is_there) {
		require_replaceable(place, old, first_line);
	}
	TemporaryFile file(place);
	if (is_there) {
		file.take_owner_and_mode(old);
	}
	file.write(text);
	file.take_place();
	const std::string directory = std::filesystem::path(place).parent_path().string();
	const Descriptor opened(
		::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
	// Some file systems cannot do it; the file has its place all the same.
	(void)::fsync(opened.number());
}

} // namespace cpctl
