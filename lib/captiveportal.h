/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * libcaptiveportal: the captive portal module for daemons, in C and C++.
 *
 * A handle is the module's control device, which admits one opener at a time: open it, do what there is to do, close it.
 * One thread at a time may use a handle. Nothing here prints, exits, throws or starts a thread.
 *
 * Interfaces are named "wlan-1-1" to "wlan-3-8" (radio 1 to 3, virtual access point 1 to 8), and in no other spelling:
 * the module itself takes "wlan-1-9" for "wlan-2-1". Addresses are IPv4 in network byte order, as in struct in_addr.
 * Names and texts are ended by NUL.
 *
 * The module answers most refusals with "done". So every argument is checked before the module sees it, and what was
 * stored is read back, from the device or from the module's status files.
 *
 * Results: 0 is done, above 0 done with something to know, below 0 a failure that captiveportal_error_text() explains.
 */
#ifndef CAPTIVEPORTAL_H
#define CAPTIVEPORTAL_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The library hides every name but these. */
#ifdef __GNUC__
#pragma GCC visibility push(default)
#endif

#define CAPTIVEPORTAL_VERSION "0.1.0"

enum captiveportal_result {
	CAPTIVEPORTAL_OK = 0,

	/* It was so already: a client that was listed, or was not; nothing was stored. */
	CAPTIVEPORTAL_UNCHANGED = 1,
	/* The module took it, and there was no way to read it back. */
	CAPTIVEPORTAL_UNVERIFIED = 2,
	/* A list has more entries than the answer holds. */
	CAPTIVEPORTAL_INCOMPLETE = 3,
	/* The kernel answered in the module's place: captiveportal_get_status() says when. */
	CAPTIVEPORTAL_UNANSWERED = 4,

	/* An argument is wrong. The module was not asked. */
	CAPTIVEPORTAL_INVALID = -1,
	/* The module refused, or what was stored is not there afterwards. */
	CAPTIVEPORTAL_REFUSED = -2,
	/* No module, or the file is not its device, or its answer is not understood. */
	CAPTIVEPORTAL_UNAVAILABLE = -3,
	/* Another program has the device open. */
	CAPTIVEPORTAL_BUSY = -4,
	/* This program may not. */
	CAPTIVEPORTAL_NO_PERMISSION = -5,
	/* This program has no memory. */
	CAPTIVEPORTAL_NO_MEMORY = -6,
};

/*
 * What the last call of this thread that failed has to say, and what to do about it: one line without a line feed, never
 * NULL. It stays until the thread's next call that fails.
 */
const char *captiveportal_error_text(void);

/* The library's version, which may be newer than CAPTIVEPORTAL_VERSION of the header that a program was built with. */
const char *captiveportal_version(void);

/* --- the device --------------------------------------------------------------------------------------------------- */

struct captiveportal;

/*
 * Opens the module's control device: /dev/CP_dev when `path` is NULL. While another program has it, tries again for
 * `wait_milliseconds`; 0 tries once. *portal is the handle, or NULL after a failure: UNAVAILABLE, BUSY or NO_PERMISSION,
 * with the system's error number in errno. The descriptor is closed in programs that this one executes.
 */
int captiveportal_open(const char *path, unsigned int wait_milliseconds, struct captiveportal **portal);

/* Closes the device and frees the handle, which may be NULL. */
void captiveportal_close(struct captiveportal *portal);

/*
 * Whether stores are verified (`on` not 0, as it is after opening) or not. Without, a store sends one record and its
 * result is the device's answer: for thousands of clients at once, by a caller who reads the list once afterwards.
 */
void captiveportal_read_back(struct captiveportal *portal, int on);

/*
 * A command of the device as it is, for records that this library does not know: `record` has `size` bytes and is written
 * to by commands that answer. Returns what ioctl() returns, a failure as the negative error number; -EINVAL, and sends nothing,
 * when there is no record, or one that is smaller than the module takes it to be.
 */
