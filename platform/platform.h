/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * The seam: all that the module asks of a kernel, and all that a kernel calls in the module.
 *
 * Two platforms stand below it: platform/linux meets real kernel headers, platform/host is ordinary user-space code
 * for tests, fuzzers and benchmarks. Everything above it is the same C++ on both. Plain C, fixed-width types; IPv4
 * addresses are in network byte order, MAC addresses are six bytes in transmission order, names are NUL-terminated.
 */
#ifndef PLATFORM_PLATFORM_H
#define PLATFORM_PLATFORM_H

#include "captive_portal/fixed_width.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Downwards: what the module asks ---------------------------------------------------------------------------- */

/* Levels of the kernel log. The default level is what a line without a level of its own gets. */
enum cp_log_level {
	CP_LOG_DEFAULT = -1,
	CP_LOG_ERR = 3,
	CP_LOG_DEBUG = 7,
};

/*
 * Writes one line to the kernel log. The format is the kernel's: "%pI4" takes a pointer to four address bytes. Any
 * context, any lock held.
 */
void cp_log(enum cp_log_level level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/*
 * The module's spin locks. All are taken with bottom halves disabled. base/lock.h says which
 * two may nest, and the host platform asserts it.
 */
enum cp_lock_id {
	CP_LOCK_GATEKEEPER,
	CP_LOCK_CP,
	CP_LOCK_GATEWAY,
	CP_LOCK_CHANGE_IP_PORT,
	CP_LOCK_DNS_LIST,
	CP_LOCK_WALLEDGARDEN,
	CP_LOCKS,
};

/* Called through base/lock.h's guard only. Not recursive. */
void cp_spin_lock_bh(enum cp_lock_id lock);
void cp_spin_unlock_bh(enum cp_lock_id lock);

/*
 * The module's mutexes: for process context, and taken before any spin lock. Whoever waits for one sleeps.
 */
enum cp_mutex_id {
	CP_MUTEX_CLIENTS,
	CP_MUTEX_REPORTS,
	CP_MUTEXES,
};

/* Called through base/mutex.h's guard only. Not recursive. May sleep. */
void cp_mutex_lock(enum cp_mutex_id mutex);
void cp_mutex_unlock(enum cp_mutex_id mutex);

/* `size` zeroed bytes that any context may ask for, or null. Freed with cp_free(). Never sleeps. */
void *cp_zalloc_atomic(size_t size);
/* Frees what cp_zalloc_atomic() or cp_memdup_user() gave; null is ignored. Never sleeps. */
void cp_free(void *memory);

/*
 * Whether somebody watches single allocations: counts them, or makes the n-th fail. Then the module asks for each that
 * its rules name, also where it could do without. A kernel's allocations are nobody's business: 0. Any context.
 */
int cp_allocations_are_watched(void);

/* An address in the calling process, not yet checked. */
typedef uintptr_t cp_user_address;

/* A copy of `size` bytes at `from`, or null: no memory, or a byte that cannot be read. May sleep. */
void *cp_memdup_user(cp_user_address from, size_t size);
/* Copies in; the result is the number of bytes not copied. What was not copied is zeroed in `to`. May sleep. */
size_t cp_copy_from_user(void *to, cp_user_address from, size_t size);
/* Copies out; the result is the number of bytes not copied: `size` when the range is not the caller's. May sleep. */
size_t cp_copy_to_user(cp_user_address to, const void *from, size_t size);

/* Wall-clock time, seconds since 1970. Any context. */
int64_t cp_wall_clock_seconds(void);

/*
 * Random bits that nobody outside can guess; a test platform gives the same ones in each run. Any context; not for the
 * packet path.
 */
uint64_t cp_random_seed(void);

enum cp_ipv4_result {
	CP_IPV4_FOUND,
	CP_IPV4_NO_DEVICE,
	/* The device has no IPv4 configuration at all. */
	CP_IPV4_NO_CONFIGURATION,
	/* It has one, but no address in it. */
	CP_IPV4_NO_ADDRESS,
};

/*
 * First IPv4 address (its local address) of the device `name` of the initial network namespace. `address` is written
 * only for CP_IPV4_FOUND. Any context; keeps no reference.
 */
enum cp_ipv4_result cp_first_ipv4_of_device(const char *name, uint32_t *address);

/* Hardware address of the device `name` of the initial network namespace: 1 and `mac` written, or 0: no such device. */
int cp_hardware_address_of_device(const char *name, uint8_t mac[6]);

enum cp_bridge_result {
	CP_BRIDGE_FOUND,
	CP_BRIDGE_NO_DEVICE,
	/* The device is a bridge port whose bridge cannot be reached. */
	CP_BRIDGE_UNREACHABLE,
	CP_BRIDGE_NOT_A_PORT,
};

/*
 * Name of the bridge that the device `port` of the initial network namespace belongs to, cut to `size` bytes with its
 * NUL. `bridge` is written only for CP_BRIDGE_FOUND. Any context; keeps no reference.
 */
enum cp_bridge_result cp_bridge_of_port(const char *port, char *bridge, size_t size);

/*
 * Bytes after the Ethernet header that a platform makes readable before it calls a hook (fewer when the packet has
 * fewer): the longest IPv4 header and a TCP header.
 */
enum { CP_PACKET_HEADER_BYTES = 60 + 20 };

/*
 * A packet, and the devices of a hook's call, as the platform keeps them: platform/packet_fields.h reads their fields, and
 * base/packet.h is the only reader of that.
 */
struct cp_packet;
struct cp_ports;

/*
 * Copies the `bytes` bytes that start `offset` bytes after the Ethernet header, wherever the packet keeps them: 0, or
 * a negative error and `to` holds nothing of use: the packet does not have them all, or they cannot be read. Moves no
 * data of the packet. Any context.
 */
int cp_packet_copy(const struct cp_packet *packet, uint32_t offset, void *to, uint32_t bytes);

/*
 * Makes the Ethernet header and the first `bytes` bytes after it writable and private to this packet: no clone of it,
 * no capture sees a later write. 0, or a negative error and the packet is as it was. May move the packet's data in both
 * cases. Softirq context.
 */
int cp_packet_make_writable(struct cp_packet *packet, uint32_t bytes);

/* Where a changed 32-bit value lies, as a transport checksum sees it. */
enum cp_checksum_part {
	CP_CHECKSUM_PAYLOAD,
	CP_CHECKSUM_PSEUDO_HEADER,
};

/*
 * Fixes the 16-bit transport checksum at `offset` bytes after the Ethernet header for one value that changed from
 * `from` to `to` (both as they lie in the packet), whether the checksum is finished, to be completed later, or was
 * verified by hardware. The packet must have been made writable beyond the checksum.
 */
void cp_packet_replace_checksum(struct cp_packet *packet, uint32_t offset, uint32_t from, uint32_t to,
				enum cp_checksum_part part);

/* The packet is for this machine from here on, whatever its destination was. */
void cp_packet_set_host(struct cp_packet *packet);

/* A hook's answer. */
enum cp_verdict {
	CP_DROP = 0,
	CP_ACCEPT = 1,
};

/*
 * A hook runs in softirq context, inside a read section: what it finds behind a pointer stays until it has returned,
 * though others may have called cp_free_large_after_readers() for it meanwhile.
 */
struct cp_hook {
	/* One of the core's three; a platform may call them by their names. */
	enum cp_verdict (*function)(struct cp_packet *packet, const struct cp_ports *ports);
	uint8_t protocol_family;
	uint32_t hook_number;
	int32_t priority;
};

/*
 * Bridge pre-routing, first: guards the access point's own portal ports, admits known clients, marks the others. May set
 * the packet's mark. Takes no lock, but gatekeeper_lock where it meets commands twice.
 */
enum cp_verdict ebt_gate_keeper(struct cp_packet *packet, const struct cp_ports *ports);
/* Bridge pre-routing, after the gatekeeper: passes, drops, or redirects a packet by its mark. */
enum cp_verdict nf_cp_check(struct cp_packet *packet, const struct cp_ports *ports);
/*
 * Bridge post-routing: makes the replies of the redirect ports look as if they came from where the client sent its
 * request. Accepts always.
 */
enum cp_verdict nf_cp_change(struct cp_packet *packet, const struct cp_ports *ports);

/*
 * Registers `count` hooks as one block in the initial network namespace: 0, or a negative error and none is
 * registered. The records must stay until they are unregistered. Process context.
 */
int cp_register_hooks(const struct cp_hook *hooks, uint32_t count);

/*
 * Unregisters the block and returns when no hook runs any more. Does nothing when the registration failed or was
 * never tried. Process context.
 */
void cp_unregister_hooks(const struct cp_hook *hooks, uint32_t count);

struct cp_misc_device {
	int32_t minor;
	const char *name;
};

/* Minor number that asks the kernel to choose one. */
enum { CP_MISC_DYNAMIC_MINOR = 255 };

/* Registers the control device: 0 or a negative error. From here on the device can be opened. Process context. */
int cp_misc_register(const struct cp_misc_device *device);
/* Takes the control device away. Does nothing when it was never registered. Process context. */
void cp_misc_deregister(const struct cp_misc_device *device);

/*
 * Holds the module in memory while the control device is open, and lets it go. A platform whose file layer already
 * does so for an open file may do nothing.
 */
void cp_module_get(void);
void cp_module_put(void);

/*
 * Formats like cp_log() into `out`, cut to `size` bytes with the NUL; the result is the number of characters that
 * stand in `out`. Any context.
 */
size_t cp_format(char *out, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));

