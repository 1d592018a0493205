// SPDX-License-Identifier: GPL-2.0-only
// Start and stop. The hooks and the device live before the tables are filled: until then a hook sees zero rows.
#include "core/module.h"

#include "base/atomic_word.h"
#include "base/counters.h"
#include "base/debug_level.h"
#include "base/fixed_addresses.h"
#include "base/lock.h"
#include "core/control_device.h"
#include "core/status.h"
#include "garden/dns_side.h"
#include "garden/walled_garden.h"
#include "gatekeeper/client_tables.h"
#include "platform/platform.h"
#include "portal/connections.h"
#include "portal/interface_table.h"

namespace captive_portal
{

namespace
{

constexpr uint8_t bridge_family = 7;
constexpr uint32_t bridge_pre_routing = 0;
constexpr uint32_t bridge_post_routing = 4;

} // namespace

// The lower priority number runs first: the gatekeeper's mark is there when the portal check looks for it.
constinit const cp_hook captive_portal_hooks[captive_portal_hook_count] = {
	{.function = ebt_gate_keeper,
	 .protocol_family = bridge_family,
	 .hook_number = bridge_pre_routing,
	 .priority = -320},
	{.function = nf_cp_check,
	 .protocol_family = bridge_family,
	 .hook_number = bridge_pre_routing,
	 .priority = -310},
	{.function = nf_cp_change,
	 .protocol_family = bridge_family,
	 .hook_number = bridge_post_routing,
	 .priority = 80},
};

} // namespace captive_portal

using namespace captive_portal;

int captive_portal_init(void)
{
	cp_log(CP_LOG_DEBUG, "%s\n", "captive_portal_init");
	cp_log(CP_LOG_DEBUG, "[init captive portal] minor:%d, name:%s\n", captive_portal_misc_dev.minor,
	       captive_portal_misc_dev.name);
	store_word(debug_level, static_cast<int32_t>(CP_DEFAULT_DEBUG_LEVEL));
	init_client_index();
	seed_connection_index();
	// Without them nothing is counted, and the rest works.
	static_cast<void>(cp_counters_create(counter_count));

	if (cp_register_hooks(captive_portal_hooks, captive_portal_hook_count) < 0) {
		cp_log(CP_LOG_DEBUG, "nf_register_hook fail\n");
	}
	const int error = cp_misc_register(&captive_portal_misc_dev);
	if (error != 0) {
		cp_log(CP_LOG_DEBUG, "[captive portal] cannot register miscdev on minor=%d (err=%d)\n",
		       captive_portal_misc_dev.minor, error);
		cp_log(CP_LOG_DEBUG, "[captive portal] captive_portal_misc_dev failed!!\n");
		// The hooks deliberately stay registered; the platform takes them off when it drops the module.
		cp_misc_deregister(&captive_portal_misc_dev);
		return error;
	}

	init_client_tables();
	init_captive_portal_table();
	clear_access_point_addresses();
	init_walled_garden_table();
	clear_mirel_lists();
	init_social_login_address();
	{
		const LockGuard guard(Lock::cp);
		store_word(dns_filter_activate, 0U);
	}
	init_dns_filter_address();
	dns_parse_init();
	// Without the files the module's state cannot be read, and the rest works.
	static_cast<void>(cp_status_create(&status_directory));
	return 0;
}

void captive_portal_exit(void)
{
	cp_log(CP_LOG_DEBUG, "%s\n", "captive_portal_exit");
	cp_unregister_hooks(captive_portal_hooks, captive_portal_hook_count);
	cp_misc_deregister(&captive_portal_misc_dev);
	cp_status_remove(&status_directory);
	dns_parse_exit();
	// MAC lists and connections deliberately stay as they are; their indexes are no lists.
	free_client_index();
	free_connection_index();
	free_walled_garden_rules();
	cp_counters_remove();
}
