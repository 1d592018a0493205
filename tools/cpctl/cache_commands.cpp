// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/cache_commands.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>
#include <tuple>

#include "cpctl/cached_addresses.h"
#include "cpctl/failure.h"
#include "cpctl/json_answer.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

// What --interval takes: no more often than a reader of a full cache can bear, no less than once an hour.
constexpr double shortest_interval = 0.05;
constexpr double longest_interval = 3600;

constexpr uint32_t every_interface = (1U << CP_WIRELESS_INTERFACES) - 1;

[[nodiscard]] std::vector<CachedAddress> selected_addresses(const Session &session, const CacheSelection &selection)
{
	std::vector<CachedAddress> entries = read_cached_addresses(session.read_status_file);
	std::erase_if(entries, [&](const CachedAddress &entry) { return !selection.takes(entry); });
	return entries;
}

// Names of gardens for people, who need no list of all interfaces.
[[nodiscard]] std::string gardens_text(uint32_t gardens)
{
	if (gardens == 0) {
		return " none";
	}
	std::string text;
	if ((gardens & every_interface) == every_interface) {
		text = " wlan-1-1 to wlan-3-8";
		gardens &= ~every_interface;
	}
	for (const std::string &name : garden_names(gardens)) {
		text += " " + name;
	}
	return text;
}

[[nodiscard]] std::string time_left(int64_t seconds)
{
	return seconds >= 0 ? "left " + std::to_string(seconds) + "s" : "due " + std::to_string(-seconds) + "s ago";
}

void print_entry(std::ostream &out, const Paint &paint, const CachedAddress &entry, int64_t now)
{
	out << paint(Hue::address, entry.address) << ' ' << time_left(entry.timeout - now) << " gardens"
	    << gardens_text(entry.gardens) << '\n';
	for (const std::string &name : entry.names) {
		out << "    " << paint(Hue::name, printable(name)) << '\n';
	}
}

[[nodiscard]] Json json_of(const CachedAddress &entry, int64_t now)
{
	return {{"address", entry.address},
		{"timeout", entry.timeout},
		{"seconds_left", entry.timeout - now},
		{"gardens", garden_names(entry.gardens)},
		{"names", entry.names}};
}

// What follow_cache() compares: one line of its answer.
struct Row {
	std::string address;
	std::string name;
	uint32_t gardens;

	bool operator<(const Row &other) const
	{
		return std::tie(address, name, gardens) < std::tie(other.address, other.name, other.gardens);
	}
};

using Rows = std::set<Row>;

[[nodiscard]] Rows read_rows(const Session &session, const CacheSelection &selection)
{
	Rows rows;
	for (const CachedAddress &entry : selected_addresses(session, selection)) {
		for (const std::string &name : entry.names) {
			if (!selection.name || is_like(name, *selection.name)) {
				rows.insert({entry.address, name, entry.gardens});
			}
		}
	}
	return rows;
}

enum class Change { gone, come };

[[nodiscard]] std::string text_of(const Session &session, Change change, const Row &row)
{
	const bool come = change == Change::come;
	if (session.json != JsonOutput::none) {
		return json_text({{"event", come ? "add" : "del"},
				  {"address", row.address},
				  {"name", row.name},
				  {"gardens", garden_names(row.gardens)}},
				 session.json);
	}
	const Paint &paint = session.paint;
	return paint(come ? Hue::addition : Hue::removal, come ? "+" : "-") + " " + paint(Hue::address, row.address) +
	       " " + paint(Hue::name, printable(row.name)) + " gardens" + gardens_text(row.gardens);
}

void tell_difference(const Session &session, Following &following, Change change, const Rows &rows, const Rows &others)
{
	Rows difference;
	std::set_difference(rows.begin(), rows.end(), others.begin(), others.end(),
			    std::inserter(difference, difference.end()));
	for (const Row &row : difference) {
		following.line(text_of(session, change, row));
	}
}

} // namespace

Action show_cache(const CacheArguments &arguments)
{
	const CacheSelection selection = parse_cache_selection(arguments.interface, arguments.name, arguments.address);
	return [selection](const Session &session) {
		const std::vector<CachedAddress> entries = selected_addresses(session, selection);
		const int64_t now = session.surroundings->wall_clock();
		if (session.json != JsonOutput::none) {
			Json addresses = Json::array();
			for (const CachedAddress &entry : entries) {
				addresses.push_back(json_of(entry, now));
			}
			print_json(session, {{"addresses", addresses}});
			return;
		}
		for (const CachedAddress &entry : entries) {
			print_entry(session.out, session.paint, entry, now);
		}
	};
}

Action follow_cache(const CacheArguments &arguments, double interval, const FollowLimits &limits)
{
	const CacheSelection selection = parse_cache_selection(arguments.interface, arguments.name, arguments.address);
	check_limits(limits);
	if (!(interval >= shortest_interval && interval <= longest_interval)) {
		throw usage_failure("--interval takes 0.05 to 3600 seconds");
	}
	const auto pause =
		std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(interval));
	return [selection, pause, limits](const Session &session) {
		Rows before = read_rows(session, selection);
		Following following(session, limits);
		while (!following.is_over()) {
			following.pause(pause);
			Rows now = read_rows(session, selection);
			tell_difference(session, following, Change::gone, before, now);
			tell_difference(session, following, Change::come, now, before);
			before = std::move(now);
		}
	};
}

} // namespace cpctl
