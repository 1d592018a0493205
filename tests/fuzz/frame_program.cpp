// SPDX-License-Identifier: GPL-2.0-only
#include "tests/fuzz/frame_program.h"

#include <algorithm>

#include "captive_portal/captive_portal.h"
#include "tests/fuzz/control_model.h"
#include "tests/fuzz/control_records.h"
#include "tests/fuzz/pools.h"
#include "tests/support/control.h"
#include "tests/support/frame_builder.h"

namespace captive_portal::test
{

namespace
{

constexpr size_t most_actions = 40;
constexpr size_t longest_raw_frame = 200;
constexpr size_t longest_payload = 600;

void append(std::vector<uint8_t> &message, std::initializer_list<uint32_t> words)
{
	for (const uint32_t word : words) {
		message.push_back(static_cast<uint8_t>(word >> 8));
		message.push_back(static_cast<uint8_t>(word));
	}
}

void append_name(std::vector<uint8_t> &message, const std::string &name)
{
	for (size_t start = 0; start < name.size();) {
		const size_t dot = std::min(name.find('.', start), name.size());
		message.push_back(static_cast<uint8_t>(dot - start));
		message.insert(message.end(), name.begin() + static_cast<ptrdiff_t>(start),
			       name.begin() + static_cast<ptrdiff_t>(dot));
		start = dot + 1;
	}
	message.push_back(0);
}

// An answer about addresses, whole and right unless the input bends it.
std::vector<uint8_t> dns_answer(Input &input)
{
	const uint8_t bends = input.byte() < 0xa0 ? 0 : input.byte();
	const uint32_t records = input.below(6);
	std::vector<uint8_t> message;
	append(message, {0x1234, (bends & 1) != 0 ? input.number<uint16_t>() : 0x8180u, 1,
			 (bends & 2) != 0 ? input.number<uint16_t>() : records, 0, 0});
	append_name(message, pick_domain(input));
	append(message, {1, 1});
	for (uint32_t record = 0; record < records; ++record) {
		if ((bends & 4) != 0) {
			append_name(message, pick_domain(input));
		} else {
			append(message, {(bends & 8) != 0 ? 0xc000u | input.byte() : 0xc00cu});
		}
		append(message, {(bends & 16) != 0 ? input.byte() : 1u, 1, 0, input.byte(),
				 (bends & 32) != 0 ? input.number<uint16_t>() : 4u});
		const uint32_t address = pick_address(input).host();
		append(message, {address >> 16, address});
	}
	if ((bends & 64) != 0) {
		message.resize(input.number<uint16_t>() % (message.size() + 1));
	}
	return message;
}

// Whatever may be wrong with a header, each by a bit of the input.
void bend(Input &input, uint8_t bends, FrameBuilder &frame)
{
	if ((bends & 1) != 0) {
		frame.ihl(static_cast<uint8_t>(input.below(16)));
	}
	if ((bends & 2) != 0) {
		frame.total_length(input.number<uint16_t>());
	}
	if ((bends & 4) != 0) {
		frame.fragment_offset(input.number<uint16_t>() & 0x1fff);
	}
	if ((bends & 8) != 0) {
		frame.vlan(input.number<uint16_t>());
	}
	if ((bends & 16) != 0) {
		constexpr uint16_t types[] = {0x0800, 0x86dd, 0x886b, 0x886c, 0x8100, 0x888e, 0x0806, 0x0004};
		frame.ether_type(input.pick(types));
	}
	if ((bends & 32) != 0) {
		frame.version(static_cast<uint8_t>(input.below(16)));
	}
	if ((bends & 64) != 0) {
		frame.udp_length(input.number<uint16_t>());
	}
}

// Gives the source port.
uint16_t add_transport(Input &input, FrameAction &action, FrameBuilder &frame)
{
	constexpr uint8_t flags[] = {tcp_syn, tcp_ack, tcp_syn | tcp_ack, tcp_fin | tcp_ack, 0xff, 0};
	const uint32_t kind = input.below(10);
	const uint16_t source_port = pick_port(input);
	const uint16_t destination_port = pick_port(input);
	switch (kind) {
	case 0:
	case 1:
	case 2:
	case 3:
		frame.tcp(source_port, destination_port).flags(input.pick(flags));
		action.may_be_partial = true;
		break;
	case 4:
	case 5:
		frame.udp(CP_PORT_DNS, destination_port).payload(dns_answer(input));
		return CP_PORT_DNS;
	case 6:
		frame.udp(source_port, destination_port);
		break;
	case 7:
		frame.icmp(input.byte());
		break;
	case 8:
		frame.protocol(input.byte());
		break;
	default:
		frame.ipv6(input.byte());
		break;
	}
	frame.payload(input.bytes(input.number<uint16_t>() % longest_payload));
	return source_port;
}

// The client and the port that the last TCP segment came from: whom a reply goes to.
struct LastClient {
	Host host = client_of_wlan_1_1;
	uint16_t port = 51000;
};

// The access point's own answer to the last client, from one of the ports that requests are redirected to.
void make_reply(Input &input, FrameAction &action, const LastClient &client)
{
	constexpr uint8_t flags[] = {tcp_syn | tcp_ack, tcp_ack, tcp_fin | tcp_ack};
	FrameBuilder built;
	built.from(access_point).to(client.host).tcp(pick_port(input), client.port).flags(input.pick(flags));
	built.payload(input.bytes(input.byte() & 0x3f));
	action.honest = true;
	action.may_be_partial = true;
	action.frame = built;
}

void make_frame(Input &input, FrameAction &action, LastClient &client)
{
	const uint8_t shape = input.byte();
	if (action.hook == FrameHook::post_routing && shape >= 0xc0) {
		make_reply(input, action, client);
		return;
	}
	if (shape < 24) {
		action.frame = input.bytes(input.byte() % longest_raw_frame);
		return;
	}
	FrameBuilder built;
	const Host source{pick_mac(input), pick_address(input)};
	built.from(source).to({pick_mac(input), pick_address(input)});
	if (shape < 48) {
		built.ip_options(std::vector<uint8_t>(4 * input.below(11), 1));
	}
	const uint16_t source_port = add_transport(input, action, built);
	if (action.may_be_partial && action.hook == FrameHook::pre_routing) {
		client = {source, source_port};
	}
	const uint8_t bends = shape < 96 ? input.byte() : 0;
	bend(input, bends, built);
	action.honest = bends == 0;
	action.may_be_partial = action.may_be_partial && action.honest;
	action.frame = built;
	if ((bends & 128) != 0) {
		action.frame.resize(std::min<size_t>(action.frame.size(), input.byte()));
	}
}

FrameAction make_frame_action(Input &input, FrameHook hook, LastClient &client)
{
	FrameAction action{.hook = hook,
			   .frame = {},
			   .honest = false,
			   .may_be_partial = false,
			   .device = pick_interface(input),
			   .mark = 0,
			   .firewall_mark = {},
			   .checksum = host::ChecksumState::finished,
			   .linear = CP_PACKET_HEADER_BYTES,
			   .fail_make_writable = false,
			   .fail_copy = false,
			   .fail_memory = false};
	const uint8_t extras = input.byte();
	if ((extras & 1) != 0) {
		action.mark = pick_mark(input);
	}
	if ((extras & 2) != 0) {
		action.firewall_mark = pick_mark(input);
	}
	if ((extras & 4) != 0) {
		constexpr host::ChecksumState states[] = {host::ChecksumState::verified, host::ChecksumState::complete,
							  host::ChecksumState::partial};
		action.checksum = input.pick(states);
	}
	if ((extras & 8) != 0) {
		action.linear += input.byte();
	}
	if ((extras & 0xf0) == 0x10) {
		const uint8_t faults = input.byte();
		action.fail_make_writable = (faults & 1) != 0;
		action.fail_copy = (faults & 2) != 0;
		action.fail_memory = (faults & 4) != 0;
		if ((faults & 8) != 0) {
			action.device.reset();
		}
	}
	make_frame(input, action, client);
	if (action.checksum == host::ChecksumState::partial && !action.may_be_partial) {
		action.checksum = host::ChecksumState::finished;
	}
	return action;
}

DeviceAction make_device_action(Input &input)
{
	DeviceAction action{pick_interface(input), {}};
	const uint8_t kind = input.byte();
	if ((kind & 1) == 0) {
		return action;
	}
	action.device = host::Device{.mac = pick_mac(input), .ipv4 = {}, .bridge = {}};
	if ((kind & 2) != 0) {
		action.device->ipv4.emplace();
	}
	if ((kind & 4) != 0) {
		action.device->ipv4 = {{pick_address(input).raw}};
	}
	if ((kind & 8) != 0) {
		action.device->bridge = pick_interface(input);
	}
	action.device->bridge_unreachable = (kind & 16) != 0;
	return action;
}

void add_portal(std::vector<Action> &program, uint32_t sub_command, int32_t row, uint32_t value,
		std::string_view logout_address = "")
{
	cp_cmd record{.cmd = sub_command, .iface = row, .enable_value = value, .value = ""};
	set_text(record.value, logout_address);
	program.emplace_back(ControlAction{CAPTIVE_PORTAL_IOCTL_SET, bytes_of(record)});
}

void add_client(std::vector<Action> &program, uint32_t sub_command, const Host &client)
{
	gk_cmd record{};
	record.cmd = sub_command;
	set_text(record.iface, "wlan-1-1");
	std::copy(client.mac.begin(), client.mac.end(), record.mac);
	program.emplace_back(ControlAction{GATEKEEPER_IOCTL_SET, bytes_of(record)});
}

void add_garden(std::vector<Action> &program, uint32_t sub_command, int32_t row)
{
	wg_cmd record{};
	record.cmd = sub_command;
	record.iface = row;
	record.enable_value = 1;
	record.rule_number = 2;
	record.rules[0] = domain_rule("*.example");
	record.rules[1] = address_rule(second_upstream_server.address, ipv4(255, 255, 255, 255));
	program.emplace_back(ControlAction{WALLED_GARDEN_IOCTL_SET, bytes_of(record)});
}

// The tables at the start: "wlan-1-1" and "wlan-1-2" have portals, and whatever else a bit asks for.
std::vector<Action> set_up(Input &input)
{
	std::vector<Action> program;
	const uint8_t modes = input.byte();
	const uint8_t extras = input.byte();
	add_portal(program, CAPTIVE_PORTAL, 0, modes & 0x0f);
	add_portal(program, CAPTIVE_PORTAL, 1, modes >> 4);
	program.emplace_back(LevelAction{extras & 3});
	if ((extras & 4) != 0) {
		add_garden(program, UPDATE_RULE, 0);
		add_garden(program, UPDATE_MIREL_RULE, 0);
	}
	if ((extras & 8) != 0) {
		add_portal(program, CAPTIVE_PORTAL_MIREL, 0, CP_MODE_ON);
		add_client(program, ADD_MIREL_BLACK_LIST_MAC, second_client_of_wlan_1_1);
		add_client(program, ADD_MIREL_WHITE_LIST_MAC, client_of_wlan_3_8);
	}
	if ((extras & 16) != 0) {
		add_portal(program, DNS_FILTER_ENABLE, 0, 1);
	}
	if ((extras & 32) != 0) {
		add_portal(program, LOGOUT_IP_NOTIFY, 0, 0, "1.2.3.4");
		add_client(program, ADD_LOGIN_MAC, client_of_wlan_1_2);
	}
	if ((extras & 64) != 0) {
		add_portal(program, BLOCK_HTTPS, 0, CP_HTTPS_PASSES);
		add_portal(program, BLOCK_HTTPS, 1, 2);
	}
	if ((extras & 128) != 0) {
		program.emplace_back(ControlAction{GATEWAY_IOCTL_SET, bytes_of(router.address)});
	}
	return program;
}

} // namespace

std::vector<Action> decode_program(Input &input)
{
	std::vector<Action> program = set_up(input);
	LastClient client;
	const size_t most = program.size() + most_actions;
	while (program.size() < most && !input.empty()) {
		const uint32_t kind = input.below(16);
		if (kind < 5) {
			program.emplace_back(make_frame_action(input, FrameHook::pre_routing, client));
		} else if (kind < 9) {
			program.emplace_back(make_frame_action(input, FrameHook::post_routing, client));
		} else if (kind < 13) {
			constexpr int32_t commands[] = {CAPTIVE_PORTAL_IOCTL_SET, GATEKEEPER_IOCTL_SET,
							WALLED_GARDEN_IOCTL_SET, GATEWAY_IOCTL_SET};
			const int32_t command = commands[kind - 9];
			program.emplace_back(ControlAction{command, make_record(input, command)});
		} else if (kind == 13) {
			program.emplace_back(LevelAction{static_cast<int32_t>(input.below(5)) - 1});
		} else if (kind == 14) {
			program.emplace_back(ClockAction{input.byte()});
		} else {
			program.emplace_back(make_device_action(input));
		}
	}
	return program;
}

} // namespace captive_portal::test
