// SPDX-License-Identifier: GPL-2.0-only
// Frames whose way depends on the recorded connections.
#include "base/atomic_word.h"
#include "bench/frames.h"
#include "bench/states.h"
#include "platform/platform.h"

namespace captive_portal::bench
{

namespace
{

using test::ipv4;

constexpr auto unit = "recorded connections";
const std::vector<uint64_t> sizes = {0, 100, 10'000, 100'000, 1'000'000};
constexpr uint64_t few_runs_from = 100'000;
// So few that the connections of one batch hardly show.
constexpr uint32_t syn_batch = 8;

constexpr Host server = {router, ipv4(203, 0, 113, 10)};
constexpr Host access_point = {{0x02, 0xaa, 0, 0, 0, 1}, ipv4(192, 168, 1, 1)};
constexpr test::Mac client_mac_address = {0x02, 0x11, 1, 1, 1, 0};

Host host_of(const Client &client)
{
	return {client_mac_address, client.address};
}

// Clients that are picked at random; the sequence is the same in each run of the program.
std::vector<Client> pick_clients(uint64_t connections)
{
	constexpr size_t picks = 4096;
	std::vector<Client> clients;
	uint64_t state = 42;
	for (size_t i = 0; i < picks; ++i) {
		state = state * 6364136223846793005 + 1442695040888963407;
		clients.push_back(connection_client(static_cast<uint32_t>((state >> 33) % connections)));
	}
	return clients;
}

// A connection of the first client is there even when there are no others.
uint64_t at_least_one(uint64_t size)
{
	return size == 0 ? 1 : size;
}

// What the hooks need to know of the access point they learn from a first redirect.
void prepare(uint64_t connections)
{
	restart_module();
	set_all_portals(CP_MODE_ON);
	FlatPacket packet;
	const Frame learn = frame().from(host_of(connection_client(0))).to(server).tcp(1024, 80).ack();
	packet.arrive(learn, "wlan-1-1", nullptr);
	*packet.view()->mark = cp_interface_mark(0);
	require(nf_cp_check(packet.view(), packet.ports()) == CP_ACCEPT && packet.is_for_host(),
		"nothing was redirected");
	fill_connections(static_cast<uint32_t>(connections));
}

// A client whom no recorded connection belongs to.
Client new_client(uint32_t number)
{
	return {be32::from_host(0x0b000001), be16::from_host(static_cast<uint16_t>(20000 + number))};
}

// Ends the connection as the access point's web service does.
void end_connection(const Client &client)
{
	FlatPacket packet;
	const Frame end =
		frame().from(access_point).to(host_of(client)).tcp(cp_http_port(0), client.port.host()).fin_ack();
	packet.arrive(end, nullptr, "wlan-1-1");
	require(nf_cp_change(packet.view(), packet.ports()) == CP_ACCEPT &&
			std::memcmp(packet.bytes(), end.data(), end.size()) != 0,
		"a connection that was to be ended is not there");
}

std::unique_ptr<Case> first_syn(uint64_t size)
{
	prepare(size);
	FrameCaseParts parts = {.hooks = incoming,
				.in_name = "wlan-1-1",
				.frames = {},
				.mark = cp_interface_mark(0),
				.rewritten = true,
				.batch = syn_batch};
	for (uint32_t number = 0; number < syn_batch; ++number) {
		const Client client = new_client(number);
		parts.frames.push_back(frame().from(host_of(client)).to(server).tcp(client.port.host(), 80).syn());
	}

	// Frames are used in turn, so those of the last runs are the ones before the next.
	class FirstSyn : public FrameCase
	{
	public:
		explicit FirstSyn(FrameCaseParts frames) : FrameCase(std::move(frames)) {}
		void restore(uint32_t runs) override
		{
			for (; open_ > 0; --open_) {
				end_connection(new_client(first_++ % syn_batch));
			}
			FrameCase::restore(runs);
		}
		void run(uint32_t number) override
		{
			FrameCase::run(number);
			++open_;
		}

	private:
		uint32_t first_ = 0;
		uint32_t open_ = 0;
	};
	return std::make_unique<FirstSyn>(std::move(parts));
}

std::unique_ptr<Case> frames_of_recorded(uint64_t size, const Hooks &hooks,
					 const std::function<Frame(const Client &)> &frame_of)
{
	const uint64_t connections = at_least_one(size);
	prepare(connections);
	FrameCaseParts parts = {.hooks = hooks,
				.in_name = "wlan-1-1",
				.out_name = "wlan-1-1",
				.frames = {},
				.mark = hooks.at_pre_routing[0] != nullptr ? cp_interface_mark(0) : 0,
				.rewritten = true,
				.batch = 256};
	for (const Client &client : pick_clients(connections)) {
		parts.frames.push_back(frame_of(client));
	}
	return std::make_unique<FrameCase>(std::move(parts));
}

// What a look-up of a connection cannot do without: a bucket of a table, and the entry that it leads to, each as far from
// the last ones as chance has it, in the memory that the module has its own in. One look-up begins when the one before has
// ended, as a locked one does. Nothing of the module runs.
class TwoReads : public Case
{
public:
	explicit TwoReads(uint64_t connections)
	    : entries_(static_cast<Entry *>(cp_zalloc_large(connections * sizeof(Entry)))),
	      buckets_(static_cast<const Entry **>(cp_zalloc_large(connections * sizeof(const Entry *))))
	{
		require(entries_ != nullptr && buckets_ != nullptr, "no memory for two reads");
		for (uint64_t i = 0; i < connections; ++i) {
			buckets_[i * 0x9e3779b1 % connections] = &entries_[i];
		}
		for (const Client &client : pick_clients(connections)) {
			picks_.push_back((client.address.host() * uint64_t{0x85ebca6b} + client.port.host()) %
					 connections);
		}
	}
	~TwoReads() override
	{
		cp_free_large(entries_);
		cp_free_large(buckets_);
	}
	[[nodiscard]] uint32_t batch() const override { return 256; }
	void run(uint32_t) override
	{
		const Entry *const entry = buckets_[picks_[next_]];
		// The entry's word is 0, but only memory knows.
		next_ = (next_ + 1 + load_word(entry->word)) % picks_.size();
	}
	void verify() override { require(next_ == 1, "memory is not as it was filled"); }

private:
	struct alignas(64) Entry {
		uint64_t word;
	};

