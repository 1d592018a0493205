// SPDX-License-Identifier: GPL-2.0-only
#include "base/status_text.h"

#include "base/interface_name.h"

namespace captive_portal
{

namespace
{

constexpr uint32_t characters_at_a_time = 32;
constexpr uint32_t longest_escape = 4;

[[nodiscard]] bool stands_for_itself(char c)
{
	return c > ' ' && c < 0x7f && c != '\\';
}

// Writes one character, and says behind it.
[[nodiscard]] char *escape(char *out, char c)
{
	if (stands_for_itself(c)) {
		*out++ = c;
		return out;
	}
	const auto byte = static_cast<uint8_t>(c);
	*out++ = '\\';
	*out++ = static_cast<char>('0' + (byte >> 6));
	*out++ = static_cast<char>('0' + (byte >> 3 & 7));
	*out++ = static_cast<char>('0' + (byte & 7));
	return out;
}

[[nodiscard]] const char *special_row_name(uint32_t row)
{
	switch (row) {
	case CP_ROW_SPECIAL_MARK:
		return "special-mark";
	case CP_ROW_MODE_7:
		return "mode-7";
	case CP_ROW_SOCIAL_LOGIN:
		return "social-login";
	case CP_ROW_MIREL:
		return "mirel";
	default:
		return "other";
	}
}

} // namespace

void print_text(cp_status_text *out, const char *key, Text text)
{
	cp_status_print(out, " %s=", key);
	for (size_t begin = 0; begin < text.length; begin += characters_at_a_time) {
		char piece[characters_at_a_time * longest_escape];
		char *end = piece;
		for (size_t i = begin; i < text.length && i < begin + characters_at_a_time; ++i) {
			end = escape(end, text.characters[i]);
		}
		cp_status_print(out, "%.*s", static_cast<int>(end - piece), piece);
	}
}

void print_address(cp_status_text *out, const char *key, Ipv4Address address)
{
	cp_status_print(out, " %s=%pI4", key, &address);
}

void print_mac(cp_status_text *out, const char *key, const MacAddress &mac)
{
	cp_status_print(out, " %s=%02x:%02x:%02x:%02x:%02x:%02x", key, CP_MAC_ARGUMENTS(mac.bytes));
}

void print_row_name(cp_status_text *out, const char *key, uint32_t row)
{
	if (row >= CP_WIRELESS_INTERFACES) {
		cp_status_print(out, " %s=%s", key, special_row_name(row));
		return;
	}
	char name[CP_INTERFACE_NAME_SIZE];
	format_interface_name_of_index(name, row);
	cp_status_print(out, " %s=%s", key, name);
}

} // namespace captive_portal