long captiveportal_exchange(struct captiveportal *portal, uint32_t command, void *record, size_t size);

/* The same for a command whose argument is the value itself. */
long captiveportal_pass_value(struct captiveportal *portal, uint32_t command, uint32_t value);

/*
 * Something else in the place of the device: a test's own, or the device in another process. The functions get `context`.
 * `size` is sizeof(struct captiveportal_transport).
 */
struct captiveportal_transport {
	size_t size;
	/* As captiveportal_exchange() and captiveportal_pass_value(). */
	long (*exchange)(void *context, uint32_t command, void *record, size_t size);
	long (*pass_value)(void *context, uint32_t command, uint32_t value);
	/*
	 * The status file of that name, whole: *text from malloc(), *length its bytes. Returns 0 or a negative error
	 * number. May be NULL: the files below /proc/captive_portal are read.
	 */
	int (*read_status)(void *context, const char *name, char **text, size_t *length);
	/* At the end of captiveportal_close(). May be NULL. */
	void (*close)(void *context);
};

/* Makes a handle that uses the transport, which is copied. NO_MEMORY or INVALID, else OK. */
int captiveportal_open_transport(const struct captiveportal_transport *transport, void *context,
				 struct captiveportal **portal);

/* --- addresses and names -------------------------------------------------------------------------------------------- */

/* A hardware address, its bytes in the order in which they are sent. */
struct captiveportal_mac {
	uint8_t octets[6];
};

enum {
	/* Room for "02:00:5e:10:00:01", for a dotted quad, and for any interface name, with their NUL. */
	CAPTIVEPORTAL_MAC_SIZE = 18,
	CAPTIVEPORTAL_ADDRESS_SIZE = 16,
	CAPTIVEPORTAL_INTERFACE_SIZE = 16,

	CAPTIVEPORTAL_INTERFACES = 24,
	CAPTIVEPORTAL_OWE_INTERFACES = 9,
};

/* Reads six pairs of hexadecimal digits with ':' or '-' between them. OK or INVALID. */
int captiveportal_parse_mac(const char *text, struct captiveportal_mac *mac);

/* Whether a station can send from the address: INVALID for the zero address and for group addresses, else OK. */
int captiveportal_check_station(const struct captiveportal_mac *mac);

/* Writes the address in lower case with colons. */
void captiveportal_format_mac(const struct captiveportal_mac *mac, char text[CAPTIVEPORTAL_MAC_SIZE]);

/* Reads a strict dotted quad: four numbers from 0 to 255 without leading zeros. OK or INVALID. */
int captiveportal_parse_address(const char *text, uint32_t *address);

void captiveportal_format_address(uint32_t address, char text[CAPTIVEPORTAL_ADDRESS_SIZE]);

/* The mask with `length` leading ones; all ones from 32 on. */
uint32_t captiveportal_netmask(unsigned int length);

/* Number of the mask's leading ones, 0 to 32. INVALID when ones follow a zero. */
int captiveportal_prefix_length(uint32_t netmask);

/* The row of a wireless interface: *row is 0 ("wlan-1-1") to 23 ("wlan-3-8"). OK or INVALID. */
int captiveportal_parse_interface(const char *name, uint32_t *row);

/* The row of an OWE companion: *row is 0 ("wlan-1-14") to 8 ("wlan-3-16"). OK or INVALID. */
int captiveportal_parse_owe_interface(const char *name, uint32_t *row);

/*
 * The name of a row. Of an interface it is 0 to 23, and 24 to 27 for the module's further rows: "special-mark", "mode-7",
 * "social-login" and "mirel", as the status files name them. Of an OWE companion it is 0 to 8. OK, or INVALID and an empty
 * name.
 */
int captiveportal_interface_name(uint32_t row, char name[CAPTIVEPORTAL_INTERFACE_SIZE]);
int captiveportal_owe_interface_name(uint32_t row, char name[CAPTIVEPORTAL_INTERFACE_SIZE]);

