// SPDX-License-Identifier: GPL-2.0-only
#include "tests/fuzz/proc_model.h"

#include <algorithm>

#include "tests/fuzz/reference.h"

namespace captive_portal::test
{

namespace
{

constexpr long invalid_argument = -22;
constexpr size_t longest_target = 19;

bool is_valid_target(const std::string &target)
{
	if (target.starts_with("wlan")) {
		return reference_interface_row(target).has_value();
	}
	if (const auto address = reference_address(target); address.has_value()) {
		return std::all_of(std::begin(address->numbers), std::end(address->numbers),
				   [](uint32_t number) { return number <= 255; });
	}
	return target == "all" || target == "mirel";
}

std::string dotted(uint64_t address)
{
	std::string text;
	for (int octet = 0; octet < 4; ++octet) {
		text += (octet == 0 ? "" : ".") + std::to_string(address >> 8 * octet & 0xff);
	}
	return text;
}

bool is_shown(const ModuleState::CachedAddress &entry, const std::string &target)
{
	if (entry.listed || entry.mask == 0) {
		return false;
	}
	if (target == "all") {
		return true;
	}
	if (target == "mirel") {
		return (entry.mask >> 27 & 1) != 0;
	}
	if (target.find('.') != std::string::npos) {
		const auto address = reference_address(target);
		if (!address.has_value()) {
			return false;
		}
		uint64_t wanted = 0;
		for (int octet = 0; octet < 4; ++octet) {
			wanted |= uint64_t{address->numbers[octet] & 0xff} << 8 * octet;
		}
		return entry.address == wanted;
	}
	const auto row = reference_interface_row(target);
	return row.has_value() && (entry.mask >> *row & 1) != 0;
}

std::string interfaces_of(uint32_t mask)
{
	std::string text;
	for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
		if ((mask >> row & 1) != 0) {
			text += " " + std::to_string(row / 8 + 1) + "-" + std::to_string(row % 8 + 1);
		}
	}
	return text + ((mask >> 27 & 1) != 0 ? " MIREL" : "");
}

// Adds the line if there is room for all of it.
bool add(std::string &listing, size_t length, const std::string &line)
{
	if (listing.size() + line.size() > length) {
		return false;
	}
	listing += line;
	return true;
}

bool add_entry(std::string &listing, size_t length, ModuleState::CachedAddress &entry)
{
	if (!add(listing, length,
		 "[" + std::to_string(entry.bucket) + "]IP=" + dotted(entry.address) +
			 ", timeout=" + std::to_string(static_cast<uint64_t>(entry.deadline)) + "\n") ||
	    !add(listing, length, "  match walled garden:" + interfaces_of(entry.mask) + "\n")) {
		return false;
	}
	for (ModuleState::CachedName &name : entry.names) {
		if (!name.listed) {
			if (!add(listing, length, "  fqdn = " + name.name + "\n")) {
				return false;
			}
			name.listed = true;
		}
	}
	entry.listed = true;
	return true;
}

} // namespace

long apply_write(ModuleState &state, const std::string &text, size_t count)
{
	const std::string target = text_in_field(text.data(), text.size());
	if (count > longest_target || !is_valid_target(target)) {
		return invalid_argument;
	}
	state.summary_target = target;
	for (ModuleState::CachedAddress &entry : state.cache) {
		entry.listed = false;
		for (ModuleState::CachedName &name : entry.names) {
			name.listed = false;
		}
	}
	return static_cast<long>(count);
}

std::string apply_read(ModuleState &state, size_t length)
{
	std::string listing = "Captive Portal DNS A Record Info, target=" + state.summary_target + "\n";
	listing = listing.substr(0, length);
	for (ModuleState::CachedAddress &entry : state.cache) {
		if (is_shown(entry, state.summary_target) && !add_entry(listing, length, entry)) {
			return listing;
		}
	}
	static_cast<void>(add(listing, length, "Finished...\n"));
	return listing;
}

void apply_answer(ModuleState &state, uint32_t mask, const std::string &name, uint32_t address, int64_t deadline,
		  uint32_t failing_allocation)
{
	// An address, a name and its text.
	const bool address_fails = failing_allocation >= 1 && failing_allocation <= 3;
	const bool name_fails = failing_allocation >= 1 && failing_allocation <= 2;
	const auto same =
		std::find_if(state.cache.begin(), state.cache.end(),
			     [&](const ModuleState::CachedAddress &entry) { return entry.address == address; });
	if (same == state.cache.end()) {
		if (address_fails) {
			return;
		}
		const uint32_t bucket = address % 1024;
		const auto behind =
			std::find_if(state.cache.begin(), state.cache.end(),
				     [&](const ModuleState::CachedAddress &entry) { return entry.bucket > bucket; });
		state.cache.insert(behind, {bucket, address, deadline, mask, false, {{name, false}}});
		++state.cached_addresses;
		return;
	}
	if (!name_fails && std::none_of(same->names.begin(), same->names.end(),
					[&](const ModuleState::CachedName &known) { return known.name == name; })) {
		same->names.push_back({name, false});
		same->mask = mask != 0 ? mask : same->mask;
	}
	same->deadline = std::max(same->deadline, deadline);
}

void apply_expiry(ModuleState &state, int64_t now)
{
	state.cached_addresses -= static_cast<int32_t>(std::erase_if(
		state.cache, [&](const ModuleState::CachedAddress &entry) { return now > entry.deadline; }));
}

} // namespace captive_portal::test
