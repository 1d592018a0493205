// SPDX-License-Identifier: GPL-2.0-only
#include "core/control_device.h"

#include "base/atomic_word.h"
#include "base/debug_level.h"
#include "base/memory.h"
#include "captive_portal/control.h"
#include "garden/walled_garden.h"
#include "gatekeeper/gatekeeper_commands.h"
#include "portal/portal_commands.h"

namespace captive_portal
{

constinit const cp_misc_device captive_portal_misc_dev = {CP_MISC_DYNAMIC_MINOR, CP_DEVICE_NAME};
constinit uint32_t cp_dev_in_use = 0;

namespace
{

constexpr long refused = -1;
constexpr int busy = -16;

// What a family of commands logs when a record cannot be read.
constexpr char portal_copy_in[] = "[captive portal] get data from user space error\n";
constexpr char garden_copy_in[] = "[walled garden] get data from user space error\n";
constexpr char gatekeeper_copy_in[] = "[gatekeeper] get data from user space error\n";
constexpr char gateway_copy_in[] = "[gateway] get data from user space error\n";

// What it would log for a reply. The first names the gatekeeper deliberately.
constexpr char portal_copy_out[] = "[captive portal] GATEKEEPER_IOCTL_GET copy to user space error\n";
constexpr char garden_copy_out[] = "[walled garden] WALLED_GARDEN_IOCTL_GET copy to user space error\n";
constexpr char gateway_copy_out[] = "[gateway] GATEWAY_IOCTL_GET copy to user space error\n";
constexpr char gatekeeper_copy_out[] = "[gatekeeper] GATEKEEPER_IOCTL_GET copy to user space error\n";

// A residue is never negative, so the test never fires and the line is never printed; both are kept on purpose.
long log_if_negative(size_t residue, const char *message)
{
	const long result = static_cast<long>(residue);
	if (result < 0) {
		cp_log(CP_LOG_DEBUG, "%s", message);
	}
	return result;
}

// Copies a record in and gives the handler's result.
template <typename Record, typename Handle>
long take_record(cp_user_address user, const char *copy_in_message, Handle handle)
{
	const Owned<Record> record(cp_memdup_user(user, sizeof(Record)));
	if (!record) {
		cp_log(CP_LOG_DEBUG, "%s", copy_in_message);
		return refused;
	}
	return handle(*record);
}

// Copies a record in, lets the handler fill it, and copies it back whole: the number of bytes not copied back.
template <typename Record, typename Fill>
long exchange_record(cp_user_address user, const char *copy_in_message, const char *copy_out_message, Fill fill)
{
	return take_record<Record>(user, copy_in_message, [&](Record &record) {
		fill(record);
		return log_if_negative(cp_copy_to_user(user, &record, sizeof(record)), copy_out_message);
	});
}

// Stores the address in every case: what could not be read is 0, and the result of the copy is looked at as if it
// could be negative.
long take_gateway(cp_user_address user)
{
	Ipv4Address address = {};
	const long result = log_if_negative(cp_copy_from_user(&address, user, sizeof(address)), gateway_copy_in);
	if (result < 0) {
		return result;
	}
	set_gateway(address);
	return 0;
}

long give_gateway(cp_user_address user)
{
	Ipv4Address address = {};
	get_gateway(address);
	return log_if_negative(cp_copy_to_user(user, &address, sizeof(address)), gateway_copy_out);
}

long set_debug_level(unsigned long argument)
{
	const auto level = static_cast<int32_t>(static_cast<uint32_t>(argument));
	store_word(debug_level, level);
	cp_log(CP_LOG_DEBUG, "[env_set] set debug_level = %d\n", level);
	return 0;
}

} // namespace

} // namespace captive_portal

using namespace captive_portal;

int captive_portal_open(void)
{
	if (load_word(cp_dev_in_use) != 0) {
		return busy;
	}
	store_word(cp_dev_in_use, 1U);
	cp_module_get();
	return 0;
}

int captive_portal_release(void)
{
	store_word(cp_dev_in_use, load_word(cp_dev_in_use) - 1);
	cp_module_put();
	return 0;
}

long captive_portal_ioctl(int32_t command, unsigned long argument)
{
	switch (command) {
	case CAPTIVE_PORTAL_IOCTL_SET:
		return take_record<cp_cmd>(argument, portal_copy_in,
					   [](const cp_cmd &record) { return long{if_device_write_cp(record)}; });
	case CAPTIVE_PORTAL_IOCTL_GET:
		return exchange_record<cp_status>(argument, portal_copy_in, portal_copy_out,
						  [](cp_status &record) { get_captive_portal_status(record); });
	case WALLED_GARDEN_IOCTL_SET:
		return take_record<wg_cmd>(argument, garden_copy_in, [](const wg_cmd &record) {
			return long{if_device_write_wg(&record, sizeof(record))};
		});
	case WALLED_GARDEN_IOCTL_GET:
		return exchange_record<wg_cmd>(argument, garden_copy_in, garden_copy_out,
					       [](wg_cmd &record) { get_walled_garden_list(&record); });
	case GATEWAY_IOCTL_SET:
		return take_gateway(argument);
	case GATEWAY_IOCTL_GET:
		return give_gateway(argument);
	case GATEKEEPER_IOCTL_SET:
		return take_record<gk_cmd>(argument, gatekeeper_copy_in,
					   [](const gk_cmd &record) { return long{if_device_write_gk(record)}; });
	case GATEKEEPER_IOCTL_GET:
		return exchange_record<gk_list_reply>(argument, gatekeeper_copy_in, gatekeeper_copy_out,
						      [](gk_list_reply &record) { get_gatekeeper_list(record); });
	case GATEKEEPER_IOCTL_CHECK:
		return exchange_record<gk_check_reply>(argument, gatekeeper_copy_in, gatekeeper_copy_out,
						       [](gk_check_reply &record) { check_gatekeeper_list(record); });
	case ENV_SET_DEBUG_LEVEL:
		return set_debug_level(argument);
	default:
		return refused;
	}
}

long captive_portal_compat_ioctl(uint32_t command, unsigned long argument)
{
	// The prefix is the program's own, whatever the call is about.
	cp_log(CP_LOG_DEBUG, "[walled garden] start to get compat ioctl\n");
	return captive_portal_ioctl(static_cast<int32_t>(command), static_cast<uint32_t>(argument));
}
