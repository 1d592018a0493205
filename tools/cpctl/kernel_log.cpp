// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/kernel_log.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "cpctl/failure.h"
#include "cpctl/interruption.h"

namespace cpctl
{

namespace
{

// The kernel gives a record whole or not at all; none is longer.
constexpr size_t longest_record = 8192;

// A decimal number and the sign behind it, both taken off the text.
template <typename Number> [[nodiscard]] bool take_number(std::string_view &text, Number &number, char sign)
{
	const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
	const auto length = static_cast<size_t>(end - text.data());
	if (error != std::errc() || length == text.size() || text[length] != sign) {
		return false;
	}
	text.remove_prefix(length + 1);
	return true;
}

[[nodiscard]] Failure unavailable(const std::string &path, int error)
{
	std::string text = path + ": " + std::strerror(error);
	if (error == EACCES || error == EPERM) {
		text = path + ": permission denied: run cpctl as root";
	}
	return {ExitCode::unavailable, text};
}

class RunningKernelLog : public KernelLog
{
public:
	RunningKernelLog(const std::string &path, KernelLogStart start)
	    : path_(path), file_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
	{
		if (file_ < 0) {
			throw unavailable(path_, errno);
		}
		if (start == KernelLogStart::now && ::lseek(file_, 0, SEEK_END) < 0) {
			const int error = errno;
			::close(file_);
			throw unavailable(path_, error);
		}
	}
	RunningKernelLog(const RunningKernelLog &) = delete;
	RunningKernelLog &operator=(const RunningKernelLog &) = delete;
	~RunningKernelLog() override { ::close(file_); }

	KernelLogEvent next(KernelLogRecord &record, std::chrono::milliseconds longest) override
	{
		while (true) {
			std::array<char, longest_record> bytes;
			const ssize_t length = ::read(file_, bytes.data(), bytes.size());
			if (length > 0) {
				auto parsed = parse_kernel_log_record({bytes.data(), static_cast<size_t>(length)});
				if (parsed) {
					record = std::move(*parsed);
					return KernelLogEvent::record;
				}
				continue;
			}
			if (length < 0 && errno == EPIPE) {
				return KernelLogEvent::lost;
			}
			if (length == 0 || (errno != EAGAIN && errno != EINTR)) {
				throw unavailable(path_, length == 0 ? EIO : errno);
			}
			const Woken woken = wait_for_input(file_, longest);
			if (woken != Woken::input) {
				return woken == Woken::interrupted ? KernelLogEvent::interrupted :
								     KernelLogEvent::quiet;
			}
		}
	}

private:
	std::string path_;
	int file_;
};

} // namespace

// "LEVEL,SEQUENCE,MICROSECONDS,FLAGS[,...];TEXT", and maybe lines behind it that say more.
std::optional<KernelLogRecord> parse_kernel_log_record(std::string_view bytes)
{
	constexpr unsigned levels = 8;
	KernelLogRecord record;
	unsigned priority = 0;
	uint64_t microseconds = 0;
	if (!take_number(bytes, priority, ',') || !take_number(bytes, record.sequence, ',') ||
	    !take_number(bytes, microseconds, ',')) {
		return std::nullopt;
	}
	const size_t text = bytes.find(';');
	if (text == std::string_view::npos) {
		return std::nullopt;
	}
	bytes.remove_prefix(text + 1);
	record.level = static_cast<int>(priority % levels);
	record.facility = static_cast<int>(priority / levels);
	record.since_boot = std::chrono::microseconds(microseconds);
	record.text = bytes.substr(0, bytes.find('\n'));
	return record;
}

std::unique_ptr<KernelLog> open_kernel_log(const std::string &path, KernelLogStart start)
{
	return std::make_unique<RunningKernelLog>(path, start);
}

} // namespace cpctl
