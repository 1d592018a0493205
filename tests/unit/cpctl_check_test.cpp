// SPDX-License-Identifier: GPL-2.0-only
// cpctl check on machines that the test describes: each finding with what causes it and without.
#include <functional>
#include <set>

#include <nlohmann/json.hpp>

#include "cpctl/machine.h"
#include "cpctl/nft_ruleset.h"
#include "tests/unit/cpctl_test.h"

namespace cpctl::test
{

namespace
{

using Names = std::vector<std::string>;

// A machine as it is described: nothing else is there.
class DescribedMachine : public Machine
{
public:
	std::optional<std::string> read(const std::string &path) override { return found(files, path); }
	Names list(const std::string &path) override { return found(directories, path).value_or(Names()); }
	std::optional<std::string> link(const std::string &path) override { return found(links, path); }
	std::optional<FileStatus> status(const std::string &path) override { return found(states, path); }
	Names addresses(const std::string &interface) override { return found(ipv4, interface).value_or(Names()); }
	ProgramAnswer run(const Names &words) override
	{
		std::string line;
		for (const std::string &word : words) {
			line += (line.empty() ? "" : " ") + word;
		}
		asked.insert(words.front());
		if (absent.contains(words.front())) {
			return {};
		}
		return found(answers, line).value_or(ProgramAnswer{.installed = true, .status = 0});
	}

	std::map<std::string, std::string> files;
	std::map<std::string, Names> directories;
	std::map<std::string, std::string> links;
	std::map<std::string, FileStatus> states;
	std::map<std::string, Names> ipv4;
	std::map<std::string, ProgramAnswer> answers;
	std::set<std::string> absent;
	std::set<std::string> asked;

private:
	template <typename Value>
	static std::optional<Value> found(const std::map<std::string, Value> &values, const std::string &key)
	{
		const auto value = values.find(key);
		return value == values.end() ? std::nullopt : std::optional(value->second);
	}
};

constexpr const char *module_line = "module format=1 debug_level=1 dns_filter=0\n";
// A row of "status", as far as the check looks.
struct Row {
	std::string name = "wlan-1-1";
	int mode = 0;
	int block_https = 1;
	int garden = 0;
	std::string logout = {};
};
std::string line_of(const Row &row)
{
	return "interface index=0 name=" + row.name +
	       " http_port=10081 https_port=10444 mode=" + std::to_string(row.mode) +
	       " block_https=" + std::to_string(row.block_https) + " logout=" + row.logout +
	       " garden=" + std::to_string(row.garden) + (row.name.starts_with("wlan") ? " login=0" : "") + "\n";
}

constexpr const char *tcp_head = "  sl  local_address rem_address   st tx_queue rx_queue\n";
// A socket of /proc/net/tcp: 192.168.100.1 is 0164A8C0 there.
std::string socket(const std::string &address, const std::string &port, const std::string &state = "0A")
{
	return "   0: " + address + ":" + port + " 00000000:0000 " + state + " 00000000:00000000\n";
}
// Ports 83 and 84, to which requests to 2.2.2.2 are always sent.
const std::string social_login = socket("00000000", "0053") + socket("00000000", "0054");

class CpctlCheck : public ::testing::Test
{
protected:
	// An access point with nothing wrong: two wireless ports and an uplink, the portal on, HTTPS let through, its service there.
	CpctlCheck()
	{
		machine.directories = {
			{"/sys/module/captive_portal", {"refcnt"}},
			{"/sys/class/net/", {"br0", "lo", "uplink0", "wlan-1-1", "wlan-1-14"}},
			{"/sys/class/net/br0", {"address", "bridge", "brif"}},
			{"/sys/class/net/br0/bridge", {"nf_call_iptables"}},
			{"/sys/class/net/br0/brif", {"uplink0", "wlan-1-1", "wlan-1-14"}},
		};
		for (const char *const port : {"uplink0", "wlan-1-1", "wlan-1-14"}) {
			machine.links["/sys/class/net/" + std::string(port) + "/master"] = "br0";
			machine.answers["ethtool -k " + std::string(port)] = {
				.installed = true, .status = 0, .text = "rx-checksumming: on\nhw-tc-offload: off\n"};
			machine.answers["ip -o link show dev " + std::string(port)] = {
				.installed = true,
				.status = 0,
				.text = "3: " + std::string(port) + ": <UP> mtu 1500\n"};
		}
		machine.states["/dev/CP_dev"] = {.is_character_device = true, .mode = 0600};
		machine.ipv4["br0"] = {"192.168.100.1"};
		machine.files = {
			{"/proc/net/tcp", tcp_head + socket("0164A8C0", "2761") + social_login},
			{"/proc/net/tcp6", tcp_head},
			{"/proc/sys/net/bridge/bridge-nf-call-iptables", "0\n"},
			{"/sys/class/net/br0/bridge/nf_call_iptables", "0\n"},
		};
		for (const char *const name : {"status", "clients", "garden", "counters", "cache"}) {
			status_files[name] = "";
		}
		status_files["status"] = module_line + line_of({.mode = 1, .block_https = 0});
	}

