// SPDX-License-Identifier: GPL-2.0-only
// Answers of cpctl for programs, of the module's own core, against the schema that is installed with cpctl.
#include "tests/unit/cpctl_explain.h"

#include <cstdio>

#include <nlohmann/json.hpp>

#include "base/counters.h"
#include "captive_portal/gatekeeper.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

namespace
{

using Words = std::vector<std::string>;

struct Verdict {
	int code = -1;
	std::string said;
};

class CpctlJson : public CpctlExplain
{
protected:
	void TearDown() override
	{
		if (!answers_.empty()) {
			const Verdict verdict = validate(answers_);
			EXPECT_EQ(verdict.code, 0) << verdict.said;
		}
		CpctlExplain::TearDown();
	}

	// The answer of a command in one line, which -p gives in several; the schema's definition of that name is asked
	// about it at the end of the test.
	std::string json(const std::string &definition, const Words &words, int code = 0)
	{
		EXPECT_EQ(run(with("-p", words)), code) << err;
		const std::string pretty = out;
		EXPECT_EQ(run(with("-j", words)), code) << err;
		EXPECT_GT(std::ranges::count(pretty, '\n'), 1);
		EXPECT_EQ(std::ranges::count(out, '\n'), 1);
		EXPECT_EQ(nlohmann::ordered_json::parse(pretty), nlohmann::ordered_json::parse(out));
		hold_against(definition);
		return out.substr(0, out.size() - 1);
	}

	// The last answer, which is one line.
	void hold_against(const std::string &definition) { answers_ += definition + "\t" + out; }

	// What the validator says of lines of a definition, a tab, and an answer.
	Verdict validate(const std::string &answers)
	{
		const std::string command = CPCTL_VALIDATOR " '" CPCTL_SCHEMA "' '" + file_with(answers) + "' 2>&1";
		FILE *const pipe = popen(command.c_str(), "r");
		Verdict verdict;
		if (pipe == nullptr) {
			verdict.said = "no shell";
			return verdict;
		}
		char buffer[4096];
		for (size_t size = 0; (size = fread(buffer, 1, sizeof(buffer), pipe)) != 0;) {
			verdict.said.append(buffer, size);
		}
		verdict.code = pclose(pipe);
		return verdict;
	}