/*
 * The packet mark of a client that is not logged in, and the ports on which the access point's web service meets its HTTP
 * and its HTTPS (host byte order), by the row of the interface; 0 for a row above 23.
 */
uint32_t captiveportal_mark(uint32_t row);
uint16_t captiveportal_http_port(uint32_t row);
uint16_t captiveportal_https_port(uint32_t row);

/* --- clients --------------------------------------------------------------------------------------------------------- */

/* The tables of clients. All but the two last have a list for each interface; those two take NULL for an interface. */
enum captiveportal_table {
	CAPTIVEPORTAL_WHITE,
	CAPTIVEPORTAL_AUTH,
	/* Clients that have logged in. */
	CAPTIVEPORTAL_LOGIN,
	CAPTIVEPORTAL_GA_WHITE,
	CAPTIVEPORTAL_MAC_AUTH_FALLBACK,
	CAPTIVEPORTAL_MIREL_WHITE,
	CAPTIVEPORTAL_MIREL_BLACK,
	CAPTIVEPORTAL_TABLES,
};

/* Name of the table, as in the status files ("login", "mirel-black"); NULL when there is none. */
const char *captiveportal_table_name(int table);

/*
 * Lists the client. UNCHANGED when it is listed: no second entry is made, since it would outlive a deletion. A client that
 * joins CAPTIVEPORTAL_MIREL_WHITE leaves CAPTIVEPORTAL_MIREL_BLACK. INVALID for an address that no station can send from.
 */
int captiveportal_add_client(struct captiveportal *portal, int table, const char *interface,
			     const struct captiveportal_mac *mac);

/*
 * Removes every entry of the client; UNCHANGED when there was none. One that leaves CAPTIVEPORTAL_MIREL_WHITE leaves
 * CAPTIVEPORTAL_MIREL_BLACK as well.
 */
int captiveportal_delete_client(struct captiveportal *portal, int table, const char *interface,
				const struct captiveportal_mac *mac);

/*
 * Whether the client is listed: *listed is 1 or 0. INCOMPLETE when it is not among the first CAPTIVEPORTAL_LIST_MOST of a
 * table that the module does not search (auth and the mirel tables): the status file "clients" has them all.
 */
int captiveportal_check_client(struct captiveportal *portal, int table, const char *interface,
			       const struct captiveportal_mac *mac, int *listed);

/* The most clients that the device tells of a list. */
enum { CAPTIVEPORTAL_LIST_MOST = 1034 };

/*
 * The clients of a list in the order of their adding: up to `room` of them into `macs`, *count says how many were written.
 * INCOMPLETE when there may be more.
 */
int captiveportal_list_clients(struct captiveportal *portal, int table, const char *interface,
			       struct captiveportal_mac *macs, size_t room, size_t *count);

/* Empties a list. With the interface "all" every list of the table. */
int captiveportal_flush_clients(struct captiveportal *portal, int table, const char *interface);

/* Empties the five lists of an interface in one step, or with "all" those of every interface. */
int captiveportal_flush_interface(struct captiveportal *portal, const char *interface);

/* --- settings of an interface ---------------------------------------------------------------------------------------- */

/* Portal modes; every other value is "on" as well. */
enum captiveportal_mode {
	CAPTIVEPORTAL_MODE_OFF = 0,
	CAPTIVEPORTAL_MODE_ON = 1,
	/* Destinations outside private networks, the gateway, and ping of the access point pass. */
	CAPTIVEPORTAL_MODE_INTERNET_PASSES = 7,
	/* Every TCP segment is dropped; DHCP and DNS pass. */
	CAPTIVEPORTAL_MODE_DROP_TCP = 8,
};