	int run(const Names &words = {"check"})
	{
		std::ostringstream out_stream;
		std::ostringstream err_stream;
		Surroundings surroundings;
		surroundings.machine = &machine;
		const auto read = [this](const std::string &name) {
			if (!status_files.contains(name)) {
				throw Failure(ExitCode::unavailable, name + ": permission denied");
			}
			return status_files.at(name);
		};
		const ExitCode code = run_command_line(words, {{}, read, surroundings}, out_stream, err_stream);
		out = out_stream.str();
		err = err_stream.str();
		return static_cast<int>(code);
	}

	void expect_nothing_found()
	{
		EXPECT_EQ(run(), 0);
		EXPECT_EQ(out, "nothing found\n");
		EXPECT_EQ(err, "");
	}
	// Exactly this.
	void expect_found(const std::string &lines, const std::string &count = "1 thing needs a look")
	{
		EXPECT_EQ(run(), 2);
		EXPECT_EQ(out, lines);
		EXPECT_EQ(err, "cpctl: " + count + "\n");
	}
	void nft(const std::string &ruleset)
	{
		machine.answers["nft list ruleset"] = {.installed = true, .status = 0, .text = ruleset};
	}

	DescribedMachine machine;
	std::map<std::string, std::string> status_files;
	std::string out;
	std::string err;
};

TEST_F(CpctlCheck, FindsNothingWhereAllIsAsItShouldBe)
{
	expect_nothing_found();
	EXPECT_EQ(machine.asked, (std::set<std::string>{"bridge", "ebtables-save", "ethtool", "ip", "ip6tables-save",
							"iptables-save", "nft", "tc"}));
}

// ---- The module --------------------------------------------------------------------------------------------------------------

TEST_F(CpctlCheck, FindsThatTheModuleIsNotLoaded)
{
	machine.directories.erase("/sys/module/captive_portal");
	status_files.clear();
	expect_found("captive_portal: the module is not loaded, so every client passes: modprobe captive_portal\n"
		     "not looked at: services on redirect ports: the module does not tell which it needs\n");
}

TEST_F(CpctlCheck, FindsADeviceThatIsMissing)
{
	machine.states.clear();
	expect_found("/dev/CP_dev: there is no such device, so nobody can command the module: start udev, or mount "
		     "devtmpfs\n");
	machine.states["/dev/other"] = {.is_character_device = true, .mode = 0660};
	EXPECT_EQ(run({"-d", "/dev/other", "check"}), 0) << out;
}

TEST_F(CpctlCheck, FindsADeviceThatIsNone)
{
	machine.states["/dev/CP_dev"] = {.is_character_device = false, .mode = 0600};
	expect_found(
		"/dev/CP_dev: this is no device, but a file in its place: rm /dev/CP_dev, and load the module again\n");
}

TEST_F(CpctlCheck, FindsADeviceThatEverybodyMayOpen)
{
	for (const uint32_t mode : {0602U, 0604U, 0666U}) {
		machine.states["/dev/CP_dev"].mode = mode;
		expect_found(
			"/dev/CP_dev: everybody may open it, and so admit clients and keep the daemon out: chmod 0600 "
			"/dev/CP_dev, and look at the udev rules\n");
	}
	machine.states["/dev/CP_dev"].mode = 0660;
	expect_nothing_found();
}

TEST_F(CpctlCheck, FindsStatusFilesThatCannotBeRead)
{
	status_files.erase("counters");
	expect_found(
		"counters: this status file cannot be read: counters: permission denied: run cpctl as root, with the "
		"module that it came with\n");
}

// ---- The bridge --------------------------------------------------------------------------------------------------------------

TEST_F(CpctlCheck, FindsThatThereIsNoBridge)
{
	machine.directories.erase("/sys/class/net/br0");
	expect_found(
		"br0: there is no such bridge, so nobody is redirected: ip link add br0 type bridge, and give it an "
		"address and ports\n");
}

TEST_F(CpctlCheck, FindsABridgeThatIsNone)
{
	machine.directories.erase("/sys/class/net/br0/bridge");
	expect_found("br0: is no bridge: make a bridge of that name\n");
}

TEST_F(CpctlCheck, FindsABridgeWithoutAddress)
{
	machine.ipv4.clear();
	expect_found(
		"br0: has no IPv4 address, so clients are not sent to the portal: ip address add ADDRESS/LENGTH dev "
		"br0\n");
}

TEST_F(CpctlCheck, FindsInterfacesThatAreNoPorts)
{
	machine.links.erase("/sys/class/net/wlan-1-1/master");
	expect_found("wlan-1-1: is no port of a bridge, so its clients pass the portal by: ip link set wlan-1-1 master "
		     "br0\n");
	machine.links["/sys/class/net/wlan-1-1/master"] = "br1";
	expect_found("wlan-1-1: is a port of br1, while clients are sent to the address of br0: ip link set wlan-1-1 "
		     "master br0\n");
	machine.links["/sys/class/net/wlan-1-1/master"] = "br0";
	machine.links.erase("/sys/class/net/wlan-1-14/master");
	expect_found(
		"wlan-1-14: is no port of a bridge, so its clients pass the portal by: ip link set wlan-1-14 master "
		"br0\n");
}

TEST_F(CpctlCheck, LooksAtWirelessInterfacesAlone)
{
	machine.links.erase("/sys/class/net/uplink0/master");
	machine.directories["/sys/class/net/"].insert(machine.directories["/sys/class/net/"].end(),
						      {"wlan-1-9", "wlan-4-1", "wlan0"});
	expect_nothing_found();
}

TEST_F(CpctlCheck, FindsPortsThatTheModuleDropsOrTakesForOthers)
{
	machine.directories["/sys/class/net/"] = {"br0", "lo", "uplink0", "wlan-1-1", "wlan-1-14", "wlan-1-9", "wlan0"};
	expect_nothing_found();
	machine.links["/sys/class/net/wlan0/master"] = "br0";
	expect_found(
		"wlan0: begins with \"wlan\" and is no interface of the module, which drops the IP frames of this "
		"port without a word: ip link set wlan0 name NAME, one of wlan-1-1 to wlan-3-8, or a name that does "
		"not begin so\n");
	// A port of anything else than a bridge has no frames of its own.
	machine.links["/sys/class/net/wlan0/master"] = "bond0";
	expect_nothing_found();
	machine.links["/sys/class/net/wlan-1-9/master"] = "br0";
	expect_found(
		"wlan-1-9: the module takes this port for wlan-2-1, with the settings and clients of that: ip link set "
		"wlan-1-9 name NAME, one of wlan-1-1 to wlan-3-8 that is free\n");
}

TEST_F(CpctlCheck, FindsTheBridgesPassThrough)
{
	machine.files["/proc/sys/net/bridge/bridge-nf-call-iptables"] = "1\n";
	const std::string of_all =
		"bridge-nf-call-iptables: bridged frames go through the rules of iptables, which see "
		"redirected packets too: sysctl -w net.bridge.bridge-nf-call-iptables=0, unless you want "
		"that\n";
	expect_found(of_all);
	machine.files["/sys/class/net/br0/bridge/nf_call_iptables"] = "1\n";
	expect_found(of_all);
	machine.files["/proc/sys/net/bridge/bridge-nf-call-iptables"] = "0\n";
	expect_found("br0: bridged frames go through the rules of iptables, which see redirected packets too: echo 0 "
		     ">/sys/class/net/br0/bridge/nf_call_iptables, unless you want that\n");
	machine.files["/sys/class/net/br0/bridge/nf_call_iptables"] = "0\n";
	machine.files["/proc/sys/net/bridge/bridge-nf-call-arptables"] = "1\n";
	machine.files["/proc/sys/net/bridge/bridge-nf-call-ip6tables"] = "1\n";
	EXPECT_EQ(run(), 2);
	EXPECT_NE(out.find("bridge-nf-call-ip6tables: "), std::string::npos);
	EXPECT_NE(out.find("bridge-nf-call-arptables: "), std::string::npos);
}

// ---- Fast paths ----------------------------------------------------------------------------------------------------------------

std::string flow_table(const std::string &devices, const std::string &flags = "")
{
	return "table inet routed {\n\tflowtable fast {\n\t\thook ingress priority filter\n\t\tdevices = { " + devices +
	       " }\n" + flags +
	       "\t}\n\n\tchain forward {\n\t\ttype filter hook forward priority filter; policy accept;\n" +
	       "\t\tip protocol tcp flow add @fast\n\t}\n}\n";
}

TEST_F(CpctlCheck, FindsFlowTablesWithPorts)
{
	nft(flow_table("eth7, wlan-1-1"));
	expect_found(
		"wlan-1-1: the flow table 'inet routed fast' carries its connections past the portal, also after a "
		"logout: name br0 among the flow table's devices, and not the port\n");
	nft(flow_table("\"uplink0\""));
	EXPECT_EQ(run(), 2);
	EXPECT_EQ(out.substr(0, 9), "uplink0: ");
	nft(flow_table("br0, eth7"));
	expect_nothing_found();
}

TEST_F(CpctlCheck, FindsHardwareThatTakesTheBridgesConnections)
{
	nft(flow_table("br0, eth7", "\t\tflags offload\n"));
	expect_found(
		"br0: the flow table 'inet routed fast' has hardware carry connections past the portal: leave 'flags "
		"offload' out\n");
	machine.answers["ethtool -k uplink0"].text = "hw-tc-offload: on\n";
	nft("");
	expect_found("uplink0: its hardware may forward frames that the portal never sees: ethtool -K uplink0 "
		     "hw-tc-offload off\n");
}

TEST_F(CpctlCheck, FindsASwitchChipThatForwards)
{
	machine.answers["bridge fdb show br br0"] = {.installed = true,
						     .status = 0,
						     .text = "02:00:00:00:00:01 dev wlan-1-1 master br0 permanent\n"
							     "02:00:00:00:00:02 dev uplink0 vlan 1 offload master br0\n"
							     "02:00:00:00:00:03 dev uplink0 offload master br0\n"
							     "02:00:00:00:00:04 dev eth7 offload master br1\n"};
	expect_found(
		"uplink0: a switch chip forwards frames to and from it: switch bridge offload off for this port, as "
		"its vendor says\n");
}

TEST_F(CpctlCheck, FindsWhatTakesFramesAtTheIngressOfAWirelessPort)
{
	machine.answers["tc filter show dev wlan-1-1 ingress"] = {
		.installed = true,
		.status = 0,
		.text = "filter protocol all pref 49152 matchall chain 0\n"
			"\taction order 1: mirred (Egress Redirect to device uplink0) stolen\n"};
	expect_found(
		"wlan-1-1: traffic control redirects frames before the bridge has them: tc filter del dev wlan-1-1 "
		"ingress\n");
	machine.answers["tc filter show dev wlan-1-1 ingress"].text = "\taction order 1:  police 0x1 rate 1Mbit\n";
	expect_nothing_found();
	machine.answers["ip -o link show dev wlan-1-1"].text = "3: wlan-1-1: <UP> mtu 1500 xdp qdisc noqueue\n";
	expect_found(
		"wlan-1-1: an XDP program gets frames before the bridge has them: ip link set dev wlan-1-1 xdp off\n");
	machine.answers["ip -o link show dev wlan-1-1"].text = "3: wlan-1-1: <UP> mtu 1500\n";
	const std::string chain =
		"table netdev early {\n\tchain in {\n\t\ttype filter hook ingress device \"wlan-1-1\" "
		"priority filter; policy accept;\n";
	nft(chain + "\t\tfwd to \"uplink0\"\n\t}\n}\n");
	expect_found(
		"wlan-1-1: the chain 'netdev early in' forwards frames before the bridge has them: delete that rule, "
		"or except clients that are not logged in\n");
	nft(chain + "\t\tip saddr 192.0.2.1 drop\n\t}\n}\n");
	expect_nothing_found();
}

// ---- Marks -----------------------------------------------------------------------------------------------------------------

std::string marking_chain(const std::string &mark)
{
	return "table bridge shaping {\n\tchain forward {\n\t\ttype filter hook forward priority 0; policy accept;\n"
	       "\t\tip saddr 192.0.2.1 meta mark set " +
	       mark + " accept\n\t}\n}\n";
}

TEST_F(CpctlCheck, FindsRulesThatSetTheModulesMarks)
{
	for (const auto &[mark, meaning] : std::initializer_list<std::pair<const char *, const char *>>{
		     {"0x00001450", "5200, by which the module knows a client of wlan-1-1 that is not logged in"},
		     {"5247", "5247, by which the module knows a client of wlan-3-8 that is not logged in"},
		     {"5302", "5302, by which the module knows a client on the MIREL black list"},
		     {"5304", "5304, by which the module knows a client that asks for the logout address"},
		     {"5324", "5324, by which the module knows a client that asks for the DNS filter's address"}}) {
		nft(marking_chain(mark));
		expect_found("nft bridge shaping forward: a rule sets mark " + std::string(meaning) +
			     ": choose a mark outside 5200 to 5324\n");
	}
}

TEST_F(CpctlCheck, LeavesOtherMarksAndTheReputationMarksAlone)
{
	// The services of the reputation marks 5307 and 5323.
	machine.files["/proc/net/tcp"] += socket("00000000", "0401") + socket("00000000", "0412") +
					  socket("00000000", "0411") + socket("00000000", "0422");
	for (const char *const mark :
	     {"5199", "5208", "5301", "5307", "5323", "5325", "0x1", "ct mark", "meta mark or 0x1450"}) {
		nft(marking_chain(mark));
		expect_nothing_found();
	}
	nft("table ip x {\n\tchain y {\n\t\tmeta mark 0x00001450 accept\n\t\tct mark set 0x00001450\n\t}\n}\n");
	expect_nothing_found();
}

TEST_F(CpctlCheck, FindsMarksOfTheOtherPrograms)
{
	const auto set_rules = [this](const std::string &program, const std::string &rules) {
		machine.answers[program] = {.installed = true, .status = 0, .text = rules};
	};
	set_rules("iptables-save", "*mangle\n-A PREROUTING -i br0 -j MARK --set-xmark 0x1450/0xffffffff\nCOMMIT\n");
	expect_found("iptables-save: a rule sets mark 5200, by which the module knows a client of wlan-1-1 that is not "
		     "logged in: choose a mark outside 5200 to 5324\n");
	set_rules("iptables-save", "-A PREROUTING -m mark --mark 0x1450 -j ACCEPT\n");
	set_rules("ebtables-save", "-A PREROUTING -j mark --mark-set 0x14b8 --mark-target ACCEPT\n");
	expect_found(
		"ebtables-save: a rule sets mark 5304, by which the module knows a client that asks for the logout "
		"address: choose a mark outside 5200 to 5324\n");
	set_rules("ebtables-save", "-A PREROUTING -j mark --mark-set 0x1 --mark-target ACCEPT\n");
	set_rules("ip6tables-save", "-A PREROUTING -j MARK --set-mark 5200\n");
	EXPECT_EQ(run(), 2);
	EXPECT_EQ(out.substr(0, 16), "ip6tables-save: ");
}

// ---- Services --------------------------------------------------------------------------------------------------------------

TEST_F(CpctlCheck, FindsThatNobodyListens)
{
	const std::string found =
		"wlan-1-1: nobody listens on port 10081, to which web requests before login are sent: start "
		"the portal's web service there\n";
	const std::string others = tcp_head + social_login;
	for (const std::string &sockets : {std::string(), socket("0164A8C0", "2761", "01"), socket("0100007F", "2761"),
					   socket("0164A8C0", "2762")}) {
		machine.files["/proc/net/tcp"] = others + sockets;
		expect_found(found);
	}
	machine.files["/proc/net/tcp"] = others + socket("00000000", "2761");
	expect_nothing_found();
	machine.files["/proc/net/tcp"] = others;
	machine.files["/proc/net/tcp6"] = tcp_head + socket("00000000000000000000000000000000", "2761");
	expect_nothing_found();
	machine.files["/proc/net/tcp6"] = tcp_head + socket("00000000000000000000000001000000", "2761");
	expect_found(found);
}

// All combinations are held against the core by a test of redirect_ports().
TEST_F(CpctlCheck, KnowsWhichPortsAreNeeded)
{
	struct Case {
		Row row;
		std::vector<int> ports;
	};
	machine.files["/proc/net/tcp"] = tcp_head + social_login;
	for (const Case &rows :
	     {Case{{.mode = 0, .block_https = 2}, {}}, Case{{.mode = 0, .logout = "192.0.2.1"}, {82}},
	      Case{{.mode = 8, .block_https = 2}, {}}, Case{{.mode = 1, .block_https = 0}, {10081}},
	      Case{{.mode = 1, .block_https = 1}, {10081, 10444}},
	      Case{{.mode = 1, .block_https = 1, .garden = 1}, {10081}},
	      Case{{.mode = 1, .block_https = 2, .garden = 1}, {10081, 10444}},
	      Case{{.mode = 9, .block_https = 5}, {10081, 10444}}, Case{{.mode = 7, .block_https = 2}, {90, 91}},
	      Case{{.mode = 7, .block_https = 1, .garden = 1}, {90}},
	      Case{{.mode = 1, .block_https = 0, .logout = "192.0.2.1"}, {10081, 82}},
	      Case{{.name = "mirel", .mode = 1, .block_https = 0}, {86, 87}},
	      Case{{.name = "mirel", .mode = 7, .block_https = 2, .garden = 1}, {86}},
	      Case{{.name = "mirel", .mode = 8}, {}},
	      Case{{.name = "mode-7", .mode = 1, .block_https = 2, .logout = "192.0.2.1"}, {}}}) {
		const std::string line = line_of(rows.row);
		status_files["status"] = module_line + line;
		EXPECT_EQ(run(), rows.ports.empty() ? 0 : 2) << line;
		EXPECT_EQ(std::ranges::count(out, '\n'), std::max<size_t>(1, rows.ports.size())) << line << out;
		for (const int port : rows.ports) {
			EXPECT_NE(out.find("nobody listens on port " + std::to_string(port) + ","), std::string::npos)
				<< line << out;
		}
	}
}

TEST_F(CpctlCheck, KnowsThePortsOfReputationMarks)
{
	nft("table bridge reputation {\n\tchain in {\n\t\ttype filter hook prerouting priority -315; policy accept;\n"
	    "\t\tip daddr 203.0.113.30 meta mark set 0x000014bd\n\t\tip daddr 203.0.113.31 meta mark set 0x000014bd\n"
	    "\t}\n}\ntable inet other {\n\tchain in {\n\t\tmeta mark set 0x000014be\n\t}\n}\n");
	expect_found(
		"nft bridge reputation in: nobody listens on port 1027, to which web requests with its reputation "
		"mark are sent: start the portal's web service there\n"
		"nft bridge reputation in: nobody listens on port 1044, to which HTTPS requests with its reputation "
		"mark are sent: start the portal's web service there\n",
		"2 things need a look");
}

TEST_F(CpctlCheck, KnowsThePortsThatNoInterfaceHas)
{
	machine.files["/proc/net/tcp"] = tcp_head + socket("0164A8C0", "2761");
	EXPECT_EQ(run(), 0);
	status_files["status"] = "module format=1 debug_level=1 dns_filter=1\n";
	expect_found(
		"dns-filter: nobody listens on port 88, to which web requests to 4.4.4.4 are sent: start the portal's "
		"web service there\n"
		"dns-filter: nobody listens on port 89, to which HTTPS requests to 4.4.4.4 are sent: start the "
		"portal's web "
		"service there\n",
		"2 things need a look");
}

TEST_F(CpctlCheck, MissesOneHalfOfASocialLogin)
{
	for (const auto &[there, missing] :
	     {std::pair{"0053", "84, to which HTTPS"}, std::pair{"0054", "83, to which web"}}) {
		machine.files["/proc/net/tcp"] = tcp_head + socket("0164A8C0", "2761") + socket("00000000", there);
		expect_found(std::string("social-login: nobody listens on port ") + missing +
				     " requests to 2.2.2.2 are sent: start the portal's web service there\n",
			     "1 thing needs a look");
	}
}

// ---- What is not looked at -----------------------------------------------------------------------------------------------------

TEST_F(CpctlCheck, SaysWhatItDidNotLookAt)
{
	machine.absent = {"nft", "ethtool", "tc", "iptables-save"};
	machine.answers["bridge fdb show br br0"] = {.installed = true, .status = 1};
	machine.files.erase("/proc/net/tcp");
	EXPECT_EQ(run(), 0);
	EXPECT_EQ(out, "not looked at: flow tables, and marks that rules of nftables set: nft is not installed\n"
		       "not looked at: hardware offload of ports: ethtool is not installed\n"
		       "not looked at: what a switch chip forwards: bridge failed\n"
		       "not looked at: traffic control at ports: tc is not installed\n"
		       "not looked at: marks that rules of other programs set: iptables-save is not installed\n"
		       "not looked at: services on redirect ports: /proc/net/tcp cannot be read\n"
		       "nothing found\n");
}

TEST_F(CpctlCheck, AnswersInJson)
{
	machine.ipv4.clear();
	machine.absent = {"nft"};
	EXPECT_EQ(run({"-j", "check"}), 2);
	EXPECT_EQ(nlohmann::json::parse(out), nlohmann::json::parse(R"({"findings": [{"check": "bridge-address",
		"subject": "br0", "problem": "has no IPv4 address, so clients are not sent to the portal",
		"remedy": "ip address add ADDRESS/LENGTH dev br0"}],
		"not_looked_at": [{"what": "flow tables, and marks that rules of nftables set",
		"why": "nft is not installed"}]})"));
}

