// SPDX-License-Identifier: GPL-2.0-only
#include "bench/light_platform.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "base/counters.h"
#include "bench/holds.h"
#include "bench/light_memory.h"
#include "captive_portal/walled_garden.h"
#include "platform/host/checksum.h"

namespace captive_portal::bench
{

namespace
{

constexpr size_t ethernet_header_bytes = 14;

struct Device {
	std::array<char, 16> name;
	std::array<uint8_t, 6> mac;
	uint32_t ipv4; // network order, 0: no IPv4 configuration
	bool is_bridge_port;
};

// Open addressing over the names' hash: as little work as a kernel's own table of devices.
class Devices
{
public:
	Devices()
	{
		put("br0", {0x02, 0xaa, 0, 0, 0, 0x01}, __builtin_bswap32(0xc0a80101), false);
		put("eth0", {0x02, 0xbb, 0, 0, 0, 0x01}, 0, true);
		for (uint8_t radio = 1; radio <= 3; ++radio) {
			for (uint8_t vap = 1; vap <= 8; ++vap) {
				put("wlan-" + std::to_string(radio) + "-" + std::to_string(vap),
				    {0x02, 0xcc, radio, vap, 0, 0}, 0, true);
			}
		}
	}

	[[nodiscard]] const Device *find(const char *name) const
	{
		for (size_t slot = hash(name);; ++slot) {
			const Device &device = slots_[slot % slots_.size()];
			if (device.name[0] == '\0') {
				return nullptr;
			}
			if (is_same(device.name.data(), name)) {
				return &device;
			}
		}
	}

private:
	// Byte by byte: the library's goes by how the addresses lie, and counts would not repeat.
	static bool is_same(const char *a, const char *b)
	{
		while (*a != '\0' && *a == *b) {
			++a;
			++b;
		}
		return *a == *b;
	}

	static size_t hash(const char *name)
	{
		size_t hash = 0;
		for (; *name != '\0'; ++name) {
			hash = hash * 31 + static_cast<uint8_t>(*name);
		}
		return hash;
	}

	void put(const std::string &name, const std::array<uint8_t, 6> &mac, uint32_t ipv4, bool is_bridge_port)
	{
		size_t slot = hash(name.c_str());
		while (slots_[slot % slots_.size()].name[0] != '\0') {
			++slot;
		}
		Device &device = slots_[slot % slots_.size()];
		std::memcpy(device.name.data(), name.c_str(), name.size() + 1);
		device.mac = mac;
		device.ipv4 = ipv4;
		device.is_bridge_port = is_bridge_port;
	}

	std::array<Device, 256> slots_{};
};

const Devices devices;
std::atomic<uint64_t> log_lines = 0;
int64_t wall_clock = 1'700'000'000;
bool module_runs = false;

struct alignas(64) SpinLock {
	std::atomic<bool> taken = false;
};
std::array<SpinLock, CP_LOCKS> locks;

// Formats with "%pI4", which C does not know, replaced by the dotted quad that it stands for.
size_t format_with_addresses(char *out, size_t size, const char *format, va_list arguments)
{
	if (std::strstr(format, "%pI4") == nullptr) {
		const int length = std::vsnprintf(out, size, format, arguments);
		return static_cast<size_t>(length) < size ? static_cast<size_t>(length) : size - 1;
	}
	if (std::string_view(format) != "%pI4") {
		std::fprintf(stderr, "bench: no formatting of \"%s\"\n", format);
		std::abort();
	}
	const auto *const octets = va_arg(arguments, const uint8_t *);
	const int length = std::snprintf(out, size, "%u.%u.%u.%u", octets[0], octets[1], octets[2], octets[3]);
	return static_cast<size_t>(length) < size ? static_cast<size_t>(length) : size - 1;
}

} // namespace

void restart_module()
{
	if (module_runs) {
		captive_portal_exit();
	}
	if (captive_portal_init() != 0) {
		std::fprintf(stderr, "bench: the module does not start\n");
		std::abort();
	}
	module_runs = true;
	// They outlive a restart.
	static wg_cmd no_default_rules = {
		.cmd = UPDATE_DEFAULT_RULE, .iface = 0, .enable_value = 0, .rule_number = 0, .rules = {}};
	static_cast<void>(command(WALLED_GARDEN_IOCTL_SET, no_default_rules));
}

void FlatPacket::arrive(std::span<const uint8_t> frame, const char *in_name, const char *out_name)
{
	std::memcpy(bytes_.data(), frame.data(), frame.size());
	const auto network = static_cast<uint32_t>(frame.size() - ethernet_header_bytes);
	view_ = {.ethernet = bytes_.data(),
		 .ethernet_bytes = ethernet_header_bytes,
		 .network = bytes_.data() + ethernet_header_bytes,
		 .network_bytes = network,
		 .network_length = network,
		 .mark = &mark_,
		 .buffer = this};
	const auto field_of = [](std::array<char, CP_INTERFACE_NAME_SIZE> &field, const char *name) {
		std::strncpy(field.data(), name != nullptr ? name : "", field.size() - 1);
		field.back() = '\0';
		return name != nullptr ? field.data() : nullptr;
	};
	ports_ = {field_of(names_[0], in_name), field_of(names_[1], out_name)};
	mark_ = 0;
	for_host_ = false;
}

void set_wall_clock(int64_t seconds)
{
	wall_clock = seconds;
}

uint64_t logged_lines()
{
	return log_lines.load();
}

} // namespace captive_portal::bench

