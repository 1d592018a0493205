// SPDX-License-Identifier: GPL-2.0-only
// cpctl status and cpctl metrics: what they make of the status files, and of what is none.
#include <fstream>

#include <nlohmann/json.hpp>

#include "tests/unit/cpctl_test.h"

namespace cpctl::test
{

namespace
{

constexpr std::string_view module_line =
	"module format=1 debug_level=1 dns_filter=0 gateway=0.0.0.0 ap_address=192.168.100.1 ap_mac=02:00:00:00:00:fe "
	"cached_addresses=12 mirel-white=1 mirel-black=0\n";
constexpr std::string_view fresh_row =
	"interface index=0 name=wlan-1-1 mark=0x1450 http_port=10081 https_port=10444 mode=0 walled_garden=0 "
	"block_https=1 "
	"logout= garden=0 rules=0 connections=0 white=0 auth=0 login=0 ga-white=0 mac-auth-fallback=0 "
	"disconnection_behavior=0 disconnection_status=0\n";
constexpr std::string_view used_row =
	"interface index=10 name=wlan-2-3 mark=0x1466 http_port=20083 https_port=20446 mode=7 walled_garden=0 "
	"block_https=2 "
	"logout=192.0.2.1 garden=1 rules=3 connections=45 white=0 auth=0 login=17 ga-white=0 mac-auth-fallback=2 "
	"disconnection_behavior=2 disconnection_status=2\n";
constexpr std::string_view mirel_row = "interface index=27 name=mirel mark=0x0 http_port=0 https_port=0 mode=9 "
				       "walled_garden=0 block_https=1 logout= garden=0 rules=0 connections=0\n";
constexpr std::string_view companions = "owe name=wlan-1-14 interface=\nowe name=wlan-2-16 interface=wlan-2-3\n";
constexpr std::string_view counts = "count interface=wlan-2-3 reason=redirect-portal value=18446744\n"
				    "count interface=wlan-2-3 reason=icmp value=7\n"
				    "count interface=other reason=of-tomorrow value=1\n";

class CpctlStatus : public CpctlTest
{
protected:
	CpctlStatus()
	{
		status_files["status"] = std::string(module_line)
						 .append(fresh_row)
						 .append(used_row)
						 .append(mirel_row)
						 .append(companions);
		status_files["counters"] = counts;
	}

