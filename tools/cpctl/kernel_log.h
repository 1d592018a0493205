// SPDX-License-Identifier: GPL-2.0-only
// The kernel log, record by record.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace cpctl
{

struct KernelLogRecord {
	// 0 (the system cannot be used) to 7 (for debugging).
	int level = 0;
	// 0: the kernel itself. Others are programs that wrote into its log.
	int facility = 0;
	uint64_t sequence = 0;
	std::chrono::microseconds since_boot{0};
	// Without the line's end; what is not printable ASCII is a backslash, "x" and two digits, as the kernel gives it.
	std::string text = {};
};

// A record as a reader of /dev/kmsg gets it; nothing for what is none.
[[nodiscard]] std::optional<KernelLogRecord> parse_kernel_log_record(std::string_view bytes);

enum class KernelLogStart {
	// What the log still has comes first.
	at_its_begin,
	now,
};

enum class KernelLogEvent {
	record,
	// The log wrapped before these were read: some are lost.
	lost,
	// Nothing came so long.
	quiet,
	// The user wants an end.
	interrupted,
};

class KernelLog
{
public:
	KernelLog() = default;
	KernelLog(const KernelLog &) = delete;
	KernelLog &operator=(const KernelLog &) = delete;
	virtual ~KernelLog() = default;

	// Waits so long at most. Fills the record when there is one. Throws Failure(unavailable).
	[[nodiscard]] virtual KernelLogEvent next(KernelLogRecord &record, std::chrono::milliseconds longest) = 0;
};

// The running kernel's. Throws Failure(unavailable) with what to do.
[[nodiscard]] std::unique_ptr<KernelLog> open_kernel_log(const std::string &path, KernelLogStart start);

inline constexpr const char *kernel_log_path = "/dev/kmsg";

} // namespace cpctl
