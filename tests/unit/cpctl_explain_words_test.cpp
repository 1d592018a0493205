// SPDX-License-Identifier: GPL-2.0-only
// How cpctl explains frames, letter for letter, and which descriptions of frames it takes.
#include <nlohmann/json.hpp>

#include "cpctl/explain/frame_bytes.h"
#include "cpctl/explain/frame_words.h"
#include "cpctl/explain/meanings.h"
#include "cpctl/explain/network_devices.h"
#include "cpctl/explain/pcap_file.h"
#include "garden/arecord_cache.h"
#include "tests/unit/cpctl_explain.h"
#include "tests/unit/dns_messages.h"

namespace captive_portal::test
{

namespace
{

constexpr const char *client = "dev wlan-1-1 from 02:11:01:01:01:00 ";

std::string hex_of(const cpctl::FrameBytes &bytes)
{
	constexpr std::string_view digits = "0123456789abcdef";
	std::string text;
	for (const uint8_t byte : bytes) {
		text += digits[byte >> 4];
		text += digits[byte & 0xf];
	}
	return text;
}

class CpctlExplainWords : public CpctlExplain
{
protected:
	void expect_usage_failure(const std::string &words, const std::string &part)
	{
		std::istringstream stream("explain " + words);
		EXPECT_EQ(run({std::istream_iterator<std::string>(stream), {}}), 1) << words;
		EXPECT_EQ(out, "");
		EXPECT_NE(err.find(part), std::string::npos) << err;
	}

