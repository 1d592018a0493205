// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/interface_names.h"

#include "captiveportal.h"
#include "cpctl/library.h"

namespace cpctl
{

Interface interface_of_row(uint32_t row)
{
	char name[CAPTIVEPORTAL_INTERFACE_SIZE] = {};
	judged(captiveportal_interface_name(row, name));
	return {name, row};
}

Interface owe_interface_of_row(uint32_t row)
{
	char name[CAPTIVEPORTAL_INTERFACE_SIZE] = {};
	judged(captiveportal_owe_interface_name(row, name));
	return {name, row};
}

Interface parse_interface(std::string_view name)
{
	Interface interface = {library_text(name)};
	judged(captiveportal_parse_interface(interface.name.c_str(), &interface.row));
	return interface;
}

Interface parse_owe_interface(std::string_view name)
{
	Interface interface = {library_text(name)};
	judged(captiveportal_parse_owe_interface(interface.name.c_str(), &interface.row));
	return interface;
}

} // namespace cpctl
