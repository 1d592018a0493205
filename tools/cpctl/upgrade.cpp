// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/upgrade.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <thread>

#include "cpctl/configuration_commands.h"
#include "cpctl/failure.h"
#include "cpctl/replaced_file.h"

namespace cpctl
{

namespace
{

constexpr const char *module_name = "captive_portal";
// A device manager may take its time with the device file.
constexpr std::chrono::seconds longest_wait_for_device{5};
constexpr std::chrono::milliseconds between_tries{5};
// So often the configuration may change while it is being saved.
constexpr int most_saves = 5;

void require_module_file(const std::string &path)
{
	std::ifstream file(path, std::ios::binary);
	std::string magic(4, '\0');
	file.read(magic.data(), static_cast<std::streamsize>(magic.size()));
	if (!file) {
		throw usage_failure(path + " cannot be read: name the file of a kernel module");
	}
	if (magic != "\x7f"
		     "ELF") {
		throw usage_failure(path +
				    " is no kernel module: if it is compressed, unpack it first (xz -d, zstd -d)");
	}
}

std::string milliseconds(Clock::duration duration)
{
	std::ostringstream text;
	text << std::fixed << std::setprecision(1) << std::chrono::duration<double, std::milli>(duration).count()
	     << " ms";
	return text.str();
}

std::string reason_of_load(int error)
{
	switch (error) {
	case ENOEXEC:
		return "it is no module of this kernel (dmesg says more)";
	case EPERM:
	case EACCES:
		return "permission denied: run cpctl as root; a kernel that wants signed modules says so in dmesg";
	case EKEYREJECTED:
		return "this kernel wants modules that are signed with a key it knows";
	default:
		return std::string(std::strerror(error)) + " (dmesg says more)";
	}
}

class Upgrade
{
public:
	Upgrade(const Session &session, const UpgradeFiles &files)
	    : session_(session), modules_(*session.surroundings->modules), files_(files)
	{
		// What is kept must be found from wherever the message is read.
		files_.kept = std::filesystem::absolute(files_.kept).string();
	}

	void check()
	{
		require_module_file(files_.module);
		if (files_.old_module.empty()) {
			files_.old_module = modules_.path_of(module_name);
			std::error_code error;
			if (files_.old_module.empty() ||
			    std::filesystem::equivalent(files_.old_module, files_.module, error)) {
				throw usage_failure(
					"which file the running module came from is not known: name it with "
					"--old FILE, so that it can be loaded again if the new one cannot, or "
					"go without with --old none");
			}
		}
		if (has_old()) {
			require_module_file(files_.old_module);
		}
	}

	void save(bool in_any_case)
	{
		std::error_code error;
		std::filesystem::create_directories(std::filesystem::path(files_.kept).parent_path(), error);
		std::string text;
		for (int saves = 0; saves < most_saves; saves++) {
			const ReadConfiguration read = read_configuration(session_.read_status_file);
			if (!read.without_command.empty() && !in_any_case) {
				throw refusal(
					"no command of cpctl would set this again: " + read.without_command.front() +
					": it would be lost; --force upgrades all the same. Nothing was changed");
			}
			const std::string now = text_of_configuration(read.configuration);
			if (now == text) {
				return;
			}
			text = now;
			replace_file(files_.kept, text, first_line_of_configuration);
			saved_ = with_commands(read.configuration);
		}
		throw refusal("another program goes on changing the configuration: stop it first. Nothing was changed");
	}

	void change_modules()
	{
		started_ = session_.surroundings->now();
		unload();
		unloaded_ = session_.surroundings->now();
		const int error = modules_.load(files_.module);
		if (error != 0) {
			go_back(files_.module + " was not loaded: " + reason_of_load(error));
		}
		loaded_ = session_.surroundings->now();
		try {
			restore();
		} catch (const Failure &failure) {
			session_.close_device();
			const std::string reason = files_.module + " did not take the configuration: " + failure.what();
			const int stays = has_old() ? modules_.unload(module_name) : EPERM;
			if (stays != 0) {
				throw Failure(ExitCode::refused, reason + "\ncpctl: it stays loaded" + kept());
			}
			go_back(reason);
		}
		const Clock::time_point restored = session_.surroundings->now();
		session_.print("upgraded: " + milliseconds(restored - started_) +
			       " without the configuration (unload " + milliseconds(unloaded_ - started_) + ", load " +
			       milliseconds(loaded_ - unloaded_) + ", restore " + milliseconds(restored - loaded_) +
			       "); clients on lists: " + std::to_string(saved_.clients()) +
			       "; the configuration is also in " + files_.kept);
	}

private:
	[[nodiscard]] bool has_old() const { return files_.old_module != "none"; }

	[[nodiscard]] std::string kept() const
	{
		return "\ncpctl: the configuration is in " + files_.kept + ": cpctl restore " + files_.kept +
		       " makes it that of whatever version is loaded";
	}

	void unload()
	{
		const int error = modules_.unload(module_name);
		if (error == 0) {
			return;
		}
		if (error == EWOULDBLOCK || error == EBUSY) {
			throw refusal(
				"the running module is in use: stop the program that has its device open. Nothing was "
				"changed");
		}
		throw Failure(ExitCode::unavailable,
			      "the running module was not unloaded: " +
				      std::string(error == EPERM ? "run cpctl as root" : std::strerror(error)) +
				      ". Nothing was changed");
	}

	void restore()
	{
		const Clock::time_point end = Clock::now() + longest_wait_for_device;
		for (;;) {
			try {
				(void)session_.portal.gateway();
				break;
			} catch (const Failure &failure) {
				if (failure.code() != ExitCode::unavailable || Clock::now() >= end) {
					throw;
				}
			}
			std::this_thread::sleep_for(between_tries);
		}
		(void)apply_configuration(session_, saved_);
		session_.close_device();
	}

	// To the old module, after the new one has failed; always throws.
	[[noreturn]] void go_back(const std::string &reason)
	{
		const int error = has_old() ? modules_.load(files_.old_module) : ENOENT;
		if (error != 0) {
			throw Failure(
				ExitCode::unavailable,
				reason + "\ncpctl: and " +
					(has_old() ?
						 files_.old_module + " was not loaded again: " + reason_of_load(error) :
						 "there is no old one to load again") +
					"\ncpctl: no module is loaded now: every client passes. Load one by hand" +
					kept());
		}
		try {
			restore();
		} catch (const Failure &failure) {
			throw Failure(ExitCode::refused, reason + "\ncpctl: " + files_.old_module +
								 " is loaded again, but without its configuration: " +
								 failure.what() + kept());
		}
		throw refusal(reason + "\ncpctl: " + files_.old_module +
			      " is loaded again, with its configuration, after " +
			      milliseconds(session_.surroundings->now() - started_) + kept());
	}

	const Session &session_;
	KernelModules &modules_;
	UpgradeFiles files_;
	Configuration saved_;
	Clock::time_point started_;
	Clock::time_point unloaded_;
	Clock::time_point loaded_;
};

} // namespace

Action upgrade_module(const UpgradeFiles &files, bool in_any_case)
{
	return [files, in_any_case](const Session &session) {
		if (session.surroundings->modules == nullptr) {
			throw Failure(ExitCode::unavailable, "modules cannot be loaded here");
		}
		Upgrade upgrade(session, files);
		upgrade.check();
		upgrade.save(in_any_case);
		upgrade.change_modules();
	};
}

} // namespace cpctl
