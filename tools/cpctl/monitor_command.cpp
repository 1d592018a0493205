// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/monitor_command.h"

#include <iomanip>
#include <sstream>

#include "cpctl/failure.h"
#include "cpctl/json_answer.h"
#include "cpctl/log_lines.h"

namespace cpctl
{

namespace
{

// A look at the limits, should nothing come meanwhile.
constexpr std::chrono::milliseconds longest_wait{1000};

// Of levels below it the administrator should know at once.
constexpr int notable_level = 4;

// Seconds since boot, as other readers of the log show them.
[[nodiscard]] std::string time_of(const KernelLogRecord &record)
{
	constexpr int64_t per_second = 1000000;
	std::ostringstream text;
	text << '[' << std::setw(5) << record.since_boot.count() / per_second << '.' << std::setw(6)
	     << std::setfill('0') << record.since_boot.count() % per_second << ']';
	return text.str();
}

[[nodiscard]] Json json_of(const KernelLogRecord &record, const DecodedLine &line)
{
	Json fields = Json::object();
	for (const auto &[name, value] : line.fields) {
		fields[name] = value;
	}
	return {{"event", line.event},         {"microseconds", record.since_boot.count()},
		{"sequence", record.sequence}, {"level", record.level},
		{"sentence", line.sentence},   {"fields", fields},
		{"line", record.text}};
}

[[nodiscard]] std::string text_of(const Session &session, const KernelLogRecord &record, const DecodedLine &line)
{
	if (session.json != JsonOutput::none) {
		return json_text(json_of(record, line), session.json);
	}
	const std::string sentence =
		record.level < notable_level ? session.paint(Hue::warning, line.sentence) : line.sentence;
	return session.paint(Hue::quiet, time_of(record)) + " " + sentence;
}

[[nodiscard]] std::string text_of_loss(const Session &session)
{
	constexpr std::string_view sentence = "lines are lost: the kernel log wrapped before they were read";
	if (session.json != JsonOutput::none) {
		return json_text({{"event", "lost"}, {"sentence", sentence}}, session.json);
	}
	return session.paint(Hue::warning, sentence);
}

} // namespace

Action monitor(KernelLogStart start, const FollowLimits &limits)
{
	check_limits(limits);
	return [start, limits](const Session &session) {
		const std::unique_ptr<KernelLog> log = session.surroundings->kernel_log(start);
		Following following(session, limits);
		KernelLogRecord record;
		bool is_behind = start == KernelLogStart::at_its_begin;
		while (is_behind ? !following.is_stopped() : !following.is_over()) {
			switch (log->next(record, following.at_most(longest_wait))) {
			case KernelLogEvent::record:
				// Whoever may write into the log, the module's lines come from the kernel.
				if (const auto line = decode_log_line(record.text); line && record.facility == 0) {
					following.line(text_of(session, record, *line));
				}
				break;
			case KernelLogEvent::lost:
				following.line(text_of_loss(session));
				break;
			case KernelLogEvent::quiet:
				is_behind = false;
				break;
			case KernelLogEvent::interrupted:
				following.interrupt();
				break;
			}
		}
	};
}

} // namespace cpctl
