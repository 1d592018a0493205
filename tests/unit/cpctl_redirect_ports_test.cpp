// SPDX-License-Identifier: GPL-2.0-only
// The ports that cpctl says clients are sent to, against those to which the module's core sends them: in each combination of
// the settings that it reads, frames of all kinds of clients go through its hooks.
#include "cpctl/redirect_ports.h"

#include <set>

#include "tests/support/cast.h"
#include "tests/support/frame_builder.h"
#include "tests/unit/cpctl_core.h"

namespace captive_portal::test
{

namespace
{

using Numbers = std::set<uint32_t>;

// As the module's commands have them.
struct Settings {
	uint32_t mode = CP_MODE_OFF;
	uint32_t block_https = CP_HTTPS_BLOCKED;
	uint32_t garden = 0;
	const char *logout = "";
	uint32_t dns_filter = 0;
	uint32_t mirel_mode = CP_MODE_OFF;
	uint32_t mirel_garden = 0;
	// Nothing reads it.
	uint32_t mirel_block_https = 0;
};

struct Sender {
	const char *device;
	Host host;
};

constexpr uint32_t row = 8;
constexpr Host unknown = client_of_wlan_2_1;
constexpr Host logged_in = {{0x02, 0x11, 2, 1, 2, 0}, ipv4(192, 168, 1, 32)};
constexpr Host black = {{0x02, 0x11, 2, 1, 3, 0}, ipv4(192, 168, 1, 33)};

constexpr Sender senders[] = {
	{"wlan-2-1", unknown}, {"wlan-2-1", logged_in}, {"wlan-2-1", black}, {"eth0", wired_host}};
constexpr Host servers[] = {upstream_server, private_server, social_login, dns_filter, logout_server};
constexpr uint16_t asked_ports[] = {80, 443, 22};

class CpctlRedirectPorts : public CpctlWithTheCore
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		CpctlWithTheCore::SetUp();
		(void)answer({"client", "add", "login", "02:11:02:01:02:00", "wlan-2-1"});
		(void)answer({"client", "add", "mirel-black", "02:11:02:01:03:00"});
	}

	void set_portal(cp_set_command what, uint32_t of_row, uint32_t value, const std::string &text = "")
	{
		cp_cmd record = {};
		record.cmd = what;
		record.iface = static_cast<int32_t>(of_row);
		record.enable_value = value;
		text.copy(record.value, sizeof(record.value) - 1);
		send(CAPTIVE_PORTAL_IOCTL_SET, record);
	}
	void switch_garden(uint32_t of_row, uint32_t value)
	{
		wg_cmd record = {};
		record.cmd = WALLED_GARDEN;
		record.iface = static_cast<int32_t>(of_row);
		record.enable_value = value;
		send(WALLED_GARDEN_IOCTL_SET, record);
	}
	void set(const Settings &settings)
	{
		set_portal(CAPTIVE_PORTAL, row, settings.mode);
		set_portal(BLOCK_HTTPS, row, settings.block_https);
		set_portal(LOGOUT_IP_NOTIFY, row, 0, settings.logout);
		set_portal(DNS_FILTER_ENABLE, 0, settings.dns_filter);
		set_portal(CAPTIVE_PORTAL_MIREL, 0, settings.mirel_mode);
		set_portal(BLOCK_HTTPS, CP_ROW_MIREL, settings.mirel_block_https);
		switch_garden(row, settings.garden);
		switch_garden(CP_ROW_MIREL, settings.mirel_garden);
	}

	// Where a frame ends up, if that is the access point itself.
	static std::optional<uint32_t> redirected(const char *device, const Frame &frame)
	{
		host::PacketBuffer packet(frame);
		packet.in_name = device;
		if (host::run_hook(ebt_gate_keeper, packet) != CP_ACCEPT ||
		    host::run_hook(nf_cp_check, packet) != CP_ACCEPT || packet.type != host::PacketType::host) {
			return std::nullopt;
		}
		constexpr size_t port_place = 14 + 20 + 2;
		const Frame after = packet.frame();
		return static_cast<uint32_t>(after.at(port_place)) << 8 | after.at(port_place + 1);
	}

	static Numbers sent_to()
	{
		Numbers ports;
		for (const Sender &sender : senders) {
			for (const Host &server : servers) {
				for (const uint16_t port : asked_ports) {
					const auto redirect =
						redirected(sender.device,
							   frame().from(sender.host).to(server).tcp(51000, port).syn());
					if (redirect) {
						ports.insert(*redirect);
					}
				}
			}
		}
		return ports;
	}

	Numbers told()
	{
		Numbers ports;
		for (const cpctl::RedirectPort &port :
		     cpctl::redirect_ports(cpctl::parse_status_lines(machine.status_text("status")))) {
			ports.insert(port.port);
		}
		return ports;
	}