// ---- The running machine ---------------------------------------------------------------------------------------------------------

TEST(CpctlRunningMachine, ReadsFilesAndRunsPrograms)
{
	Machine &machine = running_machine();
	EXPECT_TRUE(machine.read("/proc/self/stat").has_value());
	EXPECT_FALSE(machine.read("/nonexistent").has_value());
	const Names names = machine.list("/proc/self");
	EXPECT_NE(std::ranges::find(names, "status"), names.end());
	EXPECT_TRUE(std::ranges::is_sorted(names));
	EXPECT_EQ(machine.list("/nonexistent"), Names());
	EXPECT_TRUE(machine.link("/proc/self/exe").has_value());
	EXPECT_FALSE(machine.link("/proc/self/stat").has_value());
	EXPECT_TRUE(machine.status("/dev/null")->is_character_device);
	EXPECT_FALSE(machine.status("/")->is_character_device);
	EXPECT_FALSE(machine.status("/nonexistent").has_value());
	EXPECT_EQ(machine.addresses("no-such-device"), Names());
	const ProgramAnswer answer = machine.run({"sh", "-c", "echo $LC_ALL; echo more >&2; read line || exit 3"});
	EXPECT_TRUE(answer.installed);
	EXPECT_EQ(answer.status, 3);
	EXPECT_EQ(answer.text, "C\n");
	EXPECT_FALSE(machine.run({"no-such-program-as-this"}).installed);
}

} // namespace

} // namespace cpctl::test
