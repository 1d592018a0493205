// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/devices.h"

#include "platform/host/bookkeeping.h"

namespace captive_portal::host
{

void Devices::put(const std::string &name, Device device)
{
	const BookkeepingGuard guard(mutex_);
	devices_[name] = std::move(device);
}

void Devices::remove(const std::string &name)
{
	const BookkeepingGuard guard(mutex_);
	devices_.erase(name);
}

std::optional<Device> Devices::find(const std::string &name) const
{
	const BookkeepingGuard guard(mutex_);
	++lookups_;
	const auto found = devices_.find(name);
	return found == devices_.end() ? std::nullopt : std::optional<Device>(found->second);
}

uint64_t Devices::lookups() const
{
	const BookkeepingGuard guard(mutex_);
	return lookups_;
}

} // namespace captive_portal::host
