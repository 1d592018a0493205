// SPDX-License-Identifier: GPL-2.0-only
// Settings of an interface and of the whole module: commands 1, 2, 6, 7, 11, and the settings among commands 8 and 9.
#include <cerrno>
#include <memory>

#include "captive_portal/captive_portal.h"
#include "lib/addresses.h"
#include "lib/failure.h"
#include "lib/handle.h"
#include "lib/interface.h"
#include "lib/interface_names.h"
#include "lib/status_files.h"

namespace libcaptiveportal
{

namespace
{

static_assert(CAPTIVEPORTAL_MODE_ON == +CP_MODE_ON && CAPTIVEPORTAL_MODE_DROP_TCP == +CP_MODE_DROP_TCP);
static_assert(CAPTIVEPORTAL_MODE_INTERNET_PASSES == +CP_MODE_INTERNET_PASSES);
static_assert(CAPTIVEPORTAL_HTTPS_BLOCKED == +CP_HTTPS_BLOCKED && CAPTIVEPORTAL_HTTPS_PASSES == +CP_HTTPS_PASSES);
static_assert(CAPTIVEPORTAL_PASS_ALL == +OVRA_PASS_ALL && CAPTIVEPORTAL_PASS_DHCP == +OVRA_PASS_DHCP);
static_assert(CAPTIVEPORTAL_DISCONNECTED == +OVRA_DISCONNECTED);
static_assert(CAPTIVEPORTAL_ADDRESS_SIZE == +CP_DOTTED_QUAD_SIZE);

// Lines above it print no more.
constexpr uint32_t highest_debug_level = 3;

// Compares a value in the status file with what was stored: of the line that begins so and has that name, or no name.
int verify(const captiveportal &portal, std::string_view keyword, std::string_view name, std::string_view key,
	   const std::string &wanted)
{
	if (!portal.read_back) {
		return CAPTIVEPORTAL_OK;
	}
	std::string text;
	try {
		text = read_status_file(&portal, "status");
	} catch (const Failure &) {
		return CAPTIVEPORTAL_UNVERIFIED;
	}
	std::string_view rest = text;
	while (const auto line = take_line(rest)) {
		if (keyword_of(*line) != keyword || (!name.empty() && value_of(*line, "name") != name)) {
			continue;
		}
		const auto stored = value_of(*line, key);
		if (!stored) {
			return CAPTIVEPORTAL_UNVERIFIED;
		}
		if (*stored != wanted) {
			throw not_stored(std::string(name) + (name.empty() ? "" : ": ") + std::string(key));
		}
		return CAPTIVEPORTAL_OK;
	}
	return CAPTIVEPORTAL_UNVERIFIED;
}

int verify(const captiveportal &portal, std::string_view keyword, std::string_view name, std::string_view key,
	   uint32_t wanted)
{
	return verify(portal, keyword, name, key, std::to_string(wanted));
}

void set(const captiveportal &portal, cp_set_command sub_command, uint32_t row, uint32_t value,
	 std::string_view text = {})
{
	cp_cmd record = {.cmd = sub_command, .iface = static_cast<int32_t>(row), .enable_value = value, .value = {}};
	store_text(record.value, text);
	exchange(portal, CAPTIVE_PORTAL_IOCTL_SET, record);
}

int set_number(captiveportal *handle, const char *interface, cp_set_command sub_command, std::string_view key,
	       uint32_t value)
{
	const captiveportal &portal = given(handle, "handle");
	const uint32_t row = row_of_any(word_of(interface));
	set(portal, sub_command, row, value);
	return verify(portal, "interface", word_of(interface), key, value);
}

std::unique_ptr<gk_list_reply> ask(const captiveportal &portal, gk_get_command sub_command, std::string_view interface,
				   std::string_view owe_interface)
{
	auto record = std::make_unique<gk_list_reply>();
	record->cmd = sub_command;
	record->count = unanswered;
	store_text(record->iface, interface);
	store_text(record->owe_iface, owe_interface);
	exchange(portal, GATEKEEPER_IOCTL_GET, *record);
	return record;
}

std::string owe_mapping(const captiveportal &portal, std::string_view owe_interface)
{
	return std::string(text_of(ask(portal, GET_MAPPING_OWE_VAP, {}, owe_interface)->iface));
}

// No interface is an empty name, which the module stores as it stores any.
int pair_owe(const captiveportal &portal, std::string_view owe_interface, std::string_view interface)
{
	gk_cmd record = {};
	record.cmd = ADD_MAPPING_OWE_VAP;
	store_text(record.iface, interface);
	store_text(record.owe_iface, owe_interface);
	exchange(portal, GATEKEEPER_IOCTL_SET, record);
	if (portal.read_back && owe_mapping(portal, owe_interface) != interface) {
		throw not_stored(std::string(owe_interface) + ": its interface");
	}
	return CAPTIVEPORTAL_OK;
}

} // namespace

} // namespace libcaptiveportal

