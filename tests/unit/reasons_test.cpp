// SPDX-License-Identifier: GPL-2.0-only
// The table of reasons as whoever reads counts has met it: it grows at its end only.
#include "captive_portal/reasons.h"

#include <gtest/gtest.h>

#include <array>
#include <iterator>
#include <set>
#include <string_view>

namespace captive_portal::test
{

namespace
{

struct PublishedReason {
	int number;
	int enumerator;
	std::string_view name;
};

// A row that is here stays as it is; a new reason gets the next number, at the end.
constexpr PublishedReason published[] = {
	{0, CP_REASON_PASS_DISCONNECTED, "pass-disconnected"},
	{1, CP_REASON_MARK_PORTAL, "marked-portal"},
	{2, CP_REASON_MARK_BLACK, "marked-mirel-black"},
	{3, CP_REASON_MARK_FILTER, "marked-dns-filter"},
	{4, CP_REASON_MARK_LOGOUT_ADDRESS, "marked-logout"},
	{5, CP_REASON_DROP_SENDER, "bad-sender"},
	{6, CP_REASON_DROP_WIRED_PORT, "portal-port-wired"},
	{7, CP_REASON_DROP_PORTAL_PORT, "portal-port-wireless"},
	{8, CP_REASON_DROP_NO_ROW, "unknown-interface"},
	{9, CP_REASON_DROP_DISCONNECTED, "drop-disconnected"},
	{10, CP_REASON_PASS_DHCP_DNS, "dhcp-dns"},
	{11, CP_REASON_PASS_INTERNET, "internet-passes"},
	{12, CP_REASON_PASS_AP_WEB, "access-point-web"},
	{13, CP_REASON_PASS_HTTPS, "https-passes"},
	{14, CP_REASON_PASS_GARDEN, "walled-garden"},
	{15, CP_REASON_PASS_NO_IDENTITY, "no-bridge-address"},
	{16, CP_REASON_PASS_PROTOCOL, "other-protocol"},
	{17, CP_REASON_DROP_NOT_IPV4, "ipv6"},
	{18, CP_REASON_DROP_CUT, "cut-short"},
	{19, CP_REASON_DROP_ICMP, "icmp"},
	{20, CP_REASON_DROP_UDP, "udp"},
	{21, CP_REASON_DROP_TCP_MODE, "drop-tcp"},
	{22, CP_REASON_DROP_HTTPS, "https-blocked"},
	{23, CP_REASON_DROP_TCP_PORT, "tcp-port"},
	{24, CP_REASON_DROP_UNWRITABLE, "not-rewritable"},
	{25, CP_REASON_REDIRECT_PORTAL, "redirect-portal"},
	{26, CP_REASON_REDIRECT_MIREL, "redirect-mirel"},
	{27, CP_REASON_REDIRECT_MODE_7, "redirect-internet-passes"},
	{28, CP_REASON_REDIRECT_SOCIAL, "redirect-social-login"},
	{29, CP_REASON_REDIRECT_LOGOUT, "redirect-logout"},
	{30, CP_REASON_REDIRECT_FILTER, "redirect-dns-filter"},
	{31, CP_REASON_REDIRECT_REPUTATION, "redirect-reputation"},
	{32, CP_REASON_REPLY_REWRITTEN, "reply-rewritten"},
	{33, CP_REASON_REPLY_UNKNOWN, "reply-unknown"},
	{34, CP_REASON_CONNECTION_RECORDED, "connection-recorded"},
	{35, CP_REASON_CONNECTION_LOST, "connection-no-memory"},
	{36, CP_REASON_CONNECTION_ENDED, "connection-ended"},
	{37, CP_REASON_DNS_ANSWER, "dns-answer"},
	{38, CP_REASON_DNS_UNREADABLE, "dns-unreadable"},
	{39, CP_REASON_ADDRESS_STORED, "address-stored"},
	{40, CP_REASON_ADDRESS_REFRESHED, "address-refreshed"},
	{41, CP_REASON_ADDRESS_REFUSED, "address-refused"},
	{42, CP_REASON_ADDRESS_LOST, "address-no-memory"},
	{43, CP_REASON_ADDRESS_EXPIRED, "address-expired"},
	{44, CP_REASON_ADMIT_LOGIN, "login"},
	{45, CP_REASON_ADMIT_AUTH, "auth"},
	{46, CP_REASON_ADMIT_WHITE, "white"},
	{47, CP_REASON_ADMIT_GA_WHITE, "ga-white"},
	{48, CP_REASON_ADMIT_FALLBACK, "mac-auth-fallback"},
	{49, CP_REASON_ADMIT_MIREL_WHITE, "mirel-white"},
	{50, CP_REASON_PASS_NO_PORTAL, "no-portal"},
};

constexpr std::array<std::string_view, CP_REASON_COUNT> names = {
#define NAME_OF(enumerator, name, sentence) name,
	CP_REASONS(NAME_OF)
#undef NAME_OF
};

TEST(Reasons, KeepTheirNumbersAndNames)
{
	ASSERT_EQ(std::size(published), size_t{CP_REASON_COUNT});
	for (size_t row = 0; row < std::size(published); row++) {
		const PublishedReason &reason = published[row];
		SCOPED_TRACE(reason.name);
		EXPECT_EQ(reason.number, static_cast<int>(row));
		EXPECT_EQ(reason.enumerator, reason.number);
		EXPECT_EQ(names[row], reason.name);
	}
}

TEST(Reasons, HaveNamesOfTheirOwnThatNeedNoEscape)
{
	const std::set<std::string_view> different(names.begin(), names.end());
	EXPECT_EQ(different.size(), names.size());
	for (const std::string_view name : names) {
		EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"), std::string::npos) << name;
	}
}

} // namespace

} // namespace captive_portal::test
