// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/meanings.h"

#include "captive_portal/ports.h"
#include "captive_portal/reasons.h"
#include "cpctl/interface_names.h"

namespace cpctl
{

namespace
{

enum class Web { http, https };

std::string page(const std::string &what, Web web)
{
	return what + (web == Web::http ? ", HTTP" : ", HTTPS");
}

// Where `port` is one of the two of a page.
std::optional<std::string> page_at(uint16_t port, uint16_t http, uint16_t https, const std::string &what)
{
	if (port != http && port != https) {
		return std::nullopt;
	}
	return page(what, port == http ? Web::http : Web::https);
}

std::optional<std::string> fixed_page(uint16_t port)
{
	if (port == CP_PORT_LOGOUT) {
		return "the logout page";
	}
	struct Page {
		uint16_t http;
		uint16_t https;
		const char *what;
	};
	constexpr Page pages[] = {
		{CP_PORT_SOCIAL_LOGIN_HTTP, CP_PORT_SOCIAL_LOGIN_HTTPS, "the social login"},
		{CP_PORT_MIREL_HTTP, CP_PORT_MIREL_HTTPS, "the page for the MIREL black list"},
		{CP_PORT_DNS_FILTER_HTTP, CP_PORT_DNS_FILTER_HTTPS, "the page of the DNS filter"},
		{CP_PORT_MODE_7_HTTP, CP_PORT_MODE_7_HTTPS, "the page of mode internet-passes"},
	};
	for (const Page &page : pages) {
		if (auto found = page_at(port, page.http, page.https, page.what)) {
			return found;
		}
	}
	return std::nullopt;
}

} // namespace

std::optional<uint32_t> row_of_mark(uint32_t mark)
{
	if (mark == MARK_MIREL_BLACK) {
		return CP_ROW_MIREL;
	}
	for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; row++) {
		if (cp_interface_mark(row) == mark) {
			return row;
		}
	}
	return std::nullopt;
}

std::string meaning_of_mark(uint32_t mark)
{
	if (mark == 0) {
		return "no mark";
	}
	if (mark == MARK_MIREL_BLACK) {
		return "clients on the MIREL black list";
	}
	if (mark == MARK_LOGOUT) {
		return "an admitted client calls its logout address";
	}
	if (mark == MARK_DNS_FILTER) {
		return "TCP to the DNS-filter address";
	}
	if (mark >= MARK_REPUTATION_FIRST && mark <= MARK_REPUTATION_LAST) {
		return "reputation rule " + std::to_string(mark - MARK_REPUTATION_FIRST);
	}
	if (const auto row = row_of_mark(mark)) {
		return "clients of " + interface_of_row(*row).name + " that are not admitted";
	}
	return "none of the module's";
}

std::optional<std::string> meaning_of_port(uint16_t port)
{
	if (auto fixed = fixed_page(port)) {
		return fixed;
	}
	for (uint16_t rule = 0; rule < CP_REPUTATION_RULES; rule++) {
		if (auto found =
			    page_at(port, CP_PORT_REPUTATION_HTTP_FIRST + rule, CP_PORT_REPUTATION_HTTPS_FIRST + rule,
				    "the page of reputation rule " + std::to_string(rule))) {
			return found;
		}
	}
	for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; row++) {
		if (auto found = page_at(port, cp_http_port(row), cp_https_port(row),
					 "the portal page of " + interface_of_row(row).name)) {
			return found;
		}
	}
	return std::nullopt;
}

std::string name_of_counted_row(uint32_t row)
{
	return row < CP_ROWS ? interface_of_row(row).name : "other";
}

} // namespace cpctl