using namespace libcaptiveportal;

extern "C" {

int captiveportal_set_mode(captiveportal *portal, const char *interface, uint32_t mode)
{
	return guarded([&] {
		const bool mirel = row_of_any(word_of(interface)) == CP_ROW_MIREL;
		return set_number(portal, interface, mirel ? CAPTIVE_PORTAL_MIREL : CAPTIVE_PORTAL, "mode", mode);
	});
}

int captiveportal_set_https(captiveportal *portal, const char *interface, uint32_t https)
{
	return guarded([&] { return set_number(portal, interface, BLOCK_HTTPS, "block_https", https); });
}

int captiveportal_set_stored_number(captiveportal *portal, const char *interface, uint32_t value)
{
	return guarded([&] { return set_number(portal, interface, CP_WALLED_GARDEN, "walled_garden", value); });
}

int captiveportal_set_logout(captiveportal *portal, const char *interface, const char *address)
{
	return guarded([&] {
		const captiveportal &handle = given(portal, "handle");
		const std::string_view text = word_of(address);
		const uint32_t row = row_of_any(word_of(interface));
		if (!text.empty() && scan_address(text).value_or(0) == 0) {
			throw invalid(quoted(text) + " is no logout address: write four numbers from 0 to 255 with "
						     "dots, not all 0");
		}
		set(handle, LOGOUT_IP_NOTIFY, row, 0, text);
		return verify(handle, "interface", word_of(interface), "logout", std::string(text));
	});
}

int captiveportal_set_disconnection(captiveportal *portal, const char *interface, uint32_t behavior, uint32_t uplink)
{
	return guarded([&] {
		const captiveportal &handle = given(portal, "handle");
		(void)row_of_interface(word_of(interface));
		gk_cmd record = {};
		record.cmd = SET_OVRA_BEHAVIOR;
		record.behavior = behavior;
		record.status = uplink;
		store_text(record.iface, word_of(interface));
		exchange(handle, GATEKEEPER_IOCTL_SET, record);
		if (handle.read_back) {
			const auto stored = ask(handle, GET_OVRA_BEHAVIOR, word_of(interface), {});
			if (stored->behavior != behavior || stored->status != uplink) {
				throw not_stored(std::string(interface) + ": disconnection");
			}
		}
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_get_disconnection(captiveportal *portal, const char *interface, uint32_t *behavior, uint32_t *uplink)
{
	return guarded([&] {
		(void)row_of_interface(word_of(interface));
		const auto stored = ask(given(portal, "handle"), GET_OVRA_BEHAVIOR, word_of(interface), {});
		given(behavior, "place for a behaviour") = stored->behavior;
		given(uplink, "place for a status") = stored->status;
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_map_owe(captiveportal *portal, const char *owe_interface, const char *interface)
{
	return guarded([&] {
		const captiveportal &handle = given(portal, "handle");
		(void)row_of_owe_interface(word_of(owe_interface));
		(void)row_of_interface(word_of(interface));
		return pair_owe(handle, word_of(owe_interface), word_of(interface));
	});
}

int captiveportal_unmap_owe(captiveportal *portal, const char *owe_interface)
{
	return guarded([&] {
		const captiveportal &handle = given(portal, "handle");
		(void)row_of_owe_interface(word_of(owe_interface));
		return pair_owe(handle, word_of(owe_interface), {});
	});
}

int captiveportal_get_owe(captiveportal *portal, const char *owe_interface,
			  char interface[CAPTIVEPORTAL_INTERFACE_SIZE])
{
	return guarded([&] {
		(void)row_of_owe_interface(word_of(owe_interface));
		store_text(&given(interface, "place for a name"), CAPTIVEPORTAL_INTERFACE_SIZE,
			   owe_mapping(given(portal, "handle"), owe_interface));
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_flush_owe(captiveportal *portal)
{
	return guarded([&] {
		const captiveportal &handle = given(portal, "handle");
		gk_cmd record = {};
		record.cmd = FLUSH_MAPPING_OWE_VAP;
		exchange(handle, GATEKEEPER_IOCTL_SET, record);
		for (uint32_t row = 0; handle.read_back && row < CP_OWE_INTERFACES; row++) {
			if (!owe_mapping(handle, owe_interface_of_row(row)).empty()) {
				throw not_stored(owe_interface_of_row(row) + ": its interface");
			}
		}
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_get_status(captiveportal *portal, const char *interface, captiveportal_status *status)
{
	return guarded([&] {
		cp_status record = {};
		record.cmd = CP_GET_STATUS;
		record.iface = row_of_any(word_of(interface));
		record.mark = unanswered;
		captiveportal_status &answer = given(status, "place for a status");
		const long result = send(given(portal, "handle"), CAPTIVE_PORTAL_IOCTL_GET, record);
		// The file layer answers number 2 with a block size in the first word, or EINVAL where a file system
		// has none. The module gives the first word back as it was sent.
		if (result == -EINVAL || record.cmd != CP_GET_STATUS) {
			return CAPTIVEPORTAL_UNANSWERED;
		}
		judge(CAPTIVE_PORTAL_IOCTL_GET, result);
		if (record.mark == unanswered) {
			throw no_answer(word_of(interface));
		}
		answer = {record.mark, record.cp_mode, record.walled_garden, record.block_https, record.ap_addr};
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_set_gateway(captiveportal *portal, uint32_t address)
{
	return guarded([&] {
		const captiveportal &handle = given(portal, "handle");
		exchange(handle, GATEWAY_IOCTL_SET, address);
		if (handle.read_back) {
			uint32_t stored = 0;
			exchange(handle, GATEWAY_IOCTL_GET, stored);
			if (stored != address) {
				throw not_stored("the gateway");
			}
		}
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_get_gateway(captiveportal *portal, uint32_t *address)
{
	return guarded([&] {
		uint32_t stored = 0;
		exchange(given(portal, "handle"), GATEWAY_IOCTL_GET, stored);
		given(address, "place for an address") = stored;
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_set_dns_filter(captiveportal *portal, uint32_t on)
{
	return guarded([&] {
		const captiveportal &handle = given(portal, "handle");
		set(handle, DNS_FILTER_ENABLE, 0, on);
		return verify(handle, "module", {}, "dns_filter", on);
	});
}

int captiveportal_set_debug_level(captiveportal *portal, uint32_t level)
{
	return guarded([&] {
		const captiveportal &handle = given(portal, "handle");
		if (level > highest_debug_level) {
			throw invalid("there is no debug level " + std::to_string(level) + ": the highest is " +
				      std::to_string(highest_debug_level));
		}
		judge(ENV_SET_DEBUG_LEVEL, handle.transport.pass_value(handle.context, ENV_SET_DEBUG_LEVEL, level));
		return verify(handle, "module", {}, "debug_level", level);
	});
}
}