	Entry *entries_;
	const Entry **buckets_;
	std::vector<uint64_t> picks_;
	size_t next_ = 0;
};

} // namespace

void add_connection_operations(std::vector<Operation> &list)
{
	list.push_back({.name = "redirect: first SYN",
			.unit = unit,
			.sizes = sizes,
			.make = first_syn,
			.baseline = "two empty hooks",
			.few_runs_from = few_runs_from});
	list.push_back({.name = "redirect: SYN again",
			.unit = unit,
			.sizes = sizes,
			.make =
				[](uint64_t size) {
					return frames_of_recorded(size, incoming, [](const Client &client) -> Frame {
						return frame()
							.from(host_of(client))
							.to(server)
							.tcp(client.port.host(), 80)
							.syn();
					});
				},
			.baseline = "two empty hooks",
			.few_runs_from = few_runs_from});
	list.push_back({.name = "reply rewritten",
			.unit = unit,
			.sizes = sizes,
			.make =
				[](uint64_t size) {
					return frames_of_recorded(size, outgoing, [](const Client &client) -> Frame {
						return frame()
							.from(access_point)
							.to(host_of(client))
							.tcp(cp_http_port(0), client.port.host());
					});
				},
			.baseline = "an empty hook",
			.few_runs_from = few_runs_from});
	list.push_back({.name = "memory: two reads",
			.unit = unit,
			.sizes = sizes,
			.make = [](uint64_t size) { return std::make_unique<TwoReads>(at_least_one(size)); },
			.few_runs_from = few_runs_from});
	list.push_back({.name = "post-routing: TCP none of ours",
			.unit = unit,
			.sizes = {0, 100'000},
			.make =
				[](uint64_t size) {
					prepare(size);
					return std::make_unique<FrameCase>(
						FrameCaseParts{.hooks = outgoing,
							       .in_name = "",
							       .out_name = "wlan-1-1",
							       .frames = {frame().from(server)
										  .to(host_of(connection_client(0)))
										  .tcp(443, 51000)}});
				},
			.baseline = "an empty hook",
			.few_runs_from = few_runs_from});
}

} // namespace captive_portal::bench
