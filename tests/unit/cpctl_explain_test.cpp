// SPDX-License-Identifier: GPL-2.0-only
// What cpctl says that the module would do with a frame, against what the module does with it: in each of these states each
// of these frames, through all hooks.
#include <utility>

#include "cpctl/explain/explanation.h"
#include "cpctl/explain/meanings.h"
#include "cpctl/reasons.h"
#include "tests/unit/cpctl_explain.h"

namespace captive_portal::test
{

namespace
{

std::vector<std::string> words_of(const std::string &line)
{
	std::istringstream stream(line);
	return {std::istream_iterator<std::string>(stream), {}};
}

// Commands of cpctl that lead to a state of the module.
struct State {
	const char *name;
	std::vector<const char *> commands;
};

const State states[] = {
	{"fresh", {}},
	{"on", {"interface set wlan-1-1 mode on"}},
	{"on with HTTPS passing", {"interface set wlan-1-1 mode on block-https pass"}},
	{"on with HTTPS redirected", {"interface set wlan-1-1 mode on block-https redirect"}},
	{"garden without rules", {"interface set wlan-1-1 mode on garden on"}},
	{"garden with rules",
	 {"interface set wlan-1-1 mode on",
	  "garden replace wlan-1-1 on *.example.com 198.51.100.0/24 203.0.113.10/255.0.255.255"}},
	{"garden of everything",
	 {"interface set wlan-1-1 mode on", "garden replace wlan-1-1 on 0.0.0.0/1 128.0.0.0/1"}},
	{"garden and HTTPS redirected",
	 {"interface set wlan-1-1 mode on block-https redirect", "garden replace wlan-1-1 on 198.51.100.0/24"}},
	{"internet passes", {"interface set wlan-1-1 mode internet-passes", "gateway set 192.168.1.254"}},
	{"internet passes with garden",
	 {"interface set wlan-1-1 mode internet-passes garden on", "garden replace mode-7 on 10.9.0.0/16"}},
	{"drop-tcp", {"interface set wlan-1-1 mode drop-tcp"}},
	{"mode 5", {"interface set wlan-1-1 mode 5"}},
	{"login", {"interface set wlan-1-1 mode on logout 1.2.3.4", "client add login 02:11:01:01:01:00 wlan-1-1"}},
	{"login without logout address",
	 {"interface set wlan-1-1 mode on", "client add login 02:11:01:01:01:00 wlan-1-1"}},
	{"auth", {"interface set wlan-1-1 mode on logout 1.2.3.4", "client add auth 02:11:01:01:01:00 wlan-1-1"}},
	{"white", {"interface set wlan-1-1 mode on logout 1.2.3.4", "client add white 02:11:01:01:01:00 wlan-1-1"}},
	{"ga-white", {"interface set wlan-1-1 mode on", "client add ga-white 02:11:01:01:01:00 wlan-1-1"}},
	{"fallback", {"interface set wlan-1-1 mode on", "client add mac-auth-fallback 02:11:01:01:01:00 wlan-1-1"}},
	{"login elsewhere", {"interface set wlan-1-1 mode on", "client add login 02:11:01:01:01:00 wlan-1-2"}},
	{"mirel black", {"mirel mode on", "client add mirel-black 02:11:01:01:01:00"}},
	{"mirel black with a garden",
	 {"mirel mode on", "client add mirel-black 02:11:01:01:01:00", "mirel garden replace on 198.51.100.0/24"}},
	{"mirel black in mode 7", {"mirel mode internet-passes", "client add mirel-black 02:11:01:01:01:00"}},
	{"mirel black and white",
	 {"mirel mode on", "interface set wlan-1-1 mode on", "client add mirel-white 02:11:01:01:01:00",
	  "client add mirel-black 02:11:01:01:01:00"}},
	{"mirel off", {"interface set wlan-1-1 mode on", "client add mirel-black 02:11:01:01:01:00"}},
	{"mirel black and login",
	 {"mirel mode on", "client add mirel-black 02:11:01:01:01:00", "client add login 02:11:01:01:01:00 wlan-1-1"}},
	{"disconnected, all dropped", {"interface set wlan-1-1 mode on disconnection drop-all disconnected"}},
	{"disconnected, all passes", {"interface set wlan-1-1 mode on disconnection pass-all disconnected"}},
	{"disconnected, DHCP passes", {"interface set wlan-1-1 mode on disconnection pass-dhcp disconnected"}},
	{"connected again", {"interface set wlan-1-1 mode on disconnection pass-dhcp connected"}},
	{"DNS filter", {"dns-filter on", "interface set wlan-1-1 mode on"}},
	{"companion", {"interface owe map wlan-1-14 wlan-1-1", "interface set wlan-1-1 mode on"}},
	{"all interfaces",
	 {"interface set wlan-1-1 mode on", "interface set wlan-2-3 mode on",
	  "interface set wlan-3-8 mode internet-passes"}},
};

// Addresses are those of the cast.
const char *const frames[] = {
	"tcp 192.168.1.11 203.0.113.10 port 80 sport 1000",
	"tcp 192.168.1.11 203.0.113.10 port 80 sport 1001 ack",
	"tcp 192.168.1.11 203.0.113.10 port 443 sport 1002",
	"tcp 192.168.1.11 203.0.113.10 port 22 sport 1003",
	"tcp 192.168.1.11 198.51.100.20 port 80 sport 1004",
	"tcp 192.168.1.11 198.51.100.20 port 443 sport 1005",
	"tcp 192.168.1.11 198.51.100.20 port 8080 sport 1006",
	"tcp 192.168.1.11 10.9.8.7 port 80 sport 1007",
	"tcp 192.168.1.11 10.9.8.7 port 443 sport 1008",
	"tcp 192.168.1.11 2.2.2.2 port 80 sport 1009",
	"tcp 192.168.1.11 2.2.2.2 port 443 sport 1010",
	"tcp 192.168.1.11 2.2.2.2 port 22 sport 1011",
	"tcp 192.168.1.11 4.4.4.4 port 80 sport 1012",
	"tcp 192.168.1.11 4.4.4.4 port 443 sport 1013",
	"tcp 192.168.1.11 4.4.4.4 port 53 sport 1014",
	"tcp 192.168.1.11 1.2.3.4 port 80 sport 1015",
	"tcp 192.168.1.11 1.2.3.4 port 7777 sport 1016",
	"tcp 192.168.1.11 0.0.0.0 port 80 sport 1017",
	"tcp 192.168.1.11 192.168.1.1 port 80 sport 1018",
	"tcp 192.168.1.11 192.168.1.1 port 82 sport 1019",
	"tcp 192.168.1.11 192.168.1.1 port 86 sport 1020",
	"tcp 192.168.1.11 192.168.1.1 port 10081 sport 1021",
	"tcp 192.168.1.11 192.168.1.1 port 20083 sport 1022",
	"tcp 192.168.1.11 192.168.1.254 port 80 sport 1023",
	"tcp 192.168.1.11 203.0.113.10 port 80 sport 1024 mark 5307",
	"tcp 192.168.1.11 203.0.113.10 port 443 sport 1025 mark 5323",
	"tcp 192.168.1.11 203.0.113.10 port 22 sport 1026 mark 5310",
	"tcp 192.168.1.11 203.0.113.10 port 80 sport 1027 mark 5304",
	"tcp 192.168.1.11 203.0.113.10 port 80 sport 1028 mark 1",
	"udp 192.168.1.11 203.0.113.53 port 53",
	"udp 192.168.1.11 203.0.113.10 port 443",
	"udp 203.0.113.10 192.168.1.11 sport 53 port 1",
	"dhcp",
	"icmp 192.168.1.11 203.0.113.10",
	"icmp 192.168.1.11 192.168.1.1",
	"ip 192.168.1.11 203.0.113.10 proto 47",
	"ip 192.168.1.11 10.9.8.7 proto 50 mark 5308",
	"arp",
	"ipv6",
};

const char *const places[] = {
	"dev wlan-1-1 from 02:11:01:01:01:00", "dev wlan-2-3 from 02:11:01:01:01:00",
	"dev eth0 from 02:33:00:00:00:01",     "dev wlan-1-14 from 02:11:01:01:01:00",
	"dev wlan-1-9 from 02:11:01:01:01:00", "dev wlanx from 02:11:01:01:01:00",
	"dev wlan-1-1 from 01:00:5e:00:00:01", "dev wlan-1-1 from 00:00:00:00:00:00",
};

using Counts = std::map<std::string, uint64_t>;

Counts counts_in(const std::string &text)
{
	Counts counts;
	for (const cpctl::StatusLine &line : cpctl::parse_status_lines(text)) {
		counts[line.text("interface") + " " + line.text("reason")] =
			static_cast<uint64_t>(line.number("value"));
	}
	return counts;
}

class ExplainedState : public CpctlExplain, public ::testing::WithParamInterface<State>
{
protected:
	ExplainedState()
	{
		for (const char *const command : GetParam().commands) {
			commands_.emplace_back(command);
		}
	}

