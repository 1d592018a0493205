// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/unread_settings.h"

#include <string_view>

#include "cpctl/row_names.h"

namespace cpctl
{

namespace
{

constexpr std::string_view of_an_interface = "set that of an interface, wlan-1-1 to wlan-3-8";

// Frames carry marks of interfaces and of the MIREL black list; by these the module finds the row whose settings it reads.
[[nodiscard]] bool is_read(uint32_t row, std::string_view setting)
{
	if (row < CP_WIRELESS_INTERFACES || setting == "cp-walled-garden") {
		return true;
	}
	return row == CP_ROW_MIREL && (setting == "mode" || setting == "garden");
}

[[nodiscard]] std::string remedy(uint32_t row, std::string_view setting)
{
	const std::string interface(of_an_interface);
	if (row == CP_ROW_MIREL && setting == "block-https") {
		return "HTTPS of clients on its black list is redirected while its garden is off, and while that is on "
		       "dropped where no rule opens it: interface set mirel garden on|off";
	}
	if (row == CP_ROW_MODE_7 && setting == "garden") {
		return "its rules hold where an interface in mode internet-passes has its own garden on: set that "
		       "one's";
	}
	return setting == "mode" || setting == "garden" ? interface + ", or of mirel" : interface;
}

} // namespace

std::string unread_setting(const std::string &row, const std::vector<std::string> &settings)
{
	const Interface place = parse_row(row);
	// These rows have no setting of more than one word.
	for (size_t i = 0; i < settings.size() && place.row >= CP_WIRELESS_INTERFACES; i += 2) {
		if (!is_read(place.row, settings[i])) {
			return place.name + ": the module reads no " + settings[i] +
			       " of this row: " + remedy(place.row, settings[i]);
		}
	}
	return {};
}

} // namespace cpctl