/* `size` bytes, not zeroed, of any size, or null. May sleep. Freed with cp_free_large(), which takes null too. */
void *cp_alloc_large(size_t size);
void cp_free_large(void *memory);

/*
 * `size` zeroed bytes in whole pages of their own, or null: for large memory that stays, which no power of two rounds
 * up. May sleep. Freed with cp_free_large() or cp_free_large_after_readers().
 */
void *cp_zalloc_large(size_t size);

/* The platform's own while the memory that it begins waits to be freed; nobody else writes it. */
struct cp_deferred_free {
	void *platform[2];
};

/*
 * Frees memory of cp_zalloc_large() that no hook can find any more, as soon as every hook that runs now has returned;
 * at the latest before the module is gone. The memory begins with `memory`. May sleep.
 */
void cp_free_large_after_readers(struct cp_deferred_free *memory);

/* Lets others run where a long loop in process context has held the processor long enough. No spin lock may be held. */
void cp_yield_processor(void);

struct cp_thread;

/* A kernel thread that does not run yet, or null when there is none to be had. Process context. */
struct cp_thread *cp_thread_create(int (*body)(void), const char *name);
void cp_thread_wake_up(struct cp_thread *thread);
/* Asks the thread to stop and waits until its body has returned. A thread that was never woken is taken away. */
void cp_thread_stop(struct cp_thread *thread);