	static Words with(const char *option, Words words)
	{
		words.insert(words.begin(), option);
		return words;
	}

private:
	std::string answers_;
};

TEST_F(CpctlJson, ClientShow)
{
	(void)answer({"client", "add", "login", "02:00:5e:10:00:01", "wlan-2-3"});
	(void)answer({"client", "add", "mirel-black", "02:00:5e:10:00:02"});
	EXPECT_EQ(
		json("client_show", {"client", "show", "login", "wlan-2-3"}),
		R"({"table":"login","lists":[{"interface":"wlan-2-3","complete":true,"clients":["02:00:5e:10:00:01"]}]})");
	EXPECT_EQ(json("client_show", {"client", "show", "auth", "wlan-1-1"}),
		  R"({"table":"auth","lists":[{"interface":"wlan-1-1","complete":true,"clients":[]}]})");
	EXPECT_EQ(
		json("client_show", {"client", "show", "mirel-black"}),
		R"({"table":"mirel-black","lists":[{"interface":null,"complete":true,"clients":["02:00:5e:10:00:02"]}]})");
	const auto all = nlohmann::json::parse(json("client_show", {"client", "show", "login"}));
	ASSERT_EQ(all["lists"].size(), 24U);
	EXPECT_EQ(all["lists"][10]["interface"], "wlan-2-3");
	EXPECT_EQ(all["lists"][10]["clients"].size(), 1U);
}

TEST_F(CpctlJson, ClientShowOfAListThatIsTooLong)
{
	fill_list(ADD_LOGIN_MAC, GK_LIST_SLOTS + 1);
	const auto shown = [this] {
		return nlohmann::json::parse(json("client_show", {"client", "show", "login", "wlan-1-1"}))["lists"][0];
	};
	auto list = shown();
	EXPECT_EQ(list["complete"], true);
	EXPECT_EQ(list["clients"].size(), 1035U);
	EXPECT_EQ(list["clients"][1034], "02:00:00:00:04:0a");
	EXPECT_EQ(err, "");
	status_files_are_readable = false;
	list = shown();
	EXPECT_EQ(list["complete"], false);
	EXPECT_EQ(list["clients"].size(), 1034U);
	EXPECT_NE(err.find("may have more"), std::string::npos);
}

// The exit code and the message are those of the answer for people.
TEST_F(CpctlJson, ClientCheck)
{
	(void)answer({"client", "add", "login", "02:00:5e:10:00:01", "wlan-2-3"});
	EXPECT_EQ(json("client_check", {"client", "check", "login", "02:00:5E:10:00:01", "wlan-2-3"}),
		  R"({"table":"login","interface":"wlan-2-3","mac":"02:00:5e:10:00:01","listed":true})");
	EXPECT_EQ(err, "");
	EXPECT_EQ(json("client_check", {"client", "check", "mirel-white", "02:00:5e:10:00:01"}, 2),
		  R"({"table":"mirel-white","interface":null,"mac":"02:00:5e:10:00:01","listed":false})");
	EXPECT_EQ(err, "cpctl: 02:00:5e:10:00:01 is not in mirel-white\n");
}

TEST_F(CpctlJson, ClientCheckOfAListThatIsTooLong)
{
	fill_list(ADD_AUTH_MAC, GK_LIST_SLOTS + 1);
	EXPECT_EQ(json("client_check", {"client", "check", "auth", "02:00:5e:10:00:01", "wlan-1-1"}, 2),
		  R"({"table":"auth","interface":"wlan-1-1","mac":"02:00:5e:10:00:01","listed":false})");
	status_files_are_readable = false;
	EXPECT_EQ(json("client_check", {"client", "check", "auth", "02:00:5e:10:00:01", "wlan-1-1"}, 2),
		  R"({"table":"auth","interface":"wlan-1-1","mac":"02:00:5e:10:00:01","listed":null})");
}

TEST_F(CpctlJson, InterfaceShow)
{
	(void)answer({"interface", "set", "wlan-1-2", "mode", "drop-tcp", "block-https", "9", "garden", "on",
		      "disconnection", "pass-dhcp", "disconnected", "logout", "192.0.2.1"});
	(void)answer({"garden", "add", "wlan-1-2", "a.example"});
	(void)answer({"interface", "owe", "map", "wlan-1-15", "wlan-1-2"});
	(void)answer({"interface", "owe", "map", "wlan-3-14", "wlan-1-2"});
	const std::string shown =
		R"({"interfaces":[{"index":1,"name":"wlan-1-2","mark":5201,"mode":"drop-tcp","block_https":"9",)"
		R"("garden":true,"rules":1,"disconnection_behavior":"pass-dhcp","disconnection_status":"disconnected",)"
		R"("ap_address":"0.0.0.0","logout":"192.0.2.1","owe":["wlan-1-15","wlan-3-14"]}]})";
	EXPECT_EQ(json("interface_show", {"interface", "show", "wlan-1-2"}), shown);
	EXPECT_EQ(err, "");
	file_layer_answers = true;
	EXPECT_EQ(json("interface_show", {"interface", "show", "wlan-1-2"}), shown);
	EXPECT_EQ(nlohmann::json::parse(json("interface_show", {"interface", "show"}))["interfaces"].size(), 24U);
}

TEST_F(CpctlJson, InterfaceShowWhereTheStatusFileCannotBeRead)
{
	status_files_are_readable = false;
	EXPECT_EQ(json("interface_show", {"interface", "show", "wlan-3-8"}),
		  R"({"interfaces":[{"index":23,"name":"wlan-3-8","mark":5247,"mode":"off","block_https":"block",)"
		  R"("garden":false,"rules":0,"disconnection_behavior":"drop-all","disconnection_status":"connected",)"
		  R"("ap_address":"0.0.0.0","logout":null,"owe":[]}]})");
	EXPECT_NE(err.find("logout is unknown"), std::string::npos);
	file_layer_answers = true;
	EXPECT_EQ(json("interface_show", {"interface", "show", "wlan-3-8"}),
		  R"({"interfaces":[{"index":23,"name":"wlan-3-8","mark":5247,"mode":null,"block_https":null,)"
		  R"("garden":false,"rules":0,"disconnection_behavior":"drop-all","disconnection_status":"connected",)"
		  R"("ap_address":null,"logout":null,"owe":[]}]})");
	EXPECT_NE(err.find("FIGETBSZ"), std::string::npos);
}

TEST_F(CpctlJson, InterfaceOweShow)
{
	(void)answer({"interface", "owe", "map", "wlan-1-15", "wlan-2-1"});
	const auto owe = nlohmann::json::parse(json("interface_owe_show", {"interface", "owe", "show"}))["owe"];
	ASSERT_EQ(owe.size(), 9U);
	EXPECT_EQ(owe[0].dump(), R"({"interface":"","name":"wlan-1-14"})");
	EXPECT_EQ(owe[1].dump(), R"({"interface":"wlan-2-1","name":"wlan-1-15"})");
}

TEST_F(CpctlJson, GardenShow)
{
	(void)answer({"garden", "replace", "wlan-1-1", "on", "*.example.com", "10.1.2.0/24", "it's\"quoted\\.example"});
	EXPECT_EQ(
		json("garden_show", {"garden", "show", "wlan-1-1"}),
		R"({"name":"wlan-1-1","garden":true,"rules":["*.example.com","10.1.2.0/24","it's\"quoted\\.example"]})");
	EXPECT_EQ(json("garden_show", {"garden", "show", "mirel"}), R"({"name":"mirel","garden":false,"rules":[]})");
	(void)answer({"garden", "default", "add", "a.example"});
	EXPECT_EQ(json("garden_show", {"garden", "show", "default"}),
		  R"({"name":"default","garden":null,"rules":["a.example"]})");
}

TEST_F(CpctlJson, GardenCheck)
{
	EXPECT_EQ(json("garden_check", {"garden", "check", "wlan-1-1"}),
		  R"({"gardens":[{"name":"wlan-1-1","warnings":[]}]})");
	(void)run({"garden", "replace", "wlan-1-1", "on", "*example.com", "10.1.2.0/24", "10.1.2.7"});
	EXPECT_EQ(
		json("garden_check", {"garden", "check", "wlan-1-1"}, 2),
		R"({"gardens":[{"name":"wlan-1-1","warnings":[{"kind":"matches-more","rule":"*example.com","other":null,)"
		R"("names":["badexample.com"],"text":"'*example.com' opens 'badexample.com', too: for what is below a )"
		R"(name write '*.example.com'"},{"kind":"contained","rule":"10.1.2.7","other":"10.1.2.0/24","names":[],)"
		R"("text":"'10.1.2.7' opens nothing that '10.1.2.0/24' does not"}]}]})");
	EXPECT_EQ(err, "cpctl: 2 warnings: garden del takes a rule away, garden replace writes all of a garden anew\n");
	// One of each kind.
	(void)run({"garden", "default", "replace", "d.example"});
	(void)run({"garden", "replace", "wlan-2-1", "on", "d.example"});
	(void)run({"interface", "set", "wlan-2-1", "mode", "internet-passes"});
	EXPECT_EQ(
		json("garden_check", {"garden", "check", "wlan-2-1"}, 2),
		R"({"gardens":[{"name":"wlan-2-1","warnings":[{"kind":"other-rules","rule":null,"other":null,"names":[],)"
		R"("text":"the rules of mode-7 hold in the place of these while the interface is in mode internet-passes"},)"
		R"({"kind":"default-name","rule":"d.example","other":null,"names":[],"text":"'d.example' is among the )"
		R"(default names, which are open in every garden that is on"}]}]})");
	(void)run({"garden", "replace", "social-login", "on", "s.example"});
	(void)run({"garden", "replace", "mirel", "on", "*", "*example", "Shop.*", "a.example", "a.example", "2.2.2.2",
		   "0.0.0.0/0"});
	(void)run({"garden", "replace", "wlan-3-8", "on", "*.example", "social-login.example.com", "Www.example.net"});
	EXPECT_EQ(nlohmann::json::parse(json("garden_check", {"garden", "check"}, 2))["gardens"].size(), 29U);
}

