// SPDX-License-Identifier: GPL-2.0-only
// The downward half of the seam, over the machine that lives.
#include <cstdarg>
#include <cstring>

#include "platform/host/context.h"
#include "platform/host/machine.h"
#include "platform/host/read_sections.h"
#include "platform/host/status_text.h"

using captive_portal::host::Event;
using captive_portal::host::Machine;
using captive_portal::host::might_sleep;
using captive_portal::host::PacketView;

void cp_log(enum cp_log_level level, const char *format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	Machine::current().log.write(level, captive_portal::host::format_kernel_text(format, arguments));
	va_end(arguments);
}

void cp_spin_lock_bh(enum cp_lock_id lock)
{
	Machine::current().locks.lock(lock);
}

void cp_spin_unlock_bh(enum cp_lock_id lock)
{
	Machine::current().locks.unlock(lock);
}

void cp_mutex_lock(enum cp_mutex_id mutex)
{
	Machine::current().mutexes.lock(mutex);
}

void cp_mutex_unlock(enum cp_mutex_id mutex)
{
	Machine::current().mutexes.unlock(mutex);
}

void *cp_zalloc_atomic(size_t size)
{
	return Machine::current().memory.allocate(size);
}

void cp_free(void *memory)
{
	Machine::current().memory.free(memory);
}

int cp_allocations_are_watched(void)
{
	return Machine::current().memory.is_watched() ? 1 : 0;
}

void *cp_memdup_user(cp_user_address from, size_t size)
{
	might_sleep("cp_memdup_user");
	Machine &machine = Machine::current();
	void *const memory = machine.memory.allocate(size);
	if (memory != nullptr && machine.user.copy_in(memory, from, size) != 0) {
		machine.memory.free(memory);
		return nullptr;
	}
	return memory;
}

size_t cp_copy_from_user(void *to, cp_user_address from, size_t size)
{
	might_sleep("cp_copy_from_user");
	return Machine::current().user.copy_in(to, from, size);
}

size_t cp_copy_to_user(cp_user_address to, const void *from, size_t size)
{
	might_sleep("cp_copy_to_user");
	return Machine::current().user.copy_out(to, from, size);
}

int64_t cp_wall_clock_seconds(void)
{
	return Machine::current().clock.seconds();
}

uint64_t cp_random_seed(void)
{
	return 0x9e3779b97f4a7c15;
}

enum cp_ipv4_result cp_first_ipv4_of_device(const char *name, uint32_t *address)
{
	return Machine::current().devices.first_ipv4(name, address);
}

int cp_hardware_address_of_device(const char *name, uint8_t mac[6])
{
	return Machine::current().devices.hardware_address(name, mac);
}

enum cp_bridge_result cp_bridge_of_port(const char *port, char *bridge, size_t size)
{
	return Machine::current().devices.bridge_of_port(port, bridge, size);
}

int cp_packet_copy(const struct cp_packet *packet, uint32_t offset, void *to, uint32_t bytes)
{
	return PacketView::of(packet).copy(offset, static_cast<uint8_t *>(to), bytes);
}

int cp_packet_make_writable(struct cp_packet *packet, uint32_t bytes)
{
	return PacketView::of(packet).make_writable(bytes);
}

void cp_packet_replace_checksum(struct cp_packet *packet, uint32_t offset, uint32_t from, uint32_t to,
				enum cp_checksum_part part)
{
	PacketView::of(packet).replace_checksum(offset, from, to, part);
}

void cp_packet_set_host(struct cp_packet *packet)
{
	PacketView::of(packet).set_host();
}

int cp_register_hooks(const struct cp_hook *hooks, uint32_t count)
{
	Machine &machine = Machine::current();
	const int result = machine.hooks.register_block(hooks, count);
	machine.happened(result == 0 ? Event::hooks_registered : Event::hooks_refused);
	return result;
}

void cp_unregister_hooks(const struct cp_hook *hooks, uint32_t count)
{
	Machine &machine = Machine::current();
	machine.hooks.unregister_block(hooks, count);
	machine.happened(Event::hooks_unregistered);
}