	void SetUp() override
	{
		CpctlExplain::SetUp();
		for (const char *const odd : {"wlan-1-9", "wlan-1-14", "wlanx"}) {
			machine.devices.put(odd, {.mac = {0x02, 0xcc, 9, 0, 0, 0}, .bridge = "br0"});
		}
		for (const std::string &command : commands_) {
			(void)answer(words_of(command));
		}
	}

	cpctl::Explanation explain(const std::string &line)
	{
		const std::vector<cpctl::FrameRequest> requests = cpctl::parse_frames(words_of(line));
		const auto read = [this](const std::string &name) { return machine.status_text(name); };
		const std::unique_ptr<cpctl::ModuleCopy> copy = cpctl::make_module_copy();
		return cpctl::explain_frames(requests, cpctl::read_module_tables(read), devices_of_machine(machine),
					     *copy);
	}

	// The counts of the module that have grown since the last look.
	Counts newly_counted()
	{
		const Counts now = counts_in(machine.status_text("counters"));
		Counts grown;
		for (const auto &[name, value] : now) {
			if (value != counted_[name]) {
				grown[name] = value - counted_[name];
			}
		}
		counted_ = now;
		return grown;
	}

	// Lets the machine's module have the frame, and holds each step of the explanation against what it does.
	void expect_as_the_module(const cpctl::FrameExplanation &explained, std::optional<uint32_t> mark)
	{
		host::PacketBuffer packet(explained.before.frame);
		Counts counted;
		for (const cpctl::HookStep &step : explained.steps) {
			const bool leaves = step.hook == cpctl::Hook::reply_rewrite;
			packet.in_name = leaves ? std::nullopt : std::optional(explained.in);
			packet.out_name = leaves ? std::optional(explained.out) : std::nullopt;
			if (step.hook == cpctl::Hook::portal_check) {
				packet.mark = mark.value_or(packet.mark);
			}
			const bool accepted = host::run_hook(function_of(step.hook), packet) == CP_ACCEPT;
			EXPECT_EQ(step.run.accepted, accepted) << step.decision;
			EXPECT_EQ(step.mark_after, packet.mark) << step.decision;
			EXPECT_NE(step.decision, "");
			for (const cpctl::Count &count : step.run.counts) {
				++counted[cpctl::name_of_counted_row(count.row) + " " +
					  std::string(cpctl::reasons[count.reason].name)];
			}
		}
		EXPECT_EQ(explained.after.frame, packet.frame());
		EXPECT_EQ(explained.after.for_host, packet.type == host::PacketType::host);
		EXPECT_EQ(counted, newly_counted());
	}

private:
	static host::HookFunction function_of(cpctl::Hook hook)
	{
		switch (hook) {
		case cpctl::Hook::gatekeeper:
			return ebt_gate_keeper;
		case cpctl::Hook::portal_check:
			return nf_cp_check;
		case cpctl::Hook::reply_rewrite:
			break;
		}
		return nf_cp_change;
	}