/* HTTPS of clients that are not logged in; every value above 2 redirects as well. */
enum captiveportal_https {
	CAPTIVEPORTAL_HTTPS_PASSES = 0,
	/* Dropped where the walled garden is on and nothing in it matches, redirected where it is off. */
	CAPTIVEPORTAL_HTTPS_BLOCKED = 1,
	CAPTIVEPORTAL_HTTPS_REDIRECTED = 2,
};

/* The four take a wireless interface or a further row. What they store is read back from the status files. */
int captiveportal_set_mode(struct captiveportal *portal, const char *interface, uint32_t mode);
int captiveportal_set_https(struct captiveportal *portal, const char *interface, uint32_t https);
/* The address whose visit logs a client out, a dotted quad; NULL or "" for none. */
int captiveportal_set_logout(struct captiveportal *portal, const char *interface, const char *address);
/* A number that the module stores for its caller and does not read. */
int captiveportal_set_stored_number(struct captiveportal *portal, const char *interface, uint32_t value);

/* What an interface does with clients in no list while its uplink is away; every other behaviour drops all. */
enum captiveportal_behavior {
	CAPTIVEPORTAL_DROP_ALL = 0,
	CAPTIVEPORTAL_PASS_ALL = 1,
	CAPTIVEPORTAL_PASS_DHCP = 2,
};

/* Every other number is "connected" as well: the portal decides. */
enum captiveportal_uplink {
	CAPTIVEPORTAL_CONNECTED = 1,
	CAPTIVEPORTAL_DISCONNECTED = 2,
};

int captiveportal_set_disconnection(struct captiveportal *portal, const char *interface, uint32_t behavior,
				    uint32_t uplink);
int captiveportal_get_disconnection(struct captiveportal *portal, const char *interface, uint32_t *behavior,
				    uint32_t *uplink);

/* Frames on the OWE companion ("wlan-1-14" to "wlan-3-16") are judged as if they came on the interface. */
int captiveportal_map_owe(struct captiveportal *portal, const char *owe_interface, const char *interface);
/* Forgets what the companion is paired with, if anything. */
int captiveportal_unmap_owe(struct captiveportal *portal, const char *owe_interface);
/* The interface that the companion is paired with; an empty name when there is none. */
int captiveportal_get_owe(struct captiveportal *portal, const char *owe_interface,
			  char interface[CAPTIVEPORTAL_INTERFACE_SIZE]);
/* Forgets all companions. */
int captiveportal_flush_owe(struct captiveportal *portal);

struct captiveportal_status {
	uint32_t mark;
	uint32_t mode;
	uint32_t garden;
	uint32_t https;
	/* Of the access point; 0 until the module first needs it. */
	uint32_t address;
};

/*
 * Settings of a wireless interface (or of "special-mark") by command 2 of the device. UNANSWERED where the kernel's file
 * layer takes the command for its own, which it does for every program of 64 bits: read the status file "status" there.
 */
int captiveportal_get_status(struct captiveportal *portal, const char *interface, struct captiveportal_status *status);

/* --- settings of the whole module ------------------------------------------------------------------------------------ */

/* The access point's gateway; 0 for none. */
int captiveportal_set_gateway(struct captiveportal *portal, uint32_t address);
int captiveportal_get_gateway(struct captiveportal *portal, uint32_t *address);

/* Off when 0. */
int captiveportal_set_dns_filter(struct captiveportal *portal, uint32_t on);

/* 0: the packet path writes nothing to the kernel's log; 1 to 3: ever more. */
int captiveportal_set_debug_level(struct captiveportal *portal, uint32_t level);

/* --- walled gardens -------------------------------------------------------------------------------------------------- */

enum {
	CAPTIVEPORTAL_RULES_MOST = 24,
	/* A pattern of 127 characters, and its NUL. */
	CAPTIVEPORTAL_PATTERN_SIZE = 128,
};

enum captiveportal_rule_type {
	CAPTIVEPORTAL_RULE_DOMAIN = 0,
	CAPTIVEPORTAL_RULE_ADDRESS = 1,
};