using namespace captive_portal;
using namespace captive_portal::bench;

void cp_log(enum cp_log_level, const char *, ...)
{
	log_lines.fetch_add(1, std::memory_order_relaxed);
}

void cp_spin_lock_bh(enum cp_lock_id lock)
{
	while (locks[lock].taken.exchange(true, std::memory_order_acquire)) {
		while (locks[lock].taken.load(std::memory_order_relaxed)) {
			__builtin_ia32_pause();
		}
	}
	hold_begins(lock);
}

void cp_spin_unlock_bh(enum cp_lock_id lock)
{
	hold_ends(lock);
	locks[lock].taken.store(false, std::memory_order_release);
}

int cp_allocations_are_watched(void)
{
	return 0;
}

// Commands come one at a time here.
void cp_mutex_lock(enum cp_mutex_id) {}

void cp_mutex_unlock(enum cp_mutex_id) {}

void *cp_zalloc_atomic(size_t size)
{
	void *const block = size <= largest_atomic_block ? take_block(size) : nullptr;
	return block != nullptr ? std::memset(block, 0, size) : nullptr;
}

void cp_free(void *memory)
{
	block_touched(memory);
	give_block(memory);
}

void *cp_memdup_user(cp_user_address from, size_t size)
{
	void *const block = take_block(size);
	return block != nullptr ? std::memcpy(block, reinterpret_cast<const void *>(from), size) : nullptr;
}

size_t cp_copy_from_user(void *to, cp_user_address from, size_t size)
{
	std::memcpy(to, reinterpret_cast<const void *>(from), size);
	return 0;
}

size_t cp_copy_to_user(cp_user_address to, const void *from, size_t size)
{
	std::memcpy(reinterpret_cast<void *>(to), from, size);
	return 0;
}

int64_t cp_wall_clock_seconds(void)
{
	return wall_clock;
}

uint64_t cp_random_seed(void)
{
	return 0x9e3779b97f4a7c15;
}

enum cp_ipv4_result cp_first_ipv4_of_device(const char *name, uint32_t *address)
{
	const Device *const device = devices.find(name);
	if (device == nullptr) {
		return CP_IPV4_NO_DEVICE;
	}
	if (device->ipv4 == 0) {
		return CP_IPV4_NO_CONFIGURATION;
	}
	*address = device->ipv4;
	return CP_IPV4_FOUND;
}

int cp_hardware_address_of_device(const char *name, uint8_t mac[6])
{
	const Device *const device = devices.find(name);
	if (device == nullptr) {
		return 0;
	}
	std::memcpy(mac, device->mac.data(), device->mac.size());
	return 1;
}

enum cp_bridge_result cp_bridge_of_port(const char *port, char *bridge, size_t size)
{
	const Device *const device = devices.find(port);
	if (device == nullptr) {
		return CP_BRIDGE_NO_DEVICE;
	}
	if (!device->is_bridge_port) {
		return CP_BRIDGE_NOT_A_PORT;
	}
	if (size >= sizeof("br0")) {
		std::memcpy(bridge, "br0", sizeof("br0"));
	}
	return CP_BRIDGE_FOUND;
}

