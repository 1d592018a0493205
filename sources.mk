# The objects of the module's core: the one list that the kernel build and the host build read.
captive_portal-core := \
	base/debug_level.o \
	base/fixed_addresses.o \
	base/interface_name.o \
	base/packet.o \
	base/scan_decimal.o \
	core/control_device.o \
	core/module.o \
	garden/arecord_cache.o \
	garden/arecord_index.o \
	garden/arecord_refresh.o \
	garden/arecord_removal.o \
	garden/dns_name.o \
	garden/dns_name_ends.o \
	garden/dns_parser.o \
	garden/dns_side.o \
	garden/expiry_thread.o \
	garden/matched_interfaces.o \
	garden/pattern.o \
	garden/report.o \
	garden/rule_index.o \
	garden/summary.o \
	garden/walled_garden.o \
	garden/walled_garden_commands.o \
	gatekeeper/bridge_gatekeeper.o \
	gatekeeper/client_index.o \
	gatekeeper/client_tables.o \
	gatekeeper/gatekeeper_commands.o \
	gatekeeper/gatekeeper_replies.o \
	portal/connections.o \
	portal/interface_table.o \
	portal/lookups.o \
	portal/portal_commands.o \
	portal/post_routing_rewrite.o \
	portal/pre_routing_check.o \
	portal/redirect.o
