// The control device. Every command that changes what a frame may meet is told to whoever checks the samples.
#pragma once

#include "frame.h"

#include "captive_portal/gatekeeper.h"
#include "captive_portal/portal.h"
#include "captive_portal/walled_garden.h"

#include <string>
#include <vector>

namespace load
{

class Sample;

class Device
{
public:
	explicit Device(Sample *sample);
	~Device();

	void set_client(gk_set_command, unsigned row, const Mac &);
	void set_global_client(gk_set_command, const Mac &);
	void pair_companion(const char *companion, unsigned row);
	void flush_all_clients();
	void set_portal(cp_set_command, unsigned row, uint32_t value, const char *text = "");
	void set_default_rules(const std::vector<std::string> &names);
	void set_rules(unsigned row, const std::vector<std::string> &patterns, uint32_t network, uint32_t netmask);
	void set_mirel_rules(const std::vector<std::string> &patterns);

	unsigned count_clients(gk_get_command, unsigned row);
	bool is_listed(gk_check_command, unsigned row, const Mac &);

	// In a process whose commands change nothing for any frame.
	void tell_nobody() { sample = nullptr; }
	uint64_t calls() const { return call_count; }

private:
	void call(unsigned command, void *record, unsigned size);

	int file;
	Sample *sample;
	uint64_t call_count = 0;
};

std::string row_name(unsigned row);

} // namespace load
