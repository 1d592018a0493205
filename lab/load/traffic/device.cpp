#include "device.h"

#include "captive_portal/control.h"
#include "sample.h"
#include "trouble.h"

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

namespace load
{

namespace
{

template <typename Field> void put_text(Field &field, const std::string &text)
{
	snprintf(field, sizeof(field), "%s", text.c_str());
}

void put_patterns(wg_cmd &record, const std::vector<std::string> &patterns)
{
	for (const std::string &pattern : patterns)
		put_text(record.rules[record.rule_number++].domain_name, pattern);
}

} // namespace

std::string row_name(unsigned row)
{
	return "wlan-" + std::to_string(row / 8 + 1) + "-" + std::to_string(row % 8 + 1);
}

Device::Device(Sample *sample) : file(open(CP_DEVICE_PATH, O_RDWR)), sample(sample)
{
	if (file < 0)
		throw_errno(CP_DEVICE_PATH);
}

Device::~Device()
{
	close(file);
}

void Device::call(unsigned command, void *record, unsigned size)
{
	bool changes = command == CAPTIVE_PORTAL_IOCTL_SET || command == WALLED_GARDEN_IOCTL_SET ||
		       command == GATEKEEPER_IOCTL_SET;
	if (sample && changes)
		sample->command(command, record, size);
	if (ioctl(file, command, record) != 0)
		throw_errno("command " + std::to_string(command));
	++call_count;
}

void Device::set_client(gk_set_command number, unsigned row, const Mac &mac)
{
	gk_cmd record{};
	record.cmd = number;
	put_text(record.iface, row_name(row));
	memcpy(record.mac, mac.data(), mac.size());
	call(GATEKEEPER_IOCTL_SET, &record, sizeof(record));
}

void Device::set_global_client(gk_set_command number, const Mac &mac)
{
	gk_cmd record{};
	record.cmd = number;
	memcpy(record.mac, mac.data(), mac.size());
	call(GATEKEEPER_IOCTL_SET, &record, sizeof(record));
}

void Device::pair_companion(const char *companion, unsigned row)
{
	gk_cmd record{};
	record.cmd = ADD_MAPPING_OWE_VAP;
	put_text(record.iface, row_name(row));
	put_text(record.owe_iface, companion);
	call(GATEKEEPER_IOCTL_SET, &record, sizeof(record));
}

void Device::flush_all_clients()
{
	gk_cmd record{};
	record.cmd = FLUSH_CAPTIVE_PORTAL_TABLE;
	put_text(record.iface, "all");
	call(GATEKEEPER_IOCTL_SET, &record, sizeof(record));
}

void Device::set_portal(cp_set_command number, unsigned row, uint32_t value, const char *text)
{
	cp_cmd record{};
	record.cmd = number;
	record.iface = int32_t(row);
	record.enable_value = value;
	put_text(record.value, text);
	call(CAPTIVE_PORTAL_IOCTL_SET, &record, sizeof(record));
}

void Device::set_default_rules(const std::vector<std::string> &names)
{
	auto record = std::make_unique<wg_cmd>();
	record->cmd = UPDATE_DEFAULT_RULE;
	put_patterns(*record, names);
	call(WALLED_GARDEN_IOCTL_SET, record.get(), sizeof(*record));
}

void Device::set_rules(unsigned row, const std::vector<std::string> &patterns, uint32_t network, uint32_t netmask)
{
	auto record = std::make_unique<wg_cmd>();
	record->cmd = UPDATE_RULE;
	record->iface = int32_t(row);
	record->enable_value = 1;
	put_patterns(*record, patterns);
	wg_rule &last = record->rules[record->rule_number++];
	last.rule_type = WG_RULE_ADDRESS;
	last.ip_addr = __builtin_bswap32(network);
	last.netmask = __builtin_bswap32(netmask);
	call(WALLED_GARDEN_IOCTL_SET, record.get(), sizeof(*record));
}

void Device::set_mirel_rules(const std::vector<std::string> &patterns)
{
	auto record = std::make_unique<wg_cmd>();
	record->cmd = UPDATE_MIREL_RULE;
	put_patterns(*record, patterns);
	call(WALLED_GARDEN_IOCTL_SET, record.get(), sizeof(*record));
}

unsigned Device::count_clients(gk_get_command number, unsigned row)
{
	auto record = std::make_unique<gk_list_reply>();
	record->cmd = number;
	put_text(record->iface, row_name(row));
	call(GATEKEEPER_IOCTL_GET, record.get(), sizeof(*record));
	return record->count;
}

bool Device::is_listed(gk_check_command number, unsigned row, const Mac &mac)
{
	gk_check_reply record{};
	record.cmd = number;
	put_text(record.iface, row_name(row));
	memcpy(record.mac, mac.data(), mac.size());
	call(GATEKEEPER_IOCTL_CHECK, &record, sizeof(record));
	return record.found != 0;
}

} // namespace load
