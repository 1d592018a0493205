// SPDX-License-Identifier: GPL-2.0-only
// A module made of a configuration: commands change it as they would change the real one, so that the files of commands
// are read by the same code that runs them.
#pragma once

#include "cpctl/configuration.h"
#include "cpctl/control_device.h"

namespace cpctl
{

class ConfigurationModel : public ControlDevice
{
public:
	[[nodiscard]] const Configuration &configuration() const { return configuration_; }

	// The commands that set and ask what a configuration has, with records that Portal builds. Others are refused as
	// the module refuses an unknown one.
	long exchange(cp_command command, std::span<std::byte> record) override;
	long pass_value(cp_command command, uint32_t value) override;

	// The status files `status`, `clients` and `garden`.
	[[nodiscard]] std::string status_file(const std::string &name) const;

private:
	long set_portal(std::span<const std::byte> record);
	long set_garden(std::span<const std::byte> record);
	void get_garden(std::span<std::byte> record) const;
	long set_clients(std::span<const std::byte> record);
	void get_clients(std::span<std::byte> record);
	void check_client(std::span<std::byte> record);
	void get_status(std::span<std::byte> record) const;

	[[nodiscard]] std::string status() const;
	[[nodiscard]] std::string clients() const;
	[[nodiscard]] std::string garden() const;

	Configuration configuration_;
};

} // namespace cpctl