TEST_F(CpctlJson, GatewayShow)
{
	EXPECT_EQ(json("gateway_show", {"gateway", "show"}), R"({"gateway":"0.0.0.0"})");
	(void)answer({"gateway", "set", "192.0.2.254"});
	EXPECT_EQ(json("gateway_show", {"gateway", "show"}), R"({"gateway":"192.0.2.254"})");
}

TEST_F(CpctlJson, Status)
{
	(void)json("status", {"status"});
	(void)answer({"interface", "set", "wlan-2-3", "mode", "7", "block-https", "redirect", "logout", "192.0.2.1",
		      "disconnection", "pass-all", "9"});
	(void)answer({"interface", "set", "mirel", "mode", "9"});
	(void)answer({"interface", "owe", "map", "wlan-1-15", "wlan-2-1"});
	(void)answer({"client", "add", "login", "02:00:5e:10:00:01", "wlan-2-3"});
	count(10, CP_REASON_DROP_ICMP);
	count(CP_COUNTER_ROW_OTHER, CP_REASON_DNS_ANSWER);
	const auto status = nlohmann::json::parse(json("status", {"status", "-s"}));
	EXPECT_EQ(status["interfaces"].size(), 28U);
	EXPECT_EQ(status["interfaces"][10]["clients"]["login"], 1);
	EXPECT_EQ(status["interfaces"][27]["mode"], "9");
	EXPECT_EQ(status["counters"].dump(), R"([{"interface":"wlan-2-3","reason":"icmp","value":1},)"
					     R"({"interface":"other","reason":"dns-answer","value":1}])");
}

