// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/core_platform.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "base/counters.h"
#include "platform/host/checksum.h"
#include "platform/host/kernel_log.h"

namespace cpctl::explain
{

namespace
{

constexpr size_t ethernet_header_bytes = 14;

std::vector<Count> counts;
std::vector<std::string> log_lines;

} // namespace

captive_portal::host::Devices &core_devices()
{
	static captive_portal::host::Devices devices;
	return devices;
}

std::vector<Count> take_counts()
{
	return std::exchange(counts, {});
}

std::vector<std::string> take_log()
{
	return std::exchange(log_lines, {});
}

// As a kernel hands a frame over whose data lie in one piece: the headers that it has are readable.
HookPacket::HookPacket(Packet &packet)
{
	uint8_t *const bytes = packet.frame.data();
	const auto all = static_cast<uint32_t>(packet.frame.size());
	const uint32_t ethernet = std::min<uint32_t>(all, ethernet_header_bytes);
	seam_ = {.ethernet = bytes,
		 .ethernet_bytes = ethernet,
		 .network = bytes + ethernet,
		 .network_bytes = all - ethernet,
		 .network_length = all - ethernet,
		 .mark = &packet.mark,
		 .buffer = &packet};
}

} // namespace cpctl::explain

using namespace cpctl::explain;

void cp_log(enum cp_log_level, const char *format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	std::string line = captive_portal::host::format_kernel_text(format, arguments);
	va_end(arguments);
	while (line.ends_with('\n')) {
		line.pop_back();
	}
	log_lines.push_back(std::move(line));
}

// Nobody else is here.
void cp_spin_lock_bh(enum cp_lock_id) {}
void cp_spin_unlock_bh(enum cp_lock_id) {}
void cp_mutex_lock(enum cp_mutex_id) {}
void cp_mutex_unlock(enum cp_mutex_id) {}
void cp_yield_processor(void) {}

void *cp_zalloc_atomic(size_t size)
{
	return std::calloc(1, size);
}

void cp_free(void *memory)
{
	std::free(memory);
}

int cp_allocations_are_watched(void)
{
	return 0;
}

void *cp_alloc_large(size_t size)
{
	return std::malloc(size);
}

void *cp_zalloc_large(size_t size)
{
	return std::calloc(1, size);
}

void cp_free_large(void *memory)
{
	std::free(memory);
}

// No hook runs while a command does.
void cp_free_large_after_readers(struct cp_deferred_free *memory)
{
	std::free(memory);
}

void *cp_memdup_user(cp_user_address from, size_t size)
{
	void *const copy = std::malloc(size);
	// NOLINTNEXTLINE(performance-no-int-to-ptr): user space is this program.
	return copy != nullptr ? std::memcpy(copy, reinterpret_cast<const void *>(from), size) : nullptr;
}

size_t cp_copy_from_user(void *to, cp_user_address from, size_t size)
{
	// NOLINTNEXTLINE(performance-no-int-to-ptr): user space is this program.
	std::memcpy(to, reinterpret_cast<const void *>(from), size);
	return 0;
}

size_t cp_copy_to_user(cp_user_address to, const void *from, size_t size)
{
	// NOLINTNEXTLINE(performance-no-int-to-ptr): user space is this program.
	std::memcpy(reinterpret_cast<void *>(to), from, size);
	return 0;
}

int64_t cp_wall_clock_seconds(void)
{
	return std::time(nullptr);
}

// Only where an entry lies in an index depends on it, and nobody attacks this one.
uint64_t cp_random_seed(void)
{
	return 0x9e3779b97f4a7c15;
}

enum cp_ipv4_result cp_first_ipv4_of_device(const char *name, uint32_t *address)
{
	return core_devices().first_ipv4(name, address);
}

int cp_hardware_address_of_device(const char *name, uint8_t mac[6])
{
	return core_devices().hardware_address(name, mac);
}

enum cp_bridge_result cp_bridge_of_port(const char *port, char *bridge, size_t size)
{
	return core_devices().bridge_of_port(port, bridge, size);
}

int cp_packet_copy(const struct cp_packet *packet, uint32_t offset, void *to, uint32_t bytes)
{
	constexpr int bad_address = -14;
	if (uint64_t{offset} + bytes > packet->network_length) {
		return bad_address;
	}
	std::memcpy(to, packet->network + offset, bytes);
	return 0;
}

int cp_packet_make_writable(struct cp_packet *packet, uint32_t bytes)
{
	constexpr int no_memory = -12;
	return bytes <= packet->network_bytes ? 0 : no_memory;
}

void cp_packet_replace_checksum(struct cp_packet *packet, uint32_t offset, uint32_t from, uint32_t to,
				enum cp_checksum_part)
{
	uint8_t *const field = HookPacket::of(packet).frame.data() + packet->ethernet_bytes + offset;
	const auto value = static_cast<uint16_t>(field[0] << 8 | field[1]);
	const uint16_t changed =
		captive_portal::host::checksum_after_change(value, __builtin_bswap32(from), __builtin_bswap32(to));
	field[0] = static_cast<uint8_t>(changed >> 8);
	field[1] = static_cast<uint8_t>(changed);
}

void cp_packet_set_host(struct cp_packet *packet)
{
	HookPacket::of(packet).for_host = true;
}

// What a kernel would register is called directly, or never.
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
int cp_proc_create(const struct cp_proc_file *)
{
	return 0;
}
void cp_proc_remove(const struct cp_proc_file *) {}
int cp_status_create(const struct cp_status_directory *)
{
	return 0;
}
void cp_status_remove(const struct cp_status_directory *) {}
void cp_status_print(struct cp_status_text *, const char *, ...) {}

size_t cp_format(char *out, size_t size, const char *format, ...)
{
	if (size == 0) {
		return 0;
	}
	va_list arguments;
	va_start(arguments, format);
	const std::string text = captive_portal::host::format_kernel_text(format, arguments);
	va_end(arguments);
	const size_t length = text.copy(out, size - 1);
	out[length] = '\0';
	return length;
}

// No address gets old here, so the expiry thread has nothing to do.
struct cp_thread *cp_thread_create(int (*)(void), const char *)
{
	return nullptr;
}
void cp_thread_wake_up(struct cp_thread *) {}
void cp_thread_stop(struct cp_thread *) {}
int cp_thread_should_stop(void)
{
	return 1;
}
void cp_thread_sleep(uint32_t) {}

int cp_counters_create(size_t)
{
	return 0;
}
void cp_counters_remove(void) {}

void cp_count(size_t counter)
{
	counts.push_back(
		{.row = captive_portal::row_of_counter(counter), .reason = captive_portal::reason_of_counter(counter)});
}

enum cp_verdict cp_count_and_accept(size_t counter)
{
	cp_count(counter);
	return CP_ACCEPT;
}

enum cp_verdict cp_count_and_drop(size_t counter)
{
	cp_count(counter);
	return CP_DROP;
}

uint64_t cp_counted(size_t)
{
	return 0;
}