/*
 * A domain rule has a pattern: a name, where '*' and '?' stand for any run of characters. An address rule has an address
 * and a mask; the module compares a pattern of it with names, too, so leave it empty.
 */
struct captiveportal_rule {
	uint32_t type;
	uint32_t address;
	uint32_t netmask;
	char pattern[CAPTIVEPORTAL_PATTERN_SIZE];
};

struct captiveportal_garden {
	/* Whether the garden is on; means nothing for default rules. */
	uint32_t enabled;
	uint32_t count;
	struct captiveportal_rule rules[CAPTIVEPORTAL_RULES_MOST];
};

/*
 * Reads a rule as people write it: a pattern ("*.example.com"), A.B.C.D, A.B.C.D/LENGTH or A.B.C.D/MASK. INVALID for what
 * the module would cut or never match: an empty pattern, one of more than 127 characters, one with blanks or signs that no
 * name has, or with a dot at its end.
 */
int captiveportal_parse_rule(const char *text, struct captiveportal_rule *rule);

/* The same for a default rule: an exact name, no wildcards, no address. */
int captiveportal_parse_default_rule(const char *text, struct captiveportal_rule *rule);

/* Room for every rule as text. */
enum { CAPTIVEPORTAL_RULE_SIZE = 128 };

/* As captiveportal_parse_rule() reads it. */
void captiveportal_format_rule(const struct captiveportal_rule *rule, char text[CAPTIVEPORTAL_RULE_SIZE]);

/* Switch and rules of a wireless interface, or of a further row, which is read back from the status files. */
int captiveportal_replace_garden(struct captiveportal *portal, const char *interface,
				 const struct captiveportal_garden *garden);
/* The switch alone of either; the rules stay. */
int captiveportal_switch_garden(struct captiveportal *portal, const char *interface, uint32_t enabled);
/* Of a wireless interface. */
int captiveportal_get_garden(struct captiveportal *portal, const char *interface, struct captiveportal_garden *garden);

/* Exact names that are open on every interface. */
int captiveportal_replace_default_rules(struct captiveportal *portal, const struct captiveportal_garden *names);
int captiveportal_get_default_rules(struct captiveportal *portal, struct captiveportal_garden *names);

/* --- status files ---------------------------------------------------------------------------------------------------- */

/*
 * The whole of /proc/captive_portal/NAME: "status", "clients", "garden", "counters" or "cache". No device is needed:
 * `portal` may be NULL, and somebody else may have it open. *text is ended by NUL behind its *length bytes and given back
 * with captiveportal_free(). UNAVAILABLE or NO_PERMISSION, with errno, when it cannot be read.
 */
int captiveportal_read_status(struct captiveportal *portal, const char *name, char **text, size_t *length);

void captiveportal_free(void *memory);

/* A line, in the text that it was found in: a keyword and "key=value" pairs. */
struct captiveportal_line {
	const char *text;
	size_t length;
};

/*
 * The line at *cursor, which moves behind it; the first time *cursor is the text. Returns 1, or 0 at the text's end.
 *
 *	const char *cursor = text;
 *	while (captiveportal_next_line(&cursor, &line))
 */
int captiveportal_next_line(const char **cursor, struct captiveportal_line *line);

/* Whether the line begins with that keyword: 1 or 0. */
int captiveportal_line_is(const struct captiveportal_line *line, const char *keyword);

/* The value of the key, its escapes undone, into `size` bytes. INVALID when there is none, or no room for it and its NUL. */
int captiveportal_line_text(const struct captiveportal_line *line, const char *key, char *value, size_t size);

/* The value of the key as a number, decimal or with 0x. INVALID when there is none. */
int captiveportal_line_number(const struct captiveportal_line *line, const char *key, int64_t *value);

#ifdef __GNUC__
#pragma GCC visibility pop
#endif

#ifdef __cplusplus
}
#endif

#endif