	void cpctl(const std::vector<std::string> &words) { (void)answer(words); }
};

TEST_F(CpctlExplainWords, ClientWithoutPortal)
{
	EXPECT_EQ(explained(std::string(client) + "icmp 192.168.1.11 203.0.113.10"),
		  "icmp 192.168.1.11 > 203.0.113.10\n"
		  "  02:11:01:01:01:00 > 02:00:00:00:00:fe, in by wlan-1-1\n"
		  "  gatekeeper: passed: the client is in no table, there is no portal\n"
		  "    02:11:01:01:01:00 is in no table of wlan-1-1\n"
		  "    wlan-1-1 has mode off\n"
		  "  portal check: passed: nothing is to be checked\n"
		  "    mark 0\n"
		  "  verdict: passed: passes as it is\n");
}

TEST_F(CpctlExplainWords, WebRequestBeforeLoginAndItsReplies)
{
	cpctl({"interface", "set", "wlan-1-1", "mode", "on"});
	EXPECT_EQ(explained(std::string(client) +
			    "tcp 192.168.1.11 203.0.113.10 port 80 sport 51000 syn then reply then reply fin-ack"),
		  "tcp 192.168.1.11:51000 > 203.0.113.10:80 syn\n"
		  "  02:11:01:01:01:00 > 02:00:00:00:00:fe, in by wlan-1-1\n"
		  "  gatekeeper: marked: the client is in no table, the portal is on\n"
		  "    02:11:01:01:01:00 is in no table of wlan-1-1\n"
		  "    wlan-1-1 has mode on\n"
		  "    mark: 0 -> 5200, clients of wlan-1-1 that are not admitted\n"
		  "  portal check: redirected: to the interface's portal page\n"
		  "    mark 5200: clients of wlan-1-1 that are not admitted, mode on\n"
		  "    the garden of wlan-1-1 is off\n"
		  "    port 10081 of the access point is the portal page of wlan-1-1, HTTP\n"
		  "    recorded: a redirected connection, of wlan-1-1\n"
		  "    destination: 203.0.113.10:80 -> 192.168.1.1:10081\n"
		  "    destination mac: 02:00:00:00:00:fe -> 02:aa:00:00:00:01\n"
		  "  verdict: redirected: goes to the access point itself, port 10081: the portal page of wlan-1-1, "
		  "HTTP\n"
		  "tcp 192.168.1.1:10081 > 192.168.1.11:51000 syn-ack\n"
		  "  02:aa:00:00:00:01 > 02:11:01:01:01:00, out by wlan-1-1\n"
		  "  reply rewrite: rewritten: a reply, to look as if it came from where the client asked\n"
		  "    port 10081 of the access point is the portal page of wlan-1-1, HTTP\n"
		  "    source: 192.168.1.1:10081 -> 203.0.113.10:80\n"
		  "    source mac: 02:aa:00:00:00:01 -> 02:00:00:00:00:fe\n"
		  "  verdict: rewritten: leaves by wlan-1-1 as tcp 203.0.113.10:80 > 192.168.1.11:51000 syn-ack\n"
		  "tcp 192.168.1.1:10081 > 192.168.1.11:51000 fin-ack\n"
		  "  02:aa:00:00:00:01 > 02:11:01:01:01:00, out by wlan-1-1\n"
		  "  reply rewrite: rewritten: a reply, to look as if it came from where the client asked\n"
		  "    port 10081 of the access point is the portal page of wlan-1-1, HTTP\n"
		  "    forgotten: a redirected connection that has ended, of wlan-1-1\n"
		  "    source: 192.168.1.1:10081 -> 203.0.113.10:80\n"
		  "    source mac: 02:aa:00:00:00:01 -> 02:00:00:00:00:fe\n"
		  "  verdict: rewritten: leaves by wlan-1-1 as tcp 203.0.113.10:80 > 192.168.1.11:51000 fin-ack\n");
}

TEST_F(CpctlExplainWords, NamesTheTableThatAdmits)
{
	cpctl({"interface", "set", "wlan-1-1", "mode", "on"});
	cpctl({"client", "add", "login", "02:11:01:01:01:00", "wlan-1-1"});
	cpctl({"client", "add", "white", "02:11:01:01:01:00", "wlan-1-1"});
	cpctl({"client", "add", "mirel-black", "02:11:01:01:01:00"});
	EXPECT_EQ(explained(std::string(client) + "udp 192.168.1.11 203.0.113.10 port 443"),
		  "udp 192.168.1.11:51000 > 203.0.113.10:443\n"
		  "  02:11:01:01:01:00 > 02:00:00:00:00:fe, in by wlan-1-1\n"
		  "  gatekeeper: passed: the client is on the login list\n"
		  "    02:11:01:01:01:00 is in white of wlan-1-1, login of wlan-1-1, mirel-black\n"
		  "    the MIREL portal has mode off\n"
		  "  portal check: passed: nothing is to be checked\n"
		  "    mark 0\n"
		  "  verdict: passed: passes as it is\n");
}

TEST_F(CpctlExplainWords, NamesRuleOfTheGarden)
{
	cpctl({"interface", "set", "wlan-1-1", "mode", "on"});
	cpctl({"garden", "replace", "wlan-1-1", "on", "*.example.com", "198.51.100.0/24"});
	EXPECT_NE(explained(std::string(client) + "tcp 192.168.1.11 198.51.100.20 port 443")
			  .find("  portal check: passed: to an address of the walled garden\n"
				"    mark 5200: clients of wlan-1-1 that are not admitted, mode on\n"
				"    wlan-1-1 has block-https block\n"
				"    the garden of wlan-1-1 is on: its rule 198.51.100.0/24 has 198.51.100.20\n"
				"  verdict: passed: passes as it is\n"),
		  std::string::npos)
		<< out;
	EXPECT_NE(explained(std::string(client) + "tcp 192.168.1.11 203.0.113.10 port 443")
			  .find("  portal check: dropped: HTTPS to nothing in the walled garden\n"
				"    mark 5200: clients of wlan-1-1 that are not admitted, mode on\n"
				"    wlan-1-1 has block-https block\n"
				"    the garden of wlan-1-1 is on: no address rule of its 2 rules has 203.0.113.10, "
				"which is not cached\n"
				"  verdict: dropped: is dropped by the portal check\n"),
		  std::string::npos)
		<< out;
}

TEST_F(CpctlExplainWords, KnowsWhatIsCached)
{
	cpctl({"interface", "set", "wlan-1-1", "mode", "on"});
	cpctl({"garden", "replace", "wlan-1-1", "on", "*.example.com"});
	const std::string request = std::string(client) + "tcp 192.168.1.11 203.0.113.10 port 80";
	EXPECT_NE(explained(request).find(
			  "    the garden of wlan-1-1 is on: no address rule of its 1 rule has 203.0.113.10, "
			  "which is not cached\n"),
		  std::string::npos)
		<< out;
	EXPECT_NE(explained(request + " cached")
			  .find("    the garden of wlan-1-1 is on: 203.0.113.10 is cached, for a name that it permits\n"
				"  verdict: passed: passes as it is\n"),
		  std::string::npos)
		<< out;
	add_dns_arecord(arecord_bucket(ipv4(203, 0, 113, 10)), 1, {"www.example.com", 15}, ipv4(203, 0, 113, 10), 300);
	EXPECT_NE(explained(request).find(
			  "    the garden of wlan-1-1 is on: 203.0.113.10 is cached as www.example.com, for a "
			  "name that it permits\n"
			  "  verdict: passed: passes as it is\n"),
		  std::string::npos)
		<< out;
	EXPECT_EQ(out.find("unknown:"), std::string::npos) << out;
	cpctl({"garden", "replace", "wlan-1-1", "on", "198.51.100.0/24"});
	EXPECT_NE(explained(request).find(
			  "    the garden of wlan-1-1 is on: no address rule of its 1 rule has 203.0.113.10, "
			  "which is cached as www.example.com, for no name that it permits\n"),
		  std::string::npos)
		<< out;
}

TEST_F(CpctlExplainWords, SaysThatRecordedConnectionsCannotBeKnown)
{
	cpctl({"interface", "set", "wlan-1-1", "mode", "on"});
	const std::string reply = "out wlan-1-1 tcp 192.168.1.1 192.168.1.11 sport 10081 port 51000 ack";
	host::PacketBuffer packet(cpctl::tcp_frame({{0x02, 0x11, 1, 1, 1, 0}, {}}, {{ipv4(192, 168, 1, 11).raw}, 51000},
						   {{ipv4(203, 0, 113, 10).raw}, 443}, 0));
	EXPECT_NE(explained(reply).find("  reply rewrite: passed: its source is not what the module has learned"),
		  std::string::npos)
		<< out;
	EXPECT_EQ(machine.pre_routing(packet, "wlan-1-1"), CP_ACCEPT);
	EXPECT_NE(explained(reply).find("  reply rewrite: passed: a reply on a connection that is not recorded\n"
					"    port 10081 of the access point is the portal page of wlan-1-1, HTTP\n"
					"    no connection of wlan-1-1 is recorded\n"),
		  std::string::npos)
		<< out;
	host::PacketBuffer syn(cpctl::tcp_frame({{0x02, 0x11, 1, 1, 1, 0}, {}}, {{ipv4(192, 168, 1, 11).raw}, 51000},
						{{ipv4(203, 0, 113, 10).raw}, 80}, cpctl::tcp_syn));
	EXPECT_EQ(machine.pre_routing(syn, "wlan-1-1"), CP_ACCEPT);
	EXPECT_NE(explained(reply).find(
			  "    unknown: whether the connection is recorded (connections of wlan-1-1: 1); if it is, "),
		  std::string::npos)
		<< out;
}

TEST_F(CpctlExplainWords, CompanionsAndWiredPorts)
{
	cpctl({"interface", "owe", "map", "wlan-2-15", "wlan-1-1"});
	EXPECT_NE(explained("dev wlan-2-15 from 02:11:01:01:01:00 icmp 192.168.1.11 192.168.1.1")
			  .find("    wlan-2-15 is judged as wlan-1-1\n"),
		  std::string::npos)
		<< out;
	EXPECT_NE(explained("dev eth0 from 02:33:00:00:00:01 tcp 192.168.1.77 192.168.1.1 port 82")
			  .find("  gatekeeper: dropped: from the wired side to a port of the portal\n"
				"    eth0 is no wireless interface\n"
				"    port 82 of the access point is the logout page\n"
				"  verdict: dropped: is dropped by the gatekeeper\n"),
		  std::string::npos)
		<< out;
	EXPECT_NE(explained("dev wlan-1-1 from 01:00:5e:00:00:01 arp").find("    the sender is 01:00:5e:00:00:01\n"),
		  std::string::npos)
		<< out;
}

TEST_F(CpctlExplainWords, MarksOfAFirewall)
{
	EXPECT_NE(explained(std::string(client) + "tcp 192.168.1.11 203.0.113.10 port 80 mark 5309")
			  .find("  portal check: redirected: to the page of a reputation rule\n"
				"    mark 5309: reputation rule 2\n"
				"    port 1027 of the access point is the page of reputation rule 2, HTTP\n"),
		  std::string::npos)
		<< out;
}

TEST_F(CpctlExplainWords, TakesDevicesThatAreNotHereForPorts)
{
	EXPECT_TRUE(explained("dev wlan-1-14 from 02:11:01:01:01:00 arp")
			    .starts_with("assumed: wlan-1-14 is not here: taken for a port of br0\narp\n"))
		<< out;
	// As in another network namespace: the module has learned br0's addresses, cpctl does not see it.
	cpctl({"interface", "set", "wlan-1-1", "mode", "on"});
	host::PacketBuffer packet(cpctl::tcp_frame({{0x02, 0x11, 1, 1, 1, 0}, {}}, {{ipv4(192, 168, 1, 11).raw}, 51000},
						   {{ipv4(203, 0, 113, 10).raw}, 80}, cpctl::tcp_ack));
	EXPECT_EQ(machine.pre_routing(packet, "wlan-1-1"), CP_ACCEPT);
	explaining.read_devices = {};
	const std::string text = explained(std::string(client) + "tcp 192.168.1.11 203.0.113.10 port 80");
	EXPECT_TRUE(text.starts_with("assumed: br0 is not here: taken with the addresses that the module has learned, "
				     "192.168.1.1 and 02:aa:00:00:00:01\n"
				     "assumed: wlan-1-1 is not here: taken for a port of br0\n"))
		<< text;
	EXPECT_NE(text.find("-> 192.168.1.1:10081\n"), std::string::npos) << text;
}

TEST_F(CpctlExplainWords, ChangesNothing)
{
	cpctl({"interface", "set", "wlan-1-1", "mode", "on"});
	add_dns_arecord(arecord_bucket(ipv4(203, 0, 113, 10)), 1, {"www.example.com", 15}, ipv4(203, 0, 113, 10), 300);
	const auto everything = [this] {
		std::string text;
		for (const char *const name : {"status", "clients", "garden", "counters", "cache"}) {
			text += machine.status_text(name);
		}
		return text;
	};
	const std::string before = everything();
	const int openings_before = openings;
	(void)explained(std::string(client) + "tcp 192.168.1.11 203.0.113.10 port 80 cached then reply");
	EXPECT_EQ(err, "");
	EXPECT_EQ(everything(), before);
	EXPECT_EQ(openings, openings_before) << "the control device stays with whoever has it";
}

// What one explanation has recorded and cached the next does not know.
TEST_F(CpctlExplainWords, LinesOfAFileBeginAnew)
{
	cpctl({"interface", "set", "wlan-1-1", "mode", "on"});
	const std::string request = "explain " + std::string(client) + "tcp 192.168.1.11 203.0.113.10 port 80";
	const std::string file = file_with(request + "\n" + request + "\n");
	const std::string text = answer({"-b", file});
	EXPECT_EQ(text.substr(0, text.size() / 2), text.substr(text.size() / 2));
	EXPECT_NE(text.find("recorded: a redirected connection, of wlan-1-1"), std::string::npos);
}

TEST_F(CpctlExplainWords, AnswersInJson)
{
	cpctl({"interface", "set", "wlan-1-1", "mode", "on"});
	std::istringstream stream("-j explain " + std::string(client) + "tcp 192.168.1.11 203.0.113.10 port 80");
	const auto json = nlohmann::json::parse(answer({std::istream_iterator<std::string>(stream), {}}));
	EXPECT_EQ(json["assumed"], nlohmann::json::array());
	const auto &frame = json["frames"][0];
	EXPECT_EQ(frame["frame"], "tcp 192.168.1.11:51000 > 203.0.113.10:80 syn");
	EXPECT_EQ(frame["in"], "wlan-1-1");
	EXPECT_EQ(frame["out"], "");
	EXPECT_EQ(frame["verdict"], "redirected");
	EXPECT_EQ(frame["frame_after"], "tcp 192.168.1.11:51000 > 192.168.1.1:10081 syn");
	EXPECT_EQ(frame["bytes"], "0200000000fe0211010101000800450000280000400040063d12c0a8010b"
				  "cb00710ac7380050000003e8000000005002faf0ebc20000");
	EXPECT_EQ(frame["hooks"].size(), 2U);
	const auto &check = frame["hooks"][1];
	EXPECT_EQ(check["hook"], "portal check");
	EXPECT_EQ(check["accepted"], true);
	EXPECT_EQ(check["mark"], 5200);
	EXPECT_EQ(check["counted"][1]["reason"], "redirect-portal");
	EXPECT_EQ(check["counted"][1]["interface"], "wlan-1-1");
	EXPECT_EQ(check["changes"][0]["field"], "destination");
	EXPECT_EQ(check["changes"][0]["after"], "192.168.1.1:10081");
	EXPECT_EQ(check["unknown"], nlohmann::json::array());
}

TEST_F(CpctlExplainWords, ShowsWhatTheModuleWouldLog)
{
	cpctl({"interface", "set", "wlan-1-1", "mode", "on", "block-https", "pass"});
	EXPECT_NE(explained("-v " + std::string(client) + "tcp 192.168.1.11 203.0.113.10 port 443")
			  .find("    log: [captive portal]block disable, ACCEPT it\n"),
		  std::string::npos)
		<< out;
}

TEST_F(CpctlExplainWords, TakesBytes)
{
	const std::string arp = "ffffffffffff 02:11:01:01:01:00 0806";
	EXPECT_EQ(answer({"explain", "dev", "wlan-1-1", "--hex", arp}),
		  "arp\n"
		  "  02:11:01:01:01:00 > ff:ff:ff:ff:ff:ff, in by wlan-1-1\n"
		  "  gatekeeper: passed: neither IPv4 nor IPv6\n"
		  "  portal check: passed: nothing is to be checked\n"
		  "    mark 0\n"
		  "  verdict: passed: passes as it is\n");
	const std::string with_tag = "ffffffffffff 021101010100 81000005 0806";
	EXPECT_EQ(answer({"explain", "dev", "wlan-1-1", "--hex", with_tag}).substr(0, 4), "arp\n");
	EXPECT_EQ(answer({"explain", "dev", "wlan-1-1", "--hex", "ffff"}).substr(0, 28),
		  "a frame that is cut short\n  ");
	EXPECT_EQ(run({"explain", "dev", "wlan-1-1", "--hex", "abc"}), 1);
	EXPECT_EQ(err, "cpctl: 'abc' is no frame: write it as pairs of hexadecimal digits\n");
	EXPECT_EQ(run({"explain", "dev", "wlan-1-1", "--hex", "xy"}), 1);
	EXPECT_EQ(run({"explain", "dev", "wlan-1-1", "arp", "--hex", arp}), 1);
	EXPECT_NE(err.find("dev, out, mark and cached alone"), std::string::npos) << err;
	EXPECT_EQ(run({"explain", "--hex", arp}), 1);
	EXPECT_NE(err.find("dev IFACE"), std::string::npos) << err;
	EXPECT_EQ(run({"explain", "dev", "wlan-1-1", "--hex", arp, "--pcap", "x"}), 1);
}

TEST_F(CpctlExplainWords, ReadsDnsAnswers)
{
	cpctl({"garden", "replace", "wlan-1-1", "on", "*.example.com"});
	const DnsMessage message =
		DnsMessage().header(1).name("www.example.com").question().pointer(12).a_record(300, 203, 0, 113, 10);
	const cpctl::FrameBytes frame = cpctl::udp_frame({{0x02, 0x22, 0, 0, 0, 0xfe}, {0x02, 0x11, 1, 1, 1, 0}},
							 {{ipv4(203, 0, 113, 53).raw}, 53},
							 {{ipv4(192, 168, 1, 11).raw}, 5000}, message.bytes());
	EXPECT_EQ(answer({"explain", "out", "wlan-1-1", "--hex", hex_of(frame)}),
		  "udp 203.0.113.53:53 > 192.168.1.11:5000\n"
		  "  02:22:00:00:00:fe > 02:11:01:01:01:00, out by wlan-1-1\n"
		  "  reply rewrite: read: a DNS answer\n"
		  "    stored: an address, new to the cache\n"
		  "  verdict: passed: passes as it is\n");
}

// Every length of a frame gives some explanation.
TEST_F(CpctlExplainWords, TakesFramesThatAreCutAnywhere)
{
	cpctl({"interface", "set", "wlan-1-1", "mode", "on"});
	const cpctl::FrameBytes whole =
		cpctl::tcp_frame({{0x02, 0x11, 1, 1, 1, 0}, {}}, {{ipv4(192, 168, 1, 11).raw}, 51000},
				 {{ipv4(203, 0, 113, 10).raw}, 80}, cpctl::tcp_syn);
	for (size_t size = 1; size <= whole.size(); size++) {
		const cpctl::FrameBytes frame(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
		EXPECT_NE(answer({"explain", "dev", "wlan-1-1", "--hex", hex_of(frame)}).find("\n  verdict: "),
			  std::string::npos);
	}
	EXPECT_NE(out.find("verdict: redirected"), std::string::npos) << out;
}

std::string word(uint32_t number, bool swapped)
{
	number = swapped ? __builtin_bswap32(number) : number;
	return {reinterpret_cast<const char *>(&number), sizeof(number)};
}

// A capture with these frames, as a machine of this byte order, or of the other, writes it.
std::string capture(uint32_t magic, bool swapped, uint32_t link_type, const std::vector<std::string> &frames)
{
	const auto version = word(swapped ? 0x00020004 : 0x00040002, swapped);
	std::string text = word(magic, swapped) + version + word(0, swapped) + word(0, swapped) + word(65535, swapped) +
			   word(link_type, swapped);
	for (const std::string &frame : frames) {
		const auto size = static_cast<uint32_t>(frame.size());
		text += word(1, swapped) + word(2, swapped) + word(size, swapped) + word(size + 9, swapped) + frame;
	}
	return text;
}

TEST_F(CpctlExplainWords, ReadsCaptures)
{
	const std::string arp("\xff\xff\xff\xff\xff\xff\x02\x11\x01\x01\x01\x00\x08\x06", 14);
	const std::string ipv6("\xff\xff\xff\xff\xff\xff\x02\x11\x01\x01\x01\x00\x86\xdd", 14);
	for (const uint32_t magic : {0xa1b2c3d4U, 0xa1b23c4dU}) {
		for (const bool swapped : {false, true}) {
			const std::string path = file_with(capture(magic, swapped, 1, {arp, ipv6}));
			EXPECT_EQ(
				cpctl::read_pcap_file(path),
				(std::vector<cpctl::FrameBytes>{{arp.begin(), arp.end()}, {ipv6.begin(), ipv6.end()}}));
			EXPECT_TRUE(answer({"explain", "dev", "wlan-1-1", "--pcap", path, "--number", "2"})
					    .starts_with("ipv6\n"));
			const std::string both = answer({"explain", "dev", "wlan-1-1", "--pcap", path});
			EXPECT_TRUE(both.starts_with("arp\n"));
			EXPECT_NE(both.find("\nipv6\n"), std::string::npos);
			EXPECT_EQ(run({"explain", "dev", "wlan-1-1", "--pcap", path, "--number", "3"}), 1);
			EXPECT_NE(err.find("has no frame 3: its last is 2"), std::string::npos) << err;
		}
	}
}

TEST_F(CpctlExplainWords, RefusesFilesThatAreNoCaptures)
{
	const auto refused = [this](const std::string &text) {
		EXPECT_EQ(run({"explain", "dev", "wlan-1-1", "--pcap", file_with(text)}), 1);
		return err;
	};
	EXPECT_NE(refused("").find("is no capture file"), std::string::npos);
	EXPECT_NE(refused(std::string(24, 'x')).find("is no capture file"), std::string::npos);
	EXPECT_NE(refused("\x0a\x0d\x0d\x0a" + std::string(24, '\0')).find("pcapng"), std::string::npos);
	EXPECT_NE(refused(capture(0xa1b2c3d4, false, 113, {})).find("link type 113"), std::string::npos);
	EXPECT_NE(refused(capture(0xa1b2c3d4, false, 1, {})).find("has no frames"), std::string::npos);
	const std::string whole = capture(0xa1b2c3d4, false, 1, {std::string(14, 'a'), std::string(14, 'b')});
	for (size_t cut = 24 + 30 + 1; cut < whole.size(); cut++) {
		EXPECT_NE(refused(whole.substr(0, cut)).find("ends in the midst of frame 2"), std::string::npos) << cut;
	}
	EXPECT_EQ(run({"explain", "dev", "wlan-1-1", "--pcap", "/nowhere/at/all"}), 1);
	EXPECT_EQ(err, "cpctl: /nowhere/at/all cannot be read: No such file or directory: name a capture of tcpdump -w "
		       "that you may read\n");
	EXPECT_EQ(run({"explain", "dev", "wlan-1-1", "arp", "--number", "1"}), 1);
}

TEST_F(CpctlExplainWords, RefusesWhatIsNoFrame)
{
	expect_usage_failure("", "say what the frame is");
	expect_usage_failure("tcp 192.168.1.11 203.0.113.10 port 80", "by which port of the bridge");
	expect_usage_failure("dev wlan-1-1 icmp 192.168.1.11 203.0.113.10", "from MAC");
	expect_usage_failure(client + std::string("tcp 192.168.1.11 203.0.113.10"), "port PORT");
	expect_usage_failure(client + std::string("tcp 192.168.1.11"), "something is missing behind 'tcp'");
	expect_usage_failure(client + std::string("tcp 192.168.1.11 203.0.113.300 port 80"), "203.0.113.300");
	expect_usage_failure(client + std::string("tcp 192.168.1.11 203.0.113.10 port 65536"), "the highest is 65535");
	expect_usage_failure(client + std::string("udp 192.168.1.11 203.0.113.10 port 53 syn"), "no flags");
	expect_usage_failure(client + std::string("icmp 192.168.1.11 203.0.113.10 port 53"), "no ports");
	expect_usage_failure(client + std::string("ip 192.168.1.11 203.0.113.10"), "proto NUMBER");
	expect_usage_failure(client + std::string("ip 192.168.1.11 203.0.113.10 proto 256"), "the highest is 255");
	expect_usage_failure(client + std::string("arp proto 3"), "proto NUMBER goes with ip");
	expect_usage_failure(client + std::string("arp ipv6"), "arp or ipv6");
	expect_usage_failure(client + std::string("arp loudly"), "'loudly' says nothing");
	expect_usage_failure("reply", "describe that first");
	expect_usage_failure("dev a/b from 02:11:01:01:01:00 arp", "no name of a network device");
	expect_usage_failure("dev wlan-1-1-is-too-long from 02:11:01:01:01:00 arp", "no name of a network device");
}

TEST_F(CpctlExplainWords, ReplyToWhatIsNotRedirectedIsRefused)
{
	std::istringstream stream("explain " + std::string(client) + "icmp 192.168.1.11 203.0.113.10 then reply");
	EXPECT_EQ(run({std::istream_iterator<std::string>(stream), {}}), 2);
	EXPECT_EQ(err,
		  "cpctl: icmp 192.168.1.11 > 203.0.113.10 is not redirected, so the access point's service has no "
		  "reply to it: it passes as it is\n");
}

TEST_F(CpctlExplainWords, SaysWhenTheCoreIsNotInThisProgram)
{
	explaining = {};
	EXPECT_EQ(run({"explain", "dev", "eth0", "from", "02:33:00:00:00:01", "arp"}), 3);
	EXPECT_NE(err.find("built without the module's core"), std::string::npos) << err;
}

TEST_F(CpctlExplainWords, WarnsOfANewerModule)
{
	std::ostringstream out_stream;
	std::ostringstream err_stream;
	const auto read = [this](const std::string &name) {
		return name == "counters" ? "count interface=other reason=of-tomorrow value=1\n" :
					    machine.status_text(name);
	};
	EXPECT_EQ(cpctl::run_command_line({"explain", "dev", "eth0", "from", "02:33:00:00:00:01", "arp"},
					  {{}, read, {}, explaining}, out_stream, err_stream),
		  cpctl::ExitCode::done);
	EXPECT_EQ(err_stream.str(),
		  "cpctl: the module counts 'of-tomorrow', which this cpctl does not know: the module is "
		  "newer, and may decide otherwise\n");
}

TEST(CpctlMeanings, OfMarksAndPorts)
{
	EXPECT_EQ(cpctl::meaning_of_mark(5247), "clients of wlan-3-8 that are not admitted");
	EXPECT_EQ(cpctl::meaning_of_mark(5208), "none of the module's");
	EXPECT_EQ(cpctl::meaning_of_mark(5302), "clients on the MIREL black list");
	EXPECT_EQ(cpctl::meaning_of_mark(5323), "reputation rule 16");
	EXPECT_EQ(cpctl::meaning_of_mark(5324), "TCP to the DNS-filter address");
	EXPECT_EQ(cpctl::meaning_of_port(30451), "the portal page of wlan-3-8, HTTPS");
	EXPECT_EQ(cpctl::meaning_of_port(1041), "the page of reputation rule 16, HTTP");
	EXPECT_EQ(cpctl::meaning_of_port(1058), "the page of reputation rule 16, HTTPS");
	EXPECT_EQ(cpctl::meaning_of_port(91), "the page of mode internet-passes, HTTPS");
	EXPECT_EQ(cpctl::meaning_of_port(85), std::nullopt);
}

TEST(CpctlNetworkDevices, AreThoseOfThisMachine)
{
	const std::vector<cpctl::NetworkDevice> devices = cpctl::read_network_devices();
	const auto loopback = std::ranges::find(devices, "lo", &cpctl::NetworkDevice::name);
	ASSERT_NE(loopback, devices.end());
	EXPECT_EQ(loopback->mac, cpctl::MacAddress{});
	EXPECT_EQ(loopback->bridge, "");
	EXPECT_TRUE(loopback->ipv4.has_value());
}

} // namespace

} // namespace captive_portal::test