/* For a thread's body: whether it was asked to stop. */
int cp_thread_should_stop(void);
/* For a thread's body: sleeps for `ticks` scheduler ticks, or until it is asked to stop, whichever comes first. */
void cp_thread_sleep(uint32_t ticks);

struct cp_proc_file {
	const char *directory; /* made at the proc root */
	const char *name;      /* made in the directory */
	uint16_t mode;
};

/*
 * Makes the directory and the file whose reads and writes go to captive_portal_summary_read() and
 * captive_portal_summary_write(): 0, or a negative error and neither is left. Process context.
 */
int cp_proc_create(const struct cp_proc_file *file);
/* Takes file and directory away when they were made, and waits until no read or write of it runs. */
void cp_proc_remove(const struct cp_proc_file *file);

/*
 * Counters, each a number for each processor. Made with `count` of them, all 0: 0, or a negative error and there are none;
 * then counting does nothing. Process context.
 */
int cp_counters_create(size_t count);
/* Nobody counts any more. Process context. */
void cp_counters_remove(void);
/* Adds 1 to a counter, 0 to `count` - 1. Any context, any lock held; takes none. */
void cp_count(size_t counter);
/* The same, and gives CP_ACCEPT, or CP_DROP: so that it can be a hook's last step. */
enum cp_verdict cp_count_and_accept(size_t counter);
enum cp_verdict cp_count_and_drop(size_t counter);
/* What all processors have counted. Not one moment's: it may change while it is added up. Any context. */
uint64_t cp_counted(size_t counter);

/* What a reader of a status file gets. Lives as long as the file's write_part() runs. */
struct cp_status_text;

/* Appends to the text, formatted as by cp_log(). Any lock may be held. */
void cp_status_print(struct cp_status_text *text, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* A file that says what the module has stored. */
struct cp_status_file {
	const char *name;
	/* Of these its text consists; a reader gets each as it is at one moment. */
	uint32_t parts;
	/*
	 * Writes one part, 0 to `parts` - 1. A platform that has no room for it throws away what it got and calls once more.
	 * Process context, no lock held.
	 */
	void (*write_part)(uint32_t part, struct cp_status_text *text);
};

/* A directory at the proc root and the status files in it. */
struct cp_status_directory {
	const char *name;
	uint16_t mode; /* of the files */
	const struct cp_status_file *files;
	uint32_t file_count;
};

/* Makes the directory and its files: 0, or a negative error and nothing of it is left. Process context. */
int cp_status_create(const struct cp_status_directory *directory);
/* Takes files and directory away when they were made, and waits until no reader is in write_part(). */
void cp_status_remove(const struct cp_status_directory *directory);

/* ---- Upwards: what a kernel calls ------------------------------------------------------------------------------- */

/*
 * Start: 0, or the negative error of the control device's registration. In that case the hooks are still registered,
 * and a kernel that frees the module's text because of the error must take them off itself, and the counters after them.
 */
int captive_portal_init(void);
/* Stop. Called once after a successful start. */
void captive_portal_exit(void);

/* The control device's file operations. 0 or a negative error; dispatcher's result. Process context. */
int captive_portal_open(void);
int captive_portal_release(void);
long captive_portal_ioctl(int32_t command, unsigned long argument);
long captive_portal_compat_ioctl(uint32_t command, unsigned long argument);

/*
 * The proc file. Read: fills at most `length` bytes at `buffer`, moves `position` to the number of bytes that the
 * listing has, and gives that number, or a negative error. Write: `count`, or a negative error. Process context.
 */
long captive_portal_summary_read(cp_user_address buffer, size_t length, int64_t *position);
long captive_portal_summary_write(cp_user_address buffer, size_t count);

#ifdef __cplusplus
}
#endif

#endif
