#include "wires.h"

#include "trouble.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace load
{

namespace
{

constexpr unsigned slot_size = 2048, block_size = 1 << 16;
constexpr unsigned slots_of_a_port = 1024, slots_of_a_meeting_place = 4096;

template <typename Value> void set(int socket, int option, const Value &value)
{
	if (setsockopt(socket, SOL_PACKET, option, &value, sizeof(value)))
		throw_errno("an option of a packet socket");
}

int device_number(const std::string &name)
{
	unsigned index = if_nametoindex(name.c_str());
	if (index == 0)
		throw_errno(name);
	return int(index);
}

} // namespace

Wires::Wires()
{
	sender = socket(AF_PACKET, SOCK_RAW, 0);
	int room = 64 << 20;
	if (sender < 0 || setsockopt(sender, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof(room)))
		throw_errno("a packet socket");
	for (unsigned place = 0; place < places; ++place) {
		std::string name = place == uplink ?
					   "far-up" :
				   place == access_point ?
					   "br0" :
					   "far-" + std::to_string(place / 8 + 1) + "-" + std::to_string(place % 8 + 1);
		device[place] = device_number(name);
		Ring &one = ring[place];
		one.socket = socket(AF_PACKET, SOCK_RAW, 0);
		one.slots = place < rows ? slots_of_a_port : slots_of_a_meeting_place;
		one.next = 0;
		set(one.socket, PACKET_VERSION, int(TPACKET_V2));
		set(one.socket, PACKET_IGNORE_OUTGOING, 1);
		tpacket_req request{.tp_block_size = block_size,
				    .tp_block_nr = one.slots * slot_size / block_size,
				    .tp_frame_size = slot_size,
				    .tp_frame_nr = one.slots};
		set(one.socket, PACKET_RX_RING, request);
		void *memory = mmap(nullptr, one.slots * slot_size, PROT_READ | PROT_WRITE, MAP_SHARED, one.socket, 0);
		if (memory == MAP_FAILED)
			throw_errno("a receiver's ring");
		one.memory = static_cast<uint8_t *>(memory);
		sockaddr_ll where{};
		where.sll_family = AF_PACKET;
		where.sll_protocol = __builtin_bswap16(ETH_P_ALL);
		where.sll_ifindex = device[place];
		if (bind(one.socket, reinterpret_cast<sockaddr *>(&where), sizeof(where)))
			throw_errno("listening at " + name);
	}
}

void Wires::queue(unsigned place, const Frame &frame)
{
	queued.push_back(&frame);
	queued_at.push_back(place);
}

void Wires::send_all()
{
	static std::vector<mmsghdr> messages;
	static std::vector<iovec> pieces;
	static std::vector<sockaddr_ll> ways;
	size_t count = queued.size();
	messages.assign(count, {});
	pieces.assign(count, {});
	ways.assign(count, {});
	for (size_t i = 0; i < count; ++i) {
		pieces[i] = {const_cast<uint8_t *>(queued[i]->bytes), queued[i]->length};
		ways[i].sll_family = AF_PACKET;
		ways[i].sll_ifindex = device[queued_at[i]];
		ways[i].sll_protocol = __builtin_bswap16(ETH_P_IP);
		messages[i].msg_hdr.msg_name = &ways[i];
		messages[i].msg_hdr.msg_namelen = sizeof(ways[i]);
		messages[i].msg_hdr.msg_iov = &pieces[i];
		messages[i].msg_hdr.msg_iovlen = 1;
	}
	for (size_t sent = 0; sent < count;) {
		int result = sendmmsg(sender, messages.data() + sent, unsigned(count - sent), 0);
		if (result <= 0)
			throw_errno("sending");
		sent += size_t(result);
	}
	queued.clear();
	queued_at.clear();
}

const uint8_t *Wires::filled_slot(unsigned place)
{
	Ring &one = ring[place];
	uint8_t *slot = one.memory + one.next * slot_size;
	auto *status = &reinterpret_cast<tpacket2_hdr *>(slot)->tp_status;
	return __atomic_load_n(status, __ATOMIC_ACQUIRE) & TP_STATUS_USER ? slot : nullptr;
}

const uint8_t *Wires::frame_in(const uint8_t *slot, unsigned &length)
{
	auto *header = reinterpret_cast<const tpacket2_hdr *>(slot);
	length = header->tp_len;
	if (header->tp_snaplen != length)
		throw Trouble("a ring's slot is too small for a frame");
	return slot + header->tp_mac;
}

void Wires::free_slot(unsigned place)
{
	Ring &one = ring[place];
	auto *header = reinterpret_cast<tpacket2_hdr *>(one.memory + one.next * slot_size);
	__atomic_store_n(&header->tp_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
	one.next = (one.next + 1) % one.slots;
}

uint64_t Wires::lost()
{
	for (Ring &one : ring) {
		tpacket_stats statistics{};
		socklen_t size = sizeof(statistics);
		if (getsockopt(one.socket, SOL_PACKET, PACKET_STATISTICS, &statistics, &size))
			throw_errno("a ring's statistics");
		lost_so_far += statistics.tp_drops;
	}
	return lost_so_far;
}

} // namespace load