int cp_packet_copy(const struct cp_packet *packet, uint32_t offset, void *to, uint32_t bytes)
{
	if (uint64_t{offset} + bytes > packet->network_bytes) {
		return -14;
	}
	std::memcpy(to, packet->network + offset, bytes);
	return 0;
}

int cp_packet_make_writable(struct cp_packet *packet, uint32_t bytes)
{
	return bytes <= packet->network_bytes ? 0 : -12;
}

void cp_packet_replace_checksum(struct cp_packet *packet, uint32_t offset, uint32_t from, uint32_t to,
				enum cp_checksum_part)
{
	uint8_t *const field = static_cast<FlatPacket *>(packet->buffer)->bytes() + ethernet_header_bytes + offset;
	const auto value = static_cast<uint16_t>(field[0] << 8 | field[1]);
	const uint16_t changed = host::checksum_after_change(value, __builtin_bswap32(from), __builtin_bswap32(to));
	field[0] = static_cast<uint8_t>(changed >> 8);
	field[1] = static_cast<uint8_t>(changed);
}

void cp_packet_set_host(struct cp_packet *packet)
{
	static_cast<FlatPacket *>(packet->buffer)->set_host();
}

int cp_register_hooks(const struct cp_hook *, uint32_t)
{
	return 0;
}

void cp_unregister_hooks(const struct cp_hook *, uint32_t) {}

int cp_misc_register(const struct cp_misc_device *)
{
	return 0;
}

void cp_misc_deregister(const struct cp_misc_device *) {}

void cp_module_get(void) {}

void cp_module_put(void) {}

size_t cp_format(char *out, size_t size, const char *format, ...)
{
	if (size == 0) {
		return 0;
	}
	va_list arguments;
	va_start(arguments, format);
	const size_t length = format_with_addresses(out, size, format, arguments);
	va_end(arguments);
	return length;
}

void *cp_alloc_large(size_t size)
{
	return take_block(size);
}

void cp_free_large(void *memory)
{
	give_block(memory);
}

void *cp_zalloc_large(size_t size)
{
	void *const pages = take_pages(size);
	return pages != nullptr ? std::memset(pages, 0, size) : nullptr;
}

// No hook runs while a command does.
void cp_free_large_after_readers(struct cp_deferred_free *memory)
{
	cp_free_large(memory);
}

void cp_yield_processor(void) {}

// No thread ever runs: whoever wants a pass of the expiry thread calls its body, which finds after one pass that it
// shall stop.
struct cp_thread {
	int32_t passes_left;
};

namespace
{
cp_thread expiry_thread{};
} // namespace

struct cp_thread *cp_thread_create(int (*)(void), const char *)
{
	return &expiry_thread;
}

void cp_thread_wake_up(struct cp_thread *) {}

void cp_thread_stop(struct cp_thread *) {}

int cp_thread_should_stop(void)
{
	expiry_thread.passes_left = 1 - expiry_thread.passes_left;
	return 1 - expiry_thread.passes_left;
}

void cp_thread_sleep(uint32_t) {}

int cp_proc_create(const struct cp_proc_file *)
{
	return 0;
}

void cp_proc_remove(const struct cp_proc_file *) {}

namespace
{
// Each thread is a processor, and has its own.
thread_local std::array<uint64_t, captive_portal::counter_count> counters;
} // namespace

int cp_counters_create(size_t)
{
	counters.fill(0);
	return 0;
}

void cp_counters_remove(void) {}

void cp_count(size_t counter)
{
	++counters[counter];
}

enum cp_verdict cp_count_and_accept(size_t counter)
{
	++counters[counter];
	return CP_ACCEPT;
}

enum cp_verdict cp_count_and_drop(size_t counter)
{
	++counters[counter];
	return CP_DROP;
}

uint64_t cp_counted(size_t counter)
{
	return counters[counter];
}

// Nobody reads the status files here.
int cp_status_create(const struct cp_status_directory *)
{
	return 0;
}

void cp_status_remove(const struct cp_status_directory *) {}
void cp_status_print(struct cp_status_text *, const char *, ...) {}
