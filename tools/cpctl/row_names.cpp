// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/row_names.h"

namespace cpctl
{

Interface parse_row(std::string_view name)
{
	for (uint32_t row = CP_WIRELESS_INTERFACES; row < CP_ROWS; row++) {
		if (interface_of_row(row).name == name) {
			return interface_of_row(row);
		}
	}
	return parse_interface(name);
}

} // namespace cpctl
