// SPDX-License-Identifier: GPL-2.0-only
#include "lib/interface_names.h"

#include <algorithm>
#include <array>

#include "captive_portal/interface_index.h"
#include "captive_portal/marks.h"
#include "captive_portal/ports.h"
#include "lib/failure.h"
#include "lib/interface.h"

namespace libcaptiveportal
{

namespace
{

static_assert(CAPTIVEPORTAL_INTERFACES == +CP_WIRELESS_INTERFACES);
static_assert(CAPTIVEPORTAL_OWE_INTERFACES == +CP_OWE_INTERFACES);
static_assert(CAPTIVEPORTAL_INTERFACE_SIZE == +CP_INTERFACE_NAME_SIZE);

// As the status files name them, behind the wireless interfaces.
constexpr std::array<std::string_view, CP_ROWS - CP_WIRELESS_INTERFACES> further_rows = {"special-mark", "mode-7",
											 "social-login", "mirel"};

std::string name_of(uint32_t radio, uint32_t vap)
{
	return "wlan-" + std::to_string(radio) + "-" + std::to_string(vap);
}

// 0 of the digit 1, and so on; 9 or more of what is no digit from 1 on.
uint32_t position_of(char digit)
{
	return static_cast<uint32_t>(static_cast<unsigned char>(digit)) - '1';
}

// CP_WIRELESS_INTERFACES when there is none.
uint32_t scan_interface(std::string_view name)
{
	constexpr std::string_view shape = "wlan-R-V";
	constexpr size_t radio_at = shape.find('R');
	constexpr size_t vap_at = shape.find('V');
	constexpr std::string_view before_radio = shape.substr(0, radio_at);
	constexpr std::string_view between = shape.substr(radio_at + 1, vap_at - radio_at - 1);
	constexpr uint32_t radios = CP_WIRELESS_INTERFACES / CP_VAPS_PER_RADIO;
	static_assert(radios < 10 && CP_VAPS_PER_RADIO < 10, "a digit each");

	if (name.size() != shape.size() || !name.starts_with(before_radio) ||
	    name.substr(radio_at + 1, between.size()) != between) {
		return CP_WIRELESS_INTERFACES;
	}
	const uint32_t radio = position_of(name[radio_at]);
	const uint32_t vap = position_of(name[vap_at]);
	return radio < radios && vap < CP_VAPS_PER_RADIO ? radio * CP_VAPS_PER_RADIO + vap :
							   uint32_t{CP_WIRELESS_INTERFACES};
}

} // namespace

std::string interface_of_row(uint32_t row)
{
	if (row >= CP_WIRELESS_INTERFACES) {
		return std::string(further_rows[row - CP_WIRELESS_INTERFACES]);
	}
	return name_of(row / CP_VAPS_PER_RADIO + 1, row % CP_VAPS_PER_RADIO + 1);
}

std::string owe_interface_of_row(uint32_t row)
{
	return name_of(row / CP_OWE_VAPS_PER_RADIO + 1, row % CP_OWE_VAPS_PER_RADIO + CP_OWE_FIRST_VAP);
}

uint32_t row_of_interface(std::string_view name)
{
	const uint32_t row = scan_interface(name);
	if (row == CP_WIRELESS_INTERFACES) {
		throw invalid(quoted(name) + " is no wireless interface: they are wlan-1-1 to wlan-3-8 "
					     "(radio 1 to 3, virtual access point 1 to 8)");
	}
	return row;
}

uint32_t row_of_owe_interface(std::string_view name)
{
	for (uint32_t row = 0; row < CP_OWE_INTERFACES; row++) {
		if (owe_interface_of_row(row) == name) {
			return row;
		}
	}
	throw invalid(quoted(name) + " is no OWE interface: they are wlan-1-14 to wlan-3-16 "
				     "(radio 1 to 3, virtual access point 14 to 16)");
}

uint32_t row_of_any(std::string_view name)
{
	const auto *const further = std::ranges::find(further_rows, name);
	if (further != further_rows.end()) {
		return CP_WIRELESS_INTERFACES + static_cast<uint32_t>(further - further_rows.begin());
	}
	return row_of_interface(name);
}

} // namespace libcaptiveportal

using namespace libcaptiveportal;

namespace
{

int give_name(uint32_t row, uint32_t rows, std::string (*name_of_row)(uint32_t), char *name) noexcept
{
	return guarded([&] {
		given(name, "place for a name") = '\0';
		if (row >= rows) {
			throw invalid("there is no row " + std::to_string(row) + ": the last one is " +
				      std::to_string(rows - 1));
		}
		store_text(name, CAPTIVEPORTAL_INTERFACE_SIZE, name_of_row(row));
		return CAPTIVEPORTAL_OK;
	});
}

} // namespace

extern "C" {

int captiveportal_parse_interface(const char *name, uint32_t *row)
{
	return guarded([&] {
		given(row, "place for a row") = row_of_interface(word_of(name));
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_parse_owe_interface(const char *name, uint32_t *row)
{
	return guarded([&] {
		given(row, "place for a row") = row_of_owe_interface(word_of(name));
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_interface_name(uint32_t row, char name[CAPTIVEPORTAL_INTERFACE_SIZE])
{
	return give_name(row, CP_ROWS, interface_of_row, name);
}

int captiveportal_owe_interface_name(uint32_t row, char name[CAPTIVEPORTAL_INTERFACE_SIZE])
{
	return give_name(row, CP_OWE_INTERFACES, owe_interface_of_row, name);
}

uint32_t captiveportal_mark(uint32_t row)
{
	return row < CP_WIRELESS_INTERFACES ? cp_interface_mark(row) : 0;
}

uint16_t captiveportal_http_port(uint32_t row)
{
	return row < CP_WIRELESS_INTERFACES ? cp_http_port(row) : 0;
}

uint16_t captiveportal_https_port(uint32_t row)
{
	return row < CP_WIRELESS_INTERFACES ? cp_https_port(row) : 0;
}
}
