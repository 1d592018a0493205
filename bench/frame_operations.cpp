// SPDX-License-Identifier: GPL-2.0-only
// Frames whose way depends on the client tables.
#include "bench/frames.h"
#include "bench/states.h"

namespace captive_portal::bench
{

namespace
{

using test::ipv4;

constexpr uint32_t row = 10;
const std::string port = interface_name(row);
constexpr uint32_t unadmitted = 0xffffff;
// Clients of a list that are asked about in turn, from its first to its last: a hash is kinder to some than to others, and
// to the first than to the last.
constexpr uint64_t asked_clients = 8;

constexpr auto clients_unit = "clients in each list";
const std::vector<uint64_t> client_sizes = {0, 1, 16, 128, full_client_list};
const std::vector<uint64_t> admitted_sizes = {1, 16, 128, full_client_list};

// The client that the table has last, or one that is in none.
Host host_of(const ClientTable &table, uint32_t number)
{
	const MacAddress mac = client_mac(table, row, number);
	Host host = {{}, ipv4(192, 168, 1, 50)};
	std::memcpy(host.mac.data(), mac.bytes, host.mac.size());
	return host;
}

constexpr Host server = {router, ipv4(203, 0, 113, 10)};
constexpr Host resolver = {router, ipv4(203, 0, 113, 53)};
constexpr Host wired_host = {{0x02, 0x33, 0, 0, 0, 1}, ipv4(192, 168, 1, 77)};
constexpr Host access_point = {{0x02, 0xaa, 0, 0, 0, 1}, ipv4(192, 168, 1, 1)};

enum class Mirel { off, on };

void prepare(uint64_t clients, uint32_t mode = CP_MODE_ON, Mirel mirel = Mirel::off)
{
	restart_module();
	set_all_portals(mode);
	set_portal(CAPTIVE_PORTAL_MIREL, 0, mirel == Mirel::on ? CP_MODE_ON : CP_MODE_OFF);
	fill_clients(static_cast<uint32_t>(clients));
}

std::unique_ptr<Case> frame_case(FrameCaseParts parts)
{
	return std::make_unique<FrameCase>(std::move(parts));
}

Operation admitted(const ClientTable &table, Mirel mirel)
{
	return {.name = std::string("admitted: ") + table.name,
		.unit = clients_unit,
		.sizes = admitted_sizes,
		.make =
			[=](uint64_t size) {
				prepare(size, CP_MODE_ON, mirel);
				std::vector<Frame> frames;
				const uint64_t asked = std::min(size, asked_clients);
				for (uint64_t i = 0; i < asked; ++i) {
					const uint64_t number = asked < 2 ? 0 : i * (size - 1) / (asked - 1);
					Host client = host_of(table, static_cast<uint32_t>(number));
					// The MIREL lists are filled as row 0's.
					client.mac[2] = mirel == Mirel::on ? 0 : row;
					frames.push_back(frame().from(client).to(server).tcp(51000, 443).ack());
				}
				return frame_case({.hooks = forwarding, .in_name = port, .frames = frames});
			},
		.baseline = "three empty hooks"};
}

Operation frame_operation(const char *name, std::function<FrameCaseParts(uint64_t)> parts,
			  const char *baseline = "three empty hooks", std::vector<uint64_t> sizes = client_sizes)
{
	return {.name = name,
		.unit = clients_unit,
		.sizes = std::move(sizes),
		.make = [parts = std::move(parts)](uint64_t size) { return frame_case(parts(size)); },
		.baseline = baseline};
}

FrameCaseParts nothing_happens(const Hooks &hooks)
{
	restart_module();
	return {.hooks = hooks,
		.in_name = port,
		.frames = {frame().from(host_of(login_table, unadmitted)).to(server).tcp(51000, 443)}};
}

class Nothing : public Case
{
public:
	void run(uint32_t) override {}
};

} // namespace

void add_baselines(std::vector<Operation> &list)
{
	list.push_back({.name = "nothing",
			.unit = "",
			.sizes = {1},
			.make = [](uint64_t) { return std::make_unique<Nothing>(); },
			.baseline = ""});
	const auto add = [&](const char *name, const Hooks &hooks) {
		list.push_back(frame_operation(name, [&hooks](uint64_t) { return nothing_happens(hooks); }, "", {1}));
		list.back().unit = "";
	};
	add("three empty hooks", empty_forwarding);
	add("two empty hooks", empty_incoming);
	add("an empty hook", empty_outgoing);
}

void add_frame_operations(std::vector<Operation> &list)
{
	for (const ClientTable &table : row_tables) {
		list.push_back(admitted(table, Mirel::off));
	}
	list.push_back(admitted(mirel_white_table, Mirel::on));

	list.push_back(frame_operation("unadmitted: DNS query", [](uint64_t size) -> FrameCaseParts {
		prepare(size);
		return {.hooks = forwarding,
			.in_name = port,
			.frames = {frame().from(host_of(login_table, unadmitted))
					   .to(resolver)
					   .udp(51000, 53)
					   .payload("query")},
			.mark = cp_interface_mark(row)};
	}));
	list.push_back(frame_operation("interface without portal", [](uint64_t size) -> FrameCaseParts {
		prepare(size, CP_MODE_OFF);
		return {.hooks = forwarding,
			.in_name = port,
			.frames = {frame().from(host_of(login_table, unadmitted)).to(server).tcp(51000, 443).ack()}};
	}));
	list.push_back(frame_operation("unadmitted: mode 7 to the internet", [](uint64_t size) -> FrameCaseParts {
		prepare(size, CP_MODE_INTERNET_PASSES);
		return {.hooks = forwarding,
			.in_name = port,
			.frames = {frame().from(host_of(login_table, unadmitted)).to(server).tcp(51000, 443).ack()},
			.mark = cp_interface_mark(row)};
	}));
	list.push_back(frame_operation(
		"unadmitted: later segment redirected",
		[](uint64_t size) -> FrameCaseParts {
			prepare(size);
			return {.hooks = incoming,
				.in_name = port,
				.frames = {frame().from(host_of(login_table, unadmitted))
						   .to(server)
						   .tcp(51000, 80)
						   .ack()},
				.mark = cp_interface_mark(row),
				.rewritten = true};
		},
		"two empty hooks"));
	list.push_back(frame_operation("wired host", [](uint64_t size) -> FrameCaseParts {
		prepare(size);
		return {.hooks = forwarding,
			.in_name = "eth0",
			.out_name = "wlan-1-1",
			.frames = {frame().from(wired_host).to(server).tcp(51000, 443).ack()}};
	}));
	list.push_back(frame_operation(
		"port guard: another interface's port",
		[](uint64_t size) -> FrameCaseParts {
			prepare(size);
			return {.hooks = incoming,
				.in_name = port,
				.frames = {frame().from(host_of(login_table, unadmitted))
						   .to(access_point)
						   .tcp(51000, cp_https_port(CP_WIRELESS_INTERFACES - 1))
						   .syn()},
				.verdict = CP_DROP};
		},
		"two empty hooks"));
	list.push_back(frame_operation(
		"port guard: own port passes",
		[](uint64_t size) -> FrameCaseParts {
			prepare(size);
			return {.hooks = incoming,
				.in_name = port,
				.frames = {frame().from(host_of(login_table, unadmitted))
						   .to(access_point)
						   .tcp(51000, 80)
						   .syn()},
				.mark = cp_interface_mark(row)};
		},
		"two empty hooks"));
	list.push_back(frame_operation(
		"port guard: wired host",
		[](uint64_t size) -> FrameCaseParts {
			prepare(size);
			return {.hooks = incoming,
				.in_name = "eth0",
				.frames = {frame().from(wired_host).to(access_point).tcp(51000, CP_PORT_LOGOUT).syn()},
				.verdict = CP_DROP};
		},
		"two empty hooks"));
}

} // namespace captive_portal::bench
