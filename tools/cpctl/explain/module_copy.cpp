// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/module_copy.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "base/interface_name.h"
#include "cpctl/explain/core_platform.h"
#include "garden/arecord_cache.h"
#include "gatekeeper/client_tables.h"
#include "platform/platform.h"
#include "portal/connections.h"
#include "portal/interface_table.h"

namespace cpctl
{

namespace
{

namespace core = captive_portal;

constexpr unsigned long highest_debug_level = 3;

cp_verdict call(Hook hook, cp_packet *packet, const cp_ports &ports)
{
	switch (hook) {
	case Hook::gatekeeper:
		return ebt_gate_keeper(packet, &ports);
	case Hook::portal_check:
		return nf_cp_check(packet, &ports);
	case Hook::reply_rewrite:
		break;
	}
	return nf_cp_change(packet, &ports);
}

core::Text core_text(const std::string &text)
{
	return {text.data(), text.size()};
}

bool runs = false;

class CoreInThisProgram : public ModuleCopy
{
public:
	CoreInThisProgram()
	{
		if (std::exchange(runs, true)) {
			throw std::logic_error("the module's core runs in this program already");
		}
		static_cast<void>(captive_portal_init());
		static_cast<void>(explain::take_log());
	}

	~CoreInThisProgram() override
	{
		// A stop leaves the lists as they are, and the next start forgets nothing that is in them.
		core::init_client_tables();
		core::clear_mirel_lists();
		core::free_connections();
		captive_portal_exit();
		// What a stop frees it deliberately does not uncount.
		core::total_ip_count = 0;
		for (const std::string &name : devices_) {
			explain::core_devices().remove(name);
		}
		static_cast<void>(explain::take_log());
		static_cast<void>(explain::take_counts());
		runs = false;
	}

	long exchange(cp_command command, std::span<std::byte> record) override
	{
		return captive_portal_ioctl(command, reinterpret_cast<unsigned long>(record.data()));
	}

	long pass_value(cp_command command, uint32_t value) override { return captive_portal_ioctl(command, value); }

	void put_device(const NetworkDevice &device) override
	{
		core::host::Device put = {.mac = device.mac};
		if (device.ipv4.has_value()) {
			put.ipv4.emplace();
			for (const Ipv4Address address : *device.ipv4) {
				put.ipv4->push_back(address.raw);
			}
		}
		if (!device.bridge.empty()) {
			put.bridge = device.bridge;
		}
		explain::core_devices().put(device.name, put);
		devices_.push_back(device.name);
	}

	void learn_access_point(Ipv4Address address, const MacAddress &mac) override
	{
		core::MacAddress copy = {};
		std::ranges::copy(mac, copy.bytes);
		core::store_word(core::ap_addr, core::Ipv4Address{address.raw});
		core::store_ap_mac(copy);
	}

	void cache_address(Ipv4Address address, uint32_t rows) override
	{
		constexpr core::Text name{"cached", 6};
		constexpr uint32_t seconds = 3600;
		const core::Ipv4Address cached = {address.raw};
		core::add_dns_arecord(core::arecord_bucket(cached), rows, name, cached, seconds);
		static_cast<void>(explain::take_log());
		static_cast<void>(explain::take_counts());
	}

	[[nodiscard]] std::optional<uint32_t> row_of_device(const std::string &name) const override
	{
		const auto numbers = core::scan_interface_name(core_text(name));
		if (!numbers.has_value()) {
			return std::nullopt;
		}
		const uint32_t vap = numbers.value().vap;
		if (vap < CP_OWE_FIRST_VAP || vap > CP_OWE_LAST_VAP) {
			return known_row(core::interface_index_of_name(core_text(name)));
		}
		const auto companion = core::owe_index_of_name(core_text(name));
		if (!companion.has_value()) {
			return std::nullopt;
		}
		char paired[CP_INTERFACE_NAME_SIZE];
		core::owe_mapping_table[companion.value()].iface.load(paired);
		return known_row(core::interface_index_of_name(core::text_of_field(paired)));
	}

	[[nodiscard]] HookRun run(Hook hook, Packet &packet, const std::string &device) override
	{
		std::array<char, CP_INTERFACE_NAME_SIZE> name = {};
		device.copy(name.data(), name.size() - 1);
		const bool leaves = hook == Hook::reply_rewrite;
		const cp_ports ports = {.in_name = leaves ? nullptr : name.data(),
					.out_name = leaves ? name.data() : nullptr};
		static_cast<void>(pass_value(ENV_SET_DEBUG_LEVEL, highest_debug_level));
		static_cast<void>(explain::take_log());
		static_cast<void>(explain::take_counts());
		explain::HookPacket seen(packet);
		const cp_verdict verdict = call(hook, seen.seam(), ports);
		return {.accepted = verdict == CP_ACCEPT, .counts = explain::take_counts(), .log = explain::take_log()};
	}

private:
	[[nodiscard]] static std::optional<uint32_t> known_row(core::Field<uint32_t> row)
	{
		return row.has_value() ? std::optional(row.value()) : std::nullopt;
	}

	std::vector<std::string> devices_;
};

} // namespace

std::unique_ptr<ModuleCopy> make_module_copy()
{
	return std::make_unique<CoreInThisProgram>();
}

} // namespace cpctl