	std::vector<std::string> commands_;
	Counts counted_;
};

TEST_P(ExplainedState, HasEachFrameJudgedAsTheModuleJudgesIt)
{
	uint16_t port = 2000;
	for (const std::string place : places) {
		std::string line = place + " out wlan-1-2";
		std::vector<std::optional<uint32_t>> marks;
		for (std::string frame : frames) {
			// A port of its own: a connection that is recorded already is not recorded again.
			if (const size_t at = frame.find("sport 1"); at != std::string::npos) {
				frame.replace(at + 6, 4, std::to_string(port++));
			}
			const size_t mark = frame.find("mark ");
			marks.push_back(mark != std::string::npos ? std::optional(static_cast<uint32_t>(
									    std::stoul(frame.substr(mark + 5)))) :
								    std::nullopt);
			line += (marks.size() == 1 ? " " : " then ") + frame;
		}
		const cpctl::Explanation explanation = explain(line);
		ASSERT_EQ(explanation.frames.size(), std::size(frames));
		for (size_t i = 0; i < std::size(frames) && !::testing::Test::HasFailure(); i++) {
			SCOPED_TRACE(std::string(frames[i]) + " " + place);
			expect_as_the_module(explanation.frames[i], marks[i]);
		}
	}
}

TEST_P(ExplainedState, HasRepliesRewrittenAsTheModuleRewritesThem)
{
	uint16_t port = 3000;
	for (const std::string frame :
	     {"203.0.113.10 port 80", "198.51.100.20 port 443", "2.2.2.2 port 80", "4.4.4.4 port 443",
	      "1.2.3.4 port 80", "1.2.3.4 port 7777", "203.0.113.10 port 80 mark 5307"}) {
		const std::string request = "dev wlan-1-1 from 02:11:01:01:01:00 tcp 192.168.1.11 " + frame +
					    " sport " + std::to_string(port++);
		SCOPED_TRACE(request);
		if (explain(request).frames[0].verdict != cpctl::Verdict::redirected) {
			continue;
		}
		const cpctl::Explanation explanation =
			explain(request + " then reply then reply ack then reply fin-ack then reply ack");
		ASSERT_EQ(explanation.frames.size(), 5U);
		const bool reputation = frame.ends_with("5307");
		// The logout page is on any port, but only web ports' connections are recorded.
		const size_t rewritten = frame.ends_with("7777") ? 0 : 3;
		expect_as_the_module(explanation.frames[0], reputation ? std::optional(5307U) : std::nullopt);
		for (size_t i = 1; i < 5; i++) {
			expect_as_the_module(explanation.frames[i], {});
			EXPECT_EQ(explanation.frames[i].verdict,
				  i <= rewritten ? cpctl::Verdict::rewritten : cpctl::Verdict::passed);
		}
	}
}

std::string name_of_state(const ::testing::TestParamInfo<State> &info)
{
	std::string name;
	std::ranges::copy_if(std::string(info.param.name), std::back_inserter(name),
			     [](unsigned char sign) { return std::isalnum(sign) != 0; });
	return name;
}

INSTANTIATE_TEST_SUITE_P(Each, ExplainedState, ::testing::ValuesIn(states), name_of_state);

} // namespace

} // namespace captive_portal::test