int cp_misc_register(const struct cp_misc_device *device)
{
	Machine &machine = Machine::current();
	const int result = machine.misc.register_device(device);
	machine.happened(result == 0 ? Event::misc_registered : Event::misc_refused);
	return result;
}

void cp_misc_deregister(const struct cp_misc_device *device)
{
	Machine &machine = Machine::current();
	machine.misc.deregister_device(device);
	machine.happened(Event::misc_deregistered);
}

void cp_module_get(void)
{
	Machine::current().get_module();
}

void cp_module_put(void)
{
	Machine::current().put_module();
}

size_t cp_format(char *out, size_t size, const char *format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	const std::string text = captive_portal::host::format_kernel_text(format, arguments);
	va_end(arguments);
	if (size == 0) {
		return 0;
	}
	// A NUL that was printed ends the text for whoever reads it, but counts.
	const size_t length = text.size() < size ? text.size() : size - 1;
	std::memcpy(out, text.data(), length);
	out[length] = '\0';
	return length;
}

void *cp_alloc_large(size_t size)
{
	might_sleep("cp_alloc_large");
	return Machine::current().memory.allocate_large(size);
}

void cp_free_large(void *memory)
{
	might_sleep("cp_free_large");
	Machine::current().memory.free_large(memory);
}

void *cp_zalloc_large(size_t size)
{
	might_sleep("cp_zalloc_large");
	void *const memory = Machine::current().memory.allocate_large(size);
	return memory != nullptr ? std::memset(memory, 0, size) : nullptr;
}

// At once, so that whoever still reads it is caught.
void cp_free_large_after_readers(struct cp_deferred_free *memory)
{
	might_sleep("cp_free_large_after_readers");
	captive_portal::host::wait_for_readers();
	Machine::current().memory.free_large(memory);
}

void cp_yield_processor(void)
{
	Machine::current().threads.yield();
}

struct cp_thread *cp_thread_create(int (*body)(void), const char *name)
{
	Machine &machine = Machine::current();
	cp_thread *const thread = machine.threads.create(body, name);
	machine.happened(thread != nullptr ? Event::thread_created : Event::thread_refused);
	return thread;
}

void cp_thread_wake_up(struct cp_thread *thread)
{
	Machine &machine = Machine::current();
	machine.threads.wake_up(thread);
	machine.happened(Event::thread_woken);
}

void cp_thread_stop(struct cp_thread *thread)
{
	Machine &machine = Machine::current();
	machine.threads.stop(thread);
	machine.happened(Event::thread_stopped);
}

int cp_thread_should_stop(void)
{
	return Machine::current().threads.should_stop() ? 1 : 0;
}

void cp_thread_sleep(uint32_t ticks)
{
	Machine::current().threads.sleep(ticks);
}

int cp_proc_create(const struct cp_proc_file *file)
{
	Machine &machine = Machine::current();
	const int result = machine.proc.create(file);
	machine.happened(result == 0 ? Event::proc_created : Event::proc_refused);
	return result;
}

void cp_proc_remove(const struct cp_proc_file *file)
{
	Machine &machine = Machine::current();
	machine.proc.remove(file);
	machine.happened(Event::proc_removed);
}

void cp_status_print(struct cp_status_text *text, const char *format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	text->characters += captive_portal::host::format_kernel_text(format, arguments);
	va_end(arguments);
}

int cp_status_create(const struct cp_status_directory *directory)
{
	Machine &machine = Machine::current();
	const int result = machine.status.create(directory);
	machine.happened(result == 0 ? Event::status_created : Event::status_refused);
	return result;
}

void cp_status_remove(const struct cp_status_directory *directory)
{
	Machine &machine = Machine::current();
	machine.status.remove(directory);
	machine.happened(Event::status_removed);
}

int cp_counters_create(size_t count)
{
	return Machine::current().counters.create(count);
}

void cp_counters_remove(void)
{
	Machine::current().counters.remove();
}

void cp_count(size_t counter)
{
	Machine::current().counters.add(counter);
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

uint64_t cp_counted(size_t counter)
{
	return Machine::current().counters.value(counter);
}