TEST_F(CpctlJson, ExplainedFrames)
{
	ASSERT_EQ(run({"interface", "set", "wlan-1-1", "mode", "on"}), 0) << err;
	const auto explanation = nlohmann::json::parse(
		json("explain", {"explain", "dev", "wlan-1-1", "from", "02:11:01:01:01:00", "tcp", "192.168.100.61",
				 "203.0.113.10", "port", "80", "syn", "then", "out", "wlan-1-1", "reply"}));
	ASSERT_EQ(explanation["frames"].size(), 2U);
	EXPECT_EQ(explanation["frames"][0]["verdict"], "redirected");
	EXPECT_EQ(explanation["frames"][0]["hooks"][0]["counted"][0]["reason"], "marked-portal");
	EXPECT_EQ(explanation["frames"][1]["verdict"], "rewritten");
}

TEST_F(CpctlJson, CommandsWithoutAnAnswerRefuseTheOption)
{
	for (const Words &words :
	     {Words{"gateway", "set", "none"}, Words{"garden", "add", "wlan-1-1", "a.example"},
	      Words{"garden", "replace", "wlan-1-1", "on"}, Words{"client", "flush", "mirel-black"}, Words{"metrics"},
	      Words{"save"}, Words{"debug", "1"}}) {
		EXPECT_EQ(run(with("-j", words)), 1) << words.front();
		EXPECT_EQ(out, "");
		EXPECT_EQ(err, "cpctl: this command has no answer in JSON: leave -j and -p out\n");
	}
	EXPECT_EQ(openings, 0);
}

TEST_F(CpctlJson, CacheShowAndFollow)
{
	surroundings.wall_clock = [] { return 1'000'000; };
	EXPECT_EQ(json("cache_show", {"cache", "show"}), R"({"addresses":[]})");
	machine.clock.set(1'000'000);
	add(ipv4(192, 0, 2, 1), "a.example", 0x8000001, 60);
	EXPECT_EQ(json("cache_show", {"cache", "show"}),
		  R"({"addresses":[{"address":"192.0.2.1","timeout":1000060,"seconds_left":60,)"
		  R"("gardens":["wlan-1-1","mirel"],"names":["a.example"]}]})");
	int names = 0;
	surroundings.pause = [&names](std::chrono::milliseconds) {
		add(ipv4(192, 0, 2, 1), "n" + std::to_string(names++) + ".example");
		return true;
	};
	EXPECT_EQ(run({"-j", "cache", "follow", "--count", "1"}), 0) << err;
	EXPECT_EQ(out, R"({"event":"add","address":"192.0.2.1","name":"n0.example","gardens":["wlan-1-1","mirel"]})"
		       "\n");
	hold_against("cache_follow");
}

