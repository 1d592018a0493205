// SPDX-License-Identifier: GPL-2.0-only
// The module's log lines, decoded: every text that its sources have, and every line that the core prints.
#include "cpctl/log_lines.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>

#include "captive_portal/marks.h"
#include "cpctl/log_format.h"
#include "garden/dns_name.h"
#include "garden/expiry_thread.h"
#include "tests/support/fault_sweep.h"
#include "tests/support/frame_builder.h"
#include "tests/unit/dns_messages.h"
#include "tests/unit/summary_case.h"

namespace cpctl::test
{

namespace
{

using Names = std::set<std::string>;

// ---- The sources' texts ------------------------------------------------------------------------------------------------------

// Literals that stand side by side as one, and the macro for hardware addresses as what it stands for.
std::string with_joined_literals(const std::string &source)
{
	const std::string with_macs =
		std::regex_replace(source, std::regex(R"(\bCP_MAC_FORMAT\b)"), "\"%02X:%02X:%02X:%02X:%02X:%02X\"");
	return std::regex_replace(with_macs, std::regex(R"rx("\s+")rx"), "");
}

std::string unescaped(std::string text)
{
	text = std::regex_replace(text, std::regex(R"(\\n)"), "\n");
	return std::regex_replace(text, std::regex(R"rx(\\")rx"), "\"");
}

// Texts of cp_log()'s calls in a source, and of what such calls print with "%s".
void add_texts(const std::string &source, Names &texts)
{
	const std::regex literal(R"rx("((?:[^"\\]|\\.)*)")rx");
	const std::regex constant(R"rx(constexpr char \w+\[\] = "((?:[^"\\]|\\.)*\\n)";)rx");
	for (size_t call = source.find("cp_log("); call != std::string::npos; call = source.find("cp_log(", call + 1)) {
		const std::string arguments = source.substr(call, source.find(");", call) - call);
		std::sregex_iterator found(arguments.begin(), arguments.end(), literal);
		for (const std::sregex_iterator end; found != end; ++found) {
			const std::string text = unescaped((*found)[1]);
			if (text == "%s\n") {
				texts.insert(unescaped((*++found)[1]) + "\n");
			} else if (text.ends_with('\n')) {
				texts.insert(text);
			}
		}
	}
	if (source.find("cp_log(CP_LOG_DEBUG, \"%s\", ") != std::string::npos) {
		for (std::sregex_iterator found(source.begin(), source.end(), constant), end; found != end; ++found) {
			texts.insert(unescaped((*found)[1]));
		}
	}
}

Names texts_of_sources()
{
	namespace fs = std::filesystem;
	Names texts;
	for (const char *const room : {"base", "core", "gatekeeper", "portal", "garden"}) {
		for (const fs::directory_entry &file :
		     fs::recursive_directory_iterator(fs::path(CORE_SOURCES) / room)) {
			std::ifstream stream(file.path());
			std::stringstream source;
			source << stream.rdbuf();
			add_texts(with_joined_literals(source.str()), texts);
		}
	}
	return texts;
}

TEST(CpctlLogLines, KnowTheTextsOfTheSourcesAndNoOthers)
{
	Names known;
	for (const LogDecoder &decoder : log_decoders()) {
		EXPECT_TRUE(known.emplace(decoder.format).second) << "twice: " << decoder.format;
	}
	EXPECT_EQ(known, texts_of_sources());
	EXPECT_EQ(known.size(), 97u);
}

TEST(CpctlLogLines, HaveAnEventOfTheirOwnAndAWordForEachConversion)
{
	Names events;
	for (const LogDecoder &decoder : log_decoders()) {
		SCOPED_TRACE(decoder.format);
		// A line does not say which of two formats printed it.
		EXPECT_TRUE(events.emplace(decoder.event).second || decoder.event == "dns-cut") << decoder.event;
		std::istringstream fields{std::string(decoder.fields)};
		const std::vector<std::string> words{std::istream_iterator<std::string>(fields), {}};
		EXPECT_EQ(words.size(), conversions_of(decoder.format));
		// What the sentence names is there.
		const std::string sentence(decoder.sentence);
		const std::regex name(R"(\{(\w+)\})");
		for (std::sregex_iterator found(sentence.begin(), sentence.end(), name), end; found != end; ++found) {
			const std::string field = (*found)[1];
			EXPECT_TRUE(std::ranges::any_of(words, [&](const std::string &word) {
				return word == field || word.starts_with(field + "/");
			})) << field;
		}
	}
}

// ---- Sentences ---------------------------------------------------------------------------------------------------------------

struct Line {
	const char *text;
	const char *sentence;
};

TEST(CpctlLogLines, AreSaidForAdministrators)
{
	const Line lines[] = {
		{"captive_portal_init", "the module starts"},
		{"[init captive portal] minor:125, name:CP_dev\n", "the control device is CP_dev"},
		{"[captive portal]if_device_write_cp: CAPTIVE_PORTAL iface=10 enable_value=7",
		 "wlan-2-3: mode internet-passes asked for"},
		{"[captive portal]if_device_write_cp: BLOCK_HTTPS iface=27 enable_value=2",
		 "mirel: block-https redirect asked for"},
		{"[captive portal]if_device_write_cp: CP_WALLED_GARDEN iface=99 enable_value=1",
		 "99: cp-walled-garden on asked for"},
		{"[captive portal]if_device_write_cp: CAPTIVE_PORTAL iface=-1 enable_value=-2",
		 "-1: mode 4294967294 asked for"},
		{"[captive portal]if_device_write_cp: LOGOUT_IP_NOTIFY iface=0 value=",
		 "wlan-1-1: logout address (none) asked for"},
		{"[gatekeeper] if_device_write: DEL_WHITELIST_MAC, gk_cmd.fiace = wlan-1-1  ",
		 "wlan-1-1: a client is to be deleted from white"},
		{"[gatekeeper] add mac= 02:00:5E:10:00:01 ", "client 02:00:5E:10:00:01 logs in"},
		{"[gatekeeper] if_device_write: ADD_MAPPING_OWE_VAP, 2430 gk_cmd.iface=wlan-1-1, "
		 "gk_cmd.owe_iface=wlan-1-14 ",
		 "wlan-1-14 is to be judged as wlan-1-1"},
		{"nf_cp_check: add to table_list, if_index=26  saddr=192.168.1.11 daddr=2.2.2.2  src port=51000 dest "
		 "port=80",
		 "social-login: connection of 192.168.1.11:51000 to 2.2.2.2:80 recorded, to be redirected"},
		{"nf_cp_check: add to table_list, if_index=24  saddr=192.168.1.11 daddr=203.0.113.10  src port=14535 "
		 "dest "
		 "port=20480",
		 "special-mark: connection of 192.168.1.11:51000 to 203.0.113.10:80 recorded, to be redirected"},
		{"[captive portal]dest ip is 2.2.2.2,daddr=2.2.2.2,dst port=21248,saddr=192.168.1.11,src port=51000",
		 "redirected to port 83: 192.168.1.11:51000, which asked for the social-login address"},
		{"[captive portal]dest ip is 2.2.2.2,daddr=192.168.1.1,dst port=443,saddr=192.168.1.11,src port=51000",
		 "redirected to port 84: 192.168.1.11:51000, which asked for the social-login address"},
		{"[nf_cp_change] in_name=(null) out_name=wlan-1-1 saddr=203.0.113.10 daddr=192.168.1.11 pass",
		 "wlan-1-1: passed as it is: 203.0.113.10 to 192.168.1.11"},
		{"DNS packets might be corrupt or fragmented: 00000000deadbeef + 12 > (____ptrval____)",
		 "a DNS answer is cut short or broken"},
		{"Get DNS response: www.example.org, is_match_wg=134217729",
		 "a name server answered for www.example.org, gardens wlan-1-1 mirel"},
		{"(1/2, is_match_wg=0)Qerey: a.example, Answer: , b.example, 203.0.113.10, 175177931 mod 1024=203, "
		 "ttl: 60",
		 "a.example is 203.0.113.10 for 60s, gardens none"},
		{"[203]IP=203.0.113.10, timeout=1700000042, is_match_wg=2, is_dump=1 (delete)",
		 "expires: 203.0.113.10, gardens wlan-1-2"},
		{"[203]IP=203.0.113.10, timeout=-5, is_match_wg=0, is_dump=0", "stays: 203.0.113.10, gardens none"},
		{"  match walled garden: 1-1 3-8 MIREL", "    gardens wlan-1-1 wlan-3-8 mirel"},
		{"  match walled garden:", "    gardens none"},
		{"summary_write [145]: iface(all\\x0a) is wrong!", "refused: the listing cannot select 'all\\x0a'"},
	};
	for (const Line &line : lines) {
		const auto decoded = decode_log_line(line.text);
		ASSERT_TRUE(decoded.has_value()) << line.text;
		EXPECT_EQ(decoded->sentence, line.sentence);
	}
}

TEST(CpctlLogLines, OfOthersAreLeftOut)
{
	for (const char *const line :
	     {"", "captive_portal_init2", "br0: port 1(wlan-1-1) entered forwarding state",
	      "total_ip_count=", "total_ip_count=x", "nf_cp_check: match walled garden, if_index=0 daddr=1.2.3",
	      "[gatekeeper] add mac= 02:00:5e:10:00:0z ",
	      "captive_portal: loading out-of-tree module taints kernel."}) {
		EXPECT_FALSE(decode_log_line(line).has_value()) << line;
	}
}

TEST(CpctlLogLines, HaveFieldsForPrograms)
{
	const auto decoded = decode_log_line("nf_cp_check: not match walled garden and drop https, if_index=0 "
					     "saddr=192.168.1.11 daddr=203.0.113.10");
	ASSERT_TRUE(decoded.has_value());
	EXPECT_EQ(decoded->event, "https-dropped");
	EXPECT_EQ(decoded->fields,
		  (LogFields{{"interface", "wlan-1-1"}, {"source", "192.168.1.11"}, {"destination", "203.0.113.10"}}));
}

} // namespace

} // namespace cpctl::test

// ---- What the core prints ----------------------------------------------------------------------------------------------------

namespace captive_portal::test
{

namespace
{

class LinesOfTheCore : public SummaryTest
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		machine.clock.set(1'000'000);
		EXPECT_EQ(machine.load(), 0);
	}

	template <typename Record> void send(int number, Record record)
	{
		static_cast<void>(command(machine, number, record));
	}

	// Every sub-command, for a row, a name that selects none and one that selects all.
	void send_every_command()
	{
		for (uint32_t sub_command = 0; sub_command < 40; ++sub_command) {
			for (const char *const name : {"wlan-1-1", "none", "all"}) {
				// These lose a client's node by a name that selects nothing.
				const bool loses = sub_command == ADD_WHITELIST_MAC ||
						   sub_command == ADD_GA_WHITELIST_MAC ||
						   sub_command == ADD_MAC_AUTH_FALLBACK;
				if (loses && std::string_view(name) != "wlan-1-1") {
					continue;
				}
				gk_cmd record{};
				record.cmd = sub_command;
				record.mac[0] = 2;
				set_text(record.iface, name);
				set_text(record.owe_iface, "wlan-1-14");
				send(GATEKEEPER_IOCTL_SET, record);
			}
			for (const int32_t row : {0, 27, 28, -1}) {
				cp_cmd record{};
				record.cmd = sub_command;
				record.iface = row;
				record.enable_value = 1;
				set_text(record.value, "192.0.2.1");
				send(CAPTIVE_PORTAL_IOCTL_SET, record);
				wg_cmd rules{};
				rules.cmd = sub_command;
				rules.iface = row;
				rules.enable_value = 1;
				rules.rule_number = row == 27 ? 25 : 2;
				rules.rules[0] = domain_rule("default.example");
				rules.rules[1] = domain_rule("a*b.example");
				send(WALLED_GARDEN_IOCTL_SET, rules);
			}
		}
	}

	// `level` makes them connections of their own.
	void send_frames(uint8_t level)
	{
		const FrameBuilder from_client = frame().from(client_of_wlan_1_1);
		for (const Host &server : {upstream_server, social_login, dns_filter, logout_server, access_point}) {
			for (const uint16_t port : {80, 443, 8080}) {
				const FrameBuilder syn = FrameBuilder(from_client)
								 .to(server)
								 .tcp(static_cast<uint16_t>(51000 + level), port)
								 .syn();
				for (const uint32_t mark :
				     {0U, 5200U, uint32_t{MARK_LOGOUT}, uint32_t{MARK_DNS_FILTER},
				      uint32_t{MARK_REPUTATION_FIRST}, uint32_t{MARK_MIREL_BLACK}}) {
					for (const char *const port_name : {"wlan-1-1", "eth0", "wlan-1-2"}) {
						static_cast<void>(pass_in(machine, syn, port_name, mark));
					}
				}
			}
		}
		static_cast<void>(pass_out(machine,
					   frame().from(upstream_server).to(client_of_wlan_1_1).tcp(7000, 51000).ack(),
					   "wlan-1-1"));
	}

	void send_answer(const Bytes &message)
	{
		static_cast<void>(pass_out(
			machine, frame().from(upstream_dns).to(client_of_wlan_1_1).udp(53, 40000).payload(message),
			"wlan-1-1"));
	}

	void send_answers(uint8_t level)
	{
		DnsMessage whole = answer_for("ab.example", 2);
		whole.pointer(12).a_record(60, 203, 0, level, 10);
		whole.name("other.example").a_record(60, 203, 0, 113, 11);
		for (size_t length = 1; length <= whole.size(); ++length) {
			send_answer({whole.bytes().begin(), whole.bytes().begin() + static_cast<ptrdiff_t>(length)});
		}
		send_answer(answer_for("default.example", 0));
		send_answer(answer_for("ab.example.b.example", 0));
		send_answer(DnsMessage().header(1, 0x8183).name("missing.example").question());
		send_answer(DnsMessage().header(1).pointer(12).question());
		DnsMessage dot_behind_the_end = answer_for("q.example", 1);
		dot_behind_the_end.label(63, 'x').label(63, 'y').label(63, 'z').pointer(12).a_record(60, 203, 0, 113,
												     14);
		send_answer(dot_behind_the_end);
		for (const size_t labels : {4, 5}) {
			DnsMessage long_name;
			long_name.header(1).name("q.example").question();
			for (size_t i = 0; i < labels; ++i) {
				long_name.label(63, 'x');
			}
			long_name.end_of_name().a_record(60, 203, 0, 113, 12);
			send_answer(long_name);
		}
	}

	void collect()
	{
		for (const LogLine &line : machine.log.take()) {
			const auto decoded = cpctl::decode_log_line(line.text);
			EXPECT_TRUE(decoded.has_value()) << line.text;
			if (decoded) {
				events_.emplace(decoded->event);
			}
		}
	}
	[[nodiscard]] const std::set<std::string> &events() const { return events_; }

private:
	std::set<std::string> events_;
};

TEST_F(LinesOfTheCore, AreAllRecognised)
{
	for (const uint8_t level : {0, 1, 2, 3}) {
		EXPECT_EQ(machine.ioctl(ENV_SET_DEBUG_LEVEL, level), 0);
		collect();
		send_every_command();
		collect();
		set_garden(machine, UPDATE_RULE, 0, 1,
			   {domain_rule("a*b.example"), domain_rule("x*.example"),
			    address_rule(logout_server.address, ipv4(255, 255, 255, 255))});
		set_garden(machine, UPDATE_DEFAULT_RULE, 0, 0, {domain_rule("default.example")});
		for (const uint32_t block : {0U, 1U, 2U}) {
			set_portal(machine, BLOCK_HTTPS, 0, block);
			send_frames(level);
			collect();
		}
		set_behavior(machine, "wlan-1-2", 9, 2);
		send_frames(level);
		send_answers(level);
		collect();
	}
	static_cast<void>(machine.compat_ioctl(ENV_SET_DEBUG_LEVEL, 3));
	const Bytes cut = DnsMessage().u8(9).raw("ab");
	std::array<char, 128> name = {};
	uint16_t length = 0;
	EXPECT_EQ(parse_dns_domain(cut.data(), cut.data(), &cut.back(), name.data(), &length, name.size()), nullptr);
	for (const int number : {CAPTIVE_PORTAL_IOCTL_SET, WALLED_GARDEN_IOCTL_SET, GATEKEEPER_IOCTL_SET}) {
		static_cast<void>(machine.ioctl(number, 0));
	}
	// The copy of the record can be had, the client's node cannot.
	machine.memory.fail_allocation(2);
	gk_cmd login{};
	login.cmd = ADD_LOGIN_MAC;
	set_text(login.iface, "wlan-1-1");
	send(GATEKEEPER_IOCTL_SET, login);
	machine.devices.put("wlan-1-3", {.mac = {}, .ipv4 = {}, .bridge = {}});
	machine.devices.put("wlan-1-4", {.mac = {}, .ipv4 = {}, .bridge = "br0", .bridge_unreachable = true});
	machine.devices.remove("wlan-1-5");
	for (const char *const port : {"wlan-1-3", "wlan-1-4", "wlan-1-5"}) {
		static_cast<void>(pass_in(machine,
					  frame().from(client_of_wlan_1_1).to(logout_server).tcp(51000, 80).syn(), port,
					  MARK_LOGOUT));
	}
	for (const char *const target : {"all", "mirel", "wlan-x", "wlan-9-9", "1.2.3.400", "none"}) {
		static_cast<void>(write(target));
	}
	static_cast<void>(read());
	machine.threads.advance(EXPIRY_PERIOD_TICKS);
	machine.clock.set(2'000'000);
	machine.threads.advance(EXPIRY_PERIOD_TICKS);
	collect();
	add(ipv4(10, 9, 8, 7), "a.example", 1);
	fill_cache();
	add(ipv4(10, 9, 8, 6), "full.example", 0);
	machine.log.clear();
	add(ipv4(10, 9, 8, 5), "full.example", 0);
	EXPECT_EQ(machine.unload(), 0);
	collect();
	machine.hooks.fail_next_registration(-12);
	machine.misc.fail_next_registration(-16);
	EXPECT_EQ(machine.load(), -16);
	collect();

	std::set<std::string> missing;
	for (const cpctl::LogDecoder &decoder : cpctl::log_decoders()) {
		if (!events().contains(std::string(decoder.event))) {
			missing.emplace(decoder.event);
		}
	}
	// Copies never fail by a negative number, and the parser is never called without its parts.
	EXPECT_EQ(missing, (std::set<std::string>{"record-unwritable", "garden-record-unwritable", "gateway-unwritable",
						  "client-record-unwritable", "gateway-unreadable", "dns-no-question",
						  "dns-no-answer", "dns-no-name", "unknown-question"}));
}

} // namespace

} // namespace captive_portal::test