	void expect_unavailable(const std::string &part)
	{
		EXPECT_EQ(run({"status"}), 3);
		EXPECT_EQ(out, "");
		EXPECT_NE(err.find(part), std::string::npos) << err;
	}
};

TEST_F(CpctlStatus, SaysWhatIsNotAsTheModuleStartedIt)
{
	ASSERT_EQ(run({"status"}), 0) << err;
	EXPECT_EQ(out, "access point: address 192.168.100.1 mac 02:00:00:00:00:fe gateway none\n"
		       "module: debug 1 dns-filter off cached-addresses 12 mirel-white 1 mirel-black 0\n"
		       "wlan-2-3: mode internet-passes block-https redirect garden on rules 3 logout 192.0.2.1 "
		       "connections 45\n"
		       "    clients login 17 mac-auth-fallback 2\n"
		       "    disconnection pass-dhcp disconnected\n"
		       "mirel: mode 9 block-https block garden off rules 0 logout none connections 0\n"
		       "wlan-2-16: judged as wlan-2-3\n"
		       "1 more row is as the module started them\n");
	EXPECT_EQ(err, "");
	EXPECT_EQ(opened_path, "") << "the control device stays with whoever has it";
}

TEST_F(CpctlStatus, SaysWhatBecameOfFrames)
{
	ASSERT_EQ(run({"status", "-s"}), 0) << err;
	const size_t at = out.find("wlan-2-3:\n");
	ASSERT_NE(at, std::string::npos) << out;
	EXPECT_EQ(out.substr(at),
		  "wlan-2-3:\n"
		  "      18446744  redirect-portal           redirected: to the interface's portal page\n"
		  "             7  icmp                      dropped: ICMP\n"
		  "other:\n"
		  "             1  of-tomorrow               counted by a reason that is newer than this cpctl\n");
}

TEST_F(CpctlStatus, AnswersInJson)
{
	ASSERT_EQ(run({"-j", "status", "-s"}), 0) << err;
	EXPECT_EQ(std::ranges::count(out, '\n'), 1);
	const auto json = nlohmann::json::parse(out);
	EXPECT_EQ(json["ap_address"], "192.168.100.1");
	EXPECT_EQ(json["dns_filter"], false);
	EXPECT_EQ(json["clients"]["mirel-white"], 1);
	ASSERT_EQ(json["interfaces"].size(), 3u);
	const auto &row = json["interfaces"][1];
	EXPECT_EQ(row["name"], "wlan-2-3");
	EXPECT_EQ(row["mark"], 0x1466);
	EXPECT_EQ(row["mode"], "internet-passes");
	EXPECT_EQ(row["clients"]["login"], 17);
	EXPECT_EQ(row["disconnection_status"], "disconnected");
	EXPECT_FALSE(json["interfaces"][2].contains("clients"));
	EXPECT_EQ(json["interfaces"][2]["mode"], "9");
	EXPECT_EQ(json["owe"][1]["interface"], "wlan-2-3");
	ASSERT_EQ(json["counters"].size(), 3u);
	EXPECT_EQ(json["counters"][0]["value"], 18446744);
	ASSERT_EQ(run({"-p", "status"}), 0);
	EXPECT_GT(std::ranges::count(out, '\n'), 50);
	EXPECT_EQ(nlohmann::json::parse(out)["interfaces"], json["interfaces"]);
	EXPECT_FALSE(nlohmann::json::parse(out).contains("counters"));
}

TEST_F(CpctlStatus, GivesMetrics)
{
	ASSERT_EQ(run({"metrics"}), 0) << err;
	for (const char *const line :
	     {"# TYPE captive_portal_events_total counter\n",
	      "captive_portal_events_total{interface=\"wlan-2-3\",reason=\"icmp\"} 7\n",
	      "# TYPE captive_portal_cached_addresses gauge\ncaptive_portal_cached_addresses 12\n",
	      "captive_portal_connections{interface=\"wlan-2-3\"} 45\n",
	      "captive_portal_clients{interface=\"wlan-2-3\",table=\"login\"} 17\n",
	      "captive_portal_clients{interface=\"all\",table=\"mirel-white\"} 1\n"}) {
		EXPECT_NE(out.find(line), std::string::npos) << line;
	}
	EXPECT_EQ(out.find("mac-auth-fallback\"} 1"), std::string::npos);
	EXPECT_EQ(out.find("interface=\"mirel\",table"), std::string::npos) << "it has no tables";
}

TEST_F(CpctlStatus, ReadsEscapes)
{
	status_files["status"] = std::string(module_line) + std::string(fresh_row);
	const size_t at = status_files["status"].find("logout=");
	status_files["status"].insert(at + 7, "a\\040b\\134\\377");
	ASSERT_EQ(run({"-j", "status"}), 0) << err;
	// A byte that is no text in JSON appears as the sign for such.
	EXPECT_EQ(nlohmann::json::parse(out)["interfaces"][0]["logout"], "a b\\\xef\xbf\xbd");
}

TEST_F(CpctlStatus, RefusesWhatItDoesNotUnderstand)
{
	status_files["status"] = "";
	expect_unavailable("does not begin as it should");
	status_files["status"] = "module format=2\n";
	expect_unavailable("format 2");
	status_files["status"] = "module format=x\n";
	expect_unavailable("format=x");
	status_files["status"] = "module format=1\n";
	expect_unavailable("does not say ap_address");
	for (const char *const value : {"\\", "\\04", "\\400", "\\0x1", "\\ 12"}) {
		status_files["status"] = "module format=1 ap_address=" + std::string(value) + "\n";
		expect_unavailable("does not say ap_address");
	}
}

TEST_F(CpctlStatus, ReadsTheKernelsFiles)
{
	try {
		static_cast<void>(read_kernel_status_file("nothing-of-the-kind"));
		FAIL() << "there is no such file";
	} catch (const Failure &failure) {
		EXPECT_EQ(failure.code(), ExitCode::unavailable);
		EXPECT_STREQ(failure.what(),
			     "/proc/captive_portal/nothing-of-the-kind: there is no such file: load the "
			     "module (modprobe captive_portal)");
	}
}

} // namespace

} // namespace cpctl::test