	void expect_told(const Settings &settings)
	{
		set(settings);
		EXPECT_EQ(told(), sent_to())
			<< "mode " << settings.mode << " block_https " << settings.block_https << " garden "
			<< settings.garden << " logout '" << settings.logout << "' dns_filter " << settings.dns_filter
			<< " mirel: mode " << settings.mirel_mode << " garden " << settings.mirel_garden
			<< " block_https " << settings.mirel_block_https;
	}
};

// By hand, so that the two cannot agree on a mistake.
TEST_F(CpctlRedirectPorts, OfAFewSettings)
{
	set({});
	EXPECT_EQ(told(), (Numbers{83, 84}));
	set({.mode = CP_MODE_ON});
	EXPECT_EQ(told(), (Numbers{83, 84, 20081, 20444}));
	set({.mode = CP_MODE_ON, .garden = 1});
	EXPECT_EQ(told(), (Numbers{83, 84, 20081}));
	set({.mode = CP_MODE_INTERNET_PASSES, .block_https = 2, .garden = 1, .logout = "1.2.3.4", .dns_filter = 1});
	EXPECT_EQ(told(), (Numbers{82, 83, 84, 88, 89, 90, 91}));
	set({.mirel_mode = CP_MODE_ON});
	EXPECT_EQ(told(), (Numbers{83, 84, 86, 87}));
	set({.mirel_mode = CP_MODE_INTERNET_PASSES, .mirel_garden = 1, .mirel_block_https = 2});
	EXPECT_EQ(told(), (Numbers{83, 84, 86}));
}

TEST_F(CpctlRedirectPorts, AreThoseOfTheCoreWhateverAnInterfaceHas)
{
	for (const uint32_t mode : {0U, 1U, 2U, 7U, 8U, 9U}) {
		for (const uint32_t block_https : {0U, 1U, 2U, 5U}) {
			for (const uint32_t garden : {0U, 1U, 7U}) {
				for (const char *const logout : {"", "0.0.0.0", "1.2.3.4", "2.2.2.2", "4.4.4.4"}) {
					for (const uint32_t dns_filter : {0U, 1U}) {
						expect_told({.mode = mode,
							     .block_https = block_https,
							     .garden = garden,
							     .logout = logout,
							     .dns_filter = dns_filter});
					}
				}
			}
		}
	}
}

TEST_F(CpctlRedirectPorts, AreThoseOfTheCoreWhateverMirelHas)
{
	for (const uint32_t mode : {0U, 1U, 7U, 8U}) {
		for (const uint32_t dns_filter : {0U, 1U}) {
			for (const uint32_t mirel_mode : {0U, 1U, 2U, 7U, 8U}) {
				for (const uint32_t mirel_garden : {0U, 1U}) {
					for (const uint32_t mirel_block_https : {0U, 1U, 2U}) {
						expect_told({.mode = mode,
							     .dns_filter = dns_filter,
							     .mirel_mode = mirel_mode,
							     .mirel_garden = mirel_garden,
							     .mirel_block_https = mirel_block_https});
					}
				}
			}
		}
	}
}

// What has no clients sends none, whatever is stored there.
TEST_F(CpctlRedirectPorts, OfTheFurtherRowsAreNone)
{
	for (const uint32_t further : {CP_ROW_SPECIAL_MARK, CP_ROW_MODE_7, CP_ROW_SOCIAL_LOGIN}) {
		set_portal(CAPTIVE_PORTAL, further, CP_MODE_ON);
		set_portal(BLOCK_HTTPS, further, 2);
		set_portal(LOGOUT_IP_NOTIFY, further, 0, "1.2.3.4");
		switch_garden(further, 1);
	}
	EXPECT_EQ(told(), (Numbers{83, 84}));
	expect_told({.mode = CP_MODE_ON, .garden = 1});
	expect_told({.mode = CP_MODE_INTERNET_PASSES});
}

TEST_F(CpctlRedirectPorts, OfEachInterfaceAreItsOwn)
{
	for (uint32_t of_row = 0; of_row < CP_WIRELESS_INTERFACES; of_row++) {
		set_portal(CAPTIVE_PORTAL, of_row, CP_MODE_ON);
		const std::string name =
			"wlan-" + std::to_string(of_row / 8 + 1) + "-" + std::to_string(of_row % 8 + 1);
		const uint32_t http = 10081 + 10000 * (of_row / 8) + of_row % 8;
		EXPECT_EQ(told(), (Numbers{83, 84, http, http + 363})) << name;
		EXPECT_EQ(redirected(name.c_str(), frame().from(unknown).to(upstream_server).tcp(51000, 80).syn()),
			  http);
		EXPECT_EQ(redirected(name.c_str(), frame().from(unknown).to(upstream_server).tcp(51000, 443).syn()),
			  http + 363);
		set_portal(CAPTIVE_PORTAL, of_row, CP_MODE_OFF);
	}
}

} // namespace

} // namespace captive_portal::test
