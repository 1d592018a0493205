// SPDX-License-Identifier: GPL-2.0-only
// The access point as cpctl check sees it: files, addresses, and what other programs say. Nothing here changes anything.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cpctl
{

struct FileStatus {
	bool is_character_device = false;
	// Permission bits, as 0644.
	uint32_t mode = 0;
};

struct ProgramAnswer {
	// Whether there is such a program.
	bool installed = false;
	// Its exit status; negative when it did not end by itself.
	int status = 0;
	// What it wrote on its standard output.
	std::string text = {};
};

class Machine
{
public:
	Machine() = default;
	Machine(const Machine &) = delete;
	Machine &operator=(const Machine &) = delete;
	virtual ~Machine() = default;

	// Nothing when there is no such file, or it cannot be read.
	[[nodiscard]] virtual std::optional<std::string> read(const std::string &path) = 0;
	// Names in a directory, in the order of the alphabet; none when there is no such directory.
	[[nodiscard]] virtual std::vector<std::string> list(const std::string &path) = 0;
	// The last part of what a symbolic link says; nothing when it is none.
	[[nodiscard]] virtual std::optional<std::string> link(const std::string &path) = 0;
	[[nodiscard]] virtual std::optional<FileStatus> status(const std::string &path) = 0;
	// IPv4 addresses of a network interface, as dotted quads.
	[[nodiscard]] virtual std::vector<std::string> addresses(const std::string &interface) = 0;
	// Runs the program that the first word names, to its end.
	[[nodiscard]] virtual ProgramAnswer run(const std::vector<std::string> &words) = 0;
};

[[nodiscard]] Machine &running_machine();

} // namespace cpctl
