// SPDX-License-Identifier: GPL-2.0-only
/*
 * Questions about network devices of the initial network namespace. All of them look inside an RCU read section and
 * copy the answer out, so no device reference is ever taken: none can be forgotten, and a device can always be deleted.
 * What they copy the kernel changes under a lock that a packet hook cannot take; a caller that meets a change gets the old
 * answer, the new one, or of a hardware address a part of each.
 */
#include "platform/linux/glue.h"

#include <linux/etherdevice.h>
#include <linux/inetdevice.h>
#include <linux/kernel.h>
#include <linux/netdevice.h>
#include <linux/rcupdate.h>
#include <linux/string.h>
#include <net/net_namespace.h>

#include "platform/linux/compat/data_race.h"
#include "platform/linux/compat/first_ipv4_address.h"

enum cp_ipv4_result cp_first_ipv4_of_device(const char *name, uint32_t *address)
{
	enum cp_ipv4_result result = CP_IPV4_NO_DEVICE;
	const struct in_device *configuration;
	const struct in_ifaddr *first;
	struct net_device *device;

	rcu_read_lock();
	device = dev_get_by_name_rcu(&init_net, name);
	if (!device)
		goto out;
	result = CP_IPV4_NO_CONFIGURATION;
	configuration = __in_dev_get_rcu(device);
	if (!configuration)
		goto out;
	result = CP_IPV4_NO_ADDRESS;
	first = first_ipv4_address(configuration);
	if (!first)
		goto out;
	*address = (__force uint32_t)READ_ONCE(first->ifa_local);
	result = CP_IPV4_FOUND;
out:
	rcu_read_unlock();
	return result;
}

int cp_hardware_address_of_device(const char *name, uint8_t mac[6])
{
	struct net_device *device;

	rcu_read_lock();
	device = dev_get_by_name_rcu(&init_net, name);
	/* A device without an Ethernet address has other bytes there, never fewer: the kernel keeps MAX_ADDR_LEN. */
	if (device)
		data_race(memcpy(mac, device->dev_addr, ETH_ALEN));
	rcu_read_unlock();
	return device != NULL;
}

enum cp_bridge_result cp_bridge_of_port(const char *port, char *bridge, size_t size)
{
	enum cp_bridge_result result = CP_BRIDGE_NO_DEVICE;
	struct net_device *device, *master;

	rcu_read_lock();
	device = dev_get_by_name_rcu(&init_net, port);
	if (!device)
		goto out;
	result = CP_BRIDGE_NOT_A_PORT;
	if (!data_race(netif_is_bridge_port(device)))
		goto out;
	/* A port that is just leaving its bridge has the flag still, and no master any more. */
	result = CP_BRIDGE_UNREACHABLE;
	master = netdev_master_upper_dev_get_rcu(device);
	if (!master)
		goto out;
	snprintf(bridge, size, "%s", master->name);
	result = CP_BRIDGE_FOUND;
out:
	rcu_read_unlock();
	return result;
}