class OneLine : public cpctl::KernelLog
{
public:
	cpctl::KernelLogEvent next(cpctl::KernelLogRecord &record, std::chrono::milliseconds) override
	{
		record = {.level = 7, .facility = 0, .sequence = 1, .since_boot = {}, .text = "captive_portal_init"};
		return lines_++ == 0 ? cpctl::KernelLogEvent::record : cpctl::KernelLogEvent::interrupted;
	}

private:
	int lines_ = 0;
};

TEST_F(CpctlJson, Monitor)
{
	surroundings.kernel_log = [](cpctl::KernelLogStart) { return std::make_unique<OneLine>(); };
	EXPECT_EQ(json("monitor", {"monitor"}),
		  R"({"event":"load","microseconds":0,"sequence":1,"level":7,"sentence":"the module starts",)"
		  R"("fields":{},"line":"captive_portal_init"})");
}

// Of which nothing can be said.
class BareMachine : public cpctl::Machine
{
public:
	std::optional<std::string> read(const std::string &) override { return std::nullopt; }
	std::vector<std::string> list(const std::string &) override { return {}; }
	std::optional<std::string> link(const std::string &) override { return std::nullopt; }
	std::optional<cpctl::FileStatus> status(const std::string &) override { return std::nullopt; }
	std::vector<std::string> addresses(const std::string &) override { return {}; }
	cpctl::ProgramAnswer run(const std::vector<std::string> &) override { return {}; }
};

TEST_F(CpctlJson, Check)
{
	BareMachine bare;
	surroundings.machine = &bare;
	const auto answer = nlohmann::json::parse(json("check", {"check"}, 2));
	EXPECT_EQ(answer["findings"].size(), 2U);
	EXPECT_EQ(answer["not_looked_at"].size(), 6U);
	EXPECT_EQ(openings, 0);
}

// A mistake leaves the answer empty.
TEST_F(CpctlJson, FailuresAreText)
{
	EXPECT_EQ(run({"-j", "garden", "show", "wlan-1-9"}), 1);
	EXPECT_EQ(out, "");
	EXPECT_EQ(err.substr(0, 7), "cpctl: ");
}

// The schema and its validator are no formality.
TEST_F(CpctlJson, TheSchemaRefusesOtherAnswers)
{
	const Words wrong = {
		"gateway_show\t{}",
		"gateway_show\t{\"gateway\":\"192.0.2.256\"}",
		"gateway_show\t{\"gateway\":null}",
		"gateway_show\t{\"gateway\":\"192.0.2.1\",\"more\":1}",
		"garden_show\t{\"gateway\":\"192.0.2.1\"}",
		"garden_show\t{\"name\":\"wlan-1-9\",\"garden\":true,\"rules\":[]}",
		"garden_show\t{\"name\":\"wlan-1-1\",\"garden\":1,\"rules\":[]}",
		"explain\t{\"assumed\":[],\"frames\":[{}]}",
		"client_check\t{\"table\":\"wite\",\"interface\":null,\"mac\":\"02:00:5e:10:00:01\",\"listed\":true}",
		"client_check\t{\"table\":\"white\",\"interface\":\"\",\"mac\":\"02:00:5e:10:00:01\",\"listed\":true}",
		"client_check\t{\"table\":\"white\",\"interface\":null,\"mac\":\"02:00:5E:10:00:01\",\"listed\":true}",
	};
	std::string lines;
	for (const std::string &answer : wrong) {
		lines += answer + "\n";
	}
	const Verdict verdict = validate(lines);
	EXPECT_NE(verdict.code, 0);
	for (size_t line = 1; line <= wrong.size(); line++) {
		EXPECT_NE(verdict.said.find("line " + std::to_string(line) + ": "), std::string::npos) << verdict.said;
	}
	const Verdict right = validate("gateway_show\t{\"gateway\":\"192.0.2.1\"}\n");
	EXPECT_EQ(right.code, 0) << right.said;
}

} // namespace

} // namespace captive_portal::test
