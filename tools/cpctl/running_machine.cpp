// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/machine.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace cpctl
{

namespace
{

// Where an administrator's programs are, whatever the caller's PATH says: this runs as root.
constexpr std::array program_directories = {"/usr/sbin/", "/usr/bin/", "/sbin/", "/bin/"};

[[nodiscard]] std::string path_of_program(const std::string &name)
{
	for (const char *const directory : program_directories) {
		if (::access((directory + name).c_str(), X_OK) == 0) {
			return directory + name;
		}
	}
	return "";
}

[[nodiscard]] std::string read_to_end(int file)
{
	std::string text;
	std::array<char, 4096> part;
	while (true) {
		const ssize_t length = ::read(file, part.data(), part.size());
		if (length > 0) {
			text.append(part.data(), static_cast<size_t>(length));
		} else if (length == 0 || errno != EINTR) {
			return text;
		}
	}
}

[[nodiscard]] int exit_status(pid_t process)
{
	int status = 0;
	while (::waitpid(process, &status, 0) < 0) {
		if (errno != EINTR) {
			return -1;
		}
	}
	return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class RunningMachine : public Machine
{
public:
	std::optional<std::string> read(const std::string &path) override
	{
		std::ifstream file(path);
		if (!file) {
			return std::nullopt;
		}
		std::string text{std::istreambuf_iterator<char>(file), {}};
		return file.bad() ? std::nullopt : std::optional(std::move(text));
	}

	std::vector<std::string> list(const std::string &path) override
	{
		std::vector<std::string> names;
		std::error_code error;
		for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end;
		     entry.increment(error)) {
			names.push_back(entry->path().filename().string());
		}
		std::ranges::sort(names);
		return names;
	}

	std::optional<std::string> link(const std::string &path) override
	{
		std::error_code error;
		const std::filesystem::path target = std::filesystem::read_symlink(path, error);
		return error ? std::nullopt : std::optional(target.filename().string());
	}

	std::optional<FileStatus> status(const std::string &path) override
	{
		constexpr uint32_t permissions = 07777;
		struct stat found = {};
		if (::stat(path.c_str(), &found) != 0) {
			return std::nullopt;
		}
		return FileStatus{.is_character_device = S_ISCHR(found.st_mode), .mode = found.st_mode & permissions};
	}

	std::vector<std::string> addresses(const std::string &interface) override
	{
		std::vector<std::string> found;
		ifaddrs *all = nullptr;
		if (::getifaddrs(&all) != 0) {
			return found;
		}
		for (const ifaddrs *entry = all; entry != nullptr; entry = entry->ifa_next) {
			if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET ||
			    interface != entry->ifa_name) {
				continue;
			}
			std::array<char, INET_ADDRSTRLEN> text = {};
			const auto *const address = reinterpret_cast<const sockaddr_in *>(entry->ifa_addr);
			::inet_ntop(AF_INET, &address->sin_addr, text.data(), text.size());
			found.emplace_back(text.data());
		}
		::freeifaddrs(all);
		return found;
	}

	ProgramAnswer run(const std::vector<std::string> &words) override
	{
		const std::string path = path_of_program(words.front());
		std::array<int, 2> answer = {-1, -1};
		if (path.empty() || ::pipe2(answer.data(), O_CLOEXEC) != 0) {
			return {};
		}
		posix_spawn_file_actions_t files;
		::posix_spawn_file_actions_init(&files);
		::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
		::posix_spawn_file_actions_adddup2(&files, answer[1], STDOUT_FILENO);
		::posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
		std::vector<std::string> copies = words;
		std::vector<char *> arguments;
		arguments.reserve(copies.size() + 1);
		for (std::string &word : copies) {
			arguments.push_back(word.data());
		}
		arguments.push_back(nullptr);
		// Answers are read by a program, so in no language of people.
		std::string language = "LC_ALL=C";
		std::string search = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
		std::array<char *, 3> environment = {language.data(), search.data(), nullptr};
		pid_t process = -1;
		const int error =
			::posix_spawn(&process, path.c_str(), &files, nullptr, arguments.data(), environment.data());
		::posix_spawn_file_actions_destroy(&files);
		::close(answer[1]);
		ProgramAnswer result = {.installed = true, .status = -1};
		if (error == 0) {
			result.text = read_to_end(answer[0]);
			result.status = exit_status(process);
		}
		::close(answer[0]);
		return result;
	}
};

} // namespace

Machine &running_machine()
{
	static RunningMachine machine;
	return machine;
}

} // namespace cpctl
