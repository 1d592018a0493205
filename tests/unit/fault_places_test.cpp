// SPDX-License-Identifier: GPL-2.0-only
// Every place in the core that asks the kernel for something that may fail, and the sweep in which it does. A new place
// fails this test until it is listed here, with a row of a sweep that reaches it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <utility>

namespace captive_portal::test
{

namespace
{

using Places = std::map<std::pair<std::string, std::string>, int>; // file and service, number of calls

// clang-format off
const Places swept_places = {
	// FaultsOfTheModule.Start
	{{"core/module.cpp", "cp_counters_create"}, 1},
	{{"core/module.cpp", "cp_register_hooks"}, 1},
	{{"core/module.cpp", "cp_misc_register"}, 1},
	{{"garden/dns_side.cpp", "cp_thread_create"}, 1},
	{{"garden/dns_side.cpp", "cp_proc_create"}, 1},
	{{"core/module.cpp", "cp_status_create"}, 1},
	// FaultsOfCommands: every command
	{{"core/control_device.cpp", "cp_memdup_user"}, 1},
	{{"core/control_device.cpp", "cp_copy_to_user"}, 2},
	{{"core/control_device.cpp", "cp_copy_from_user"}, 1},
	// FaultsOfCommands.ClientsThatAreAdded, ClientsThatNeedALargerIndex
	{{"gatekeeper/gatekeeper_commands.cpp", "allocate_zeroed"}, 1},
	{{"gatekeeper/client_index.cpp", "cp_zalloc_large"}, 1},
	// FaultsOfCommands.GardenSwitch, Rules
	{{"garden/walled_garden_commands.cpp", "allocate_zeroed"}, 2},
	// FaultsOfCommands.RulesWithPatterns, FaultsOfPackets.DnsAnswerWithNewAddresses
	{{"garden/pattern.cpp", "cp_zalloc_atomic"}, 1},
	// FaultsOfPackets.FirstSynOfAnUnadmittedClient
	{{"portal/connections.cpp", "allocate_zeroed"}, 1},
	{{"base/growing_hash.h", "cp_zalloc_atomic"}, 1},
	{{"base/packet.h", "cp_packet_make_writable"}, 1},
	// FaultsOfPackets.DnsAnswerWithNewAddresses, DnsAnswerWithANewName
	{{"base/packet.h", "cp_zalloc_atomic"}, 1},
	{{"base/packet.h", "cp_packet_copy"}, 1},
	{{"garden/arecord_cache.cpp", "allocate_zeroed"}, 2},
	{{"garden/arecord_cache.cpp", "cp_zalloc_atomic"}, 1},
	// FaultsOfPackets.DnsAnswerWithNamesThatAreDearToFollow
	{{"garden/dns_name_ends.cpp", "cp_zalloc_atomic"}, 1},
	// FaultsOfTheModule.ProcRead, ProcWrite
	{{"garden/report.cpp", "cp_alloc_large"}, 1},
	{{"garden/summary.cpp", "cp_copy_to_user"}, 1},
	{{"garden/summary.cpp", "cp_copy_from_user"}, 1},
	// The one call inside allocate_zeroed()
	{{"base/memory.h", "cp_zalloc_atomic"}, 1},
};
// clang-format on

// What the seam offers that may fail, and what the core wraps it in.
const std::regex service(
	R"(\b(allocate_zeroed(?=<)|(?:cp_zalloc_atomic|cp_memdup_user|cp_copy_from_user|)"
	R"(cp_copy_to_user|cp_alloc_large|cp_zalloc_large|cp_packet_copy|cp_packet_make_writable|)"
	R"(cp_register_hooks|cp_misc_register|cp_thread_create|cp_proc_create|cp_counters_create|cp_status_create)(?=\()))");

Places places_in_core()
{
	namespace fs = std::filesystem;
	const fs::path root = CORE_SOURCES;
	Places places;
	for (const char *const room : {"base", "core", "gatekeeper", "portal", "garden"}) {
		for (const fs::directory_entry &file : fs::recursive_directory_iterator(root / room)) {
			std::ifstream stream(file.path());
			std::string line;
			while (std::getline(stream, line)) {
				line = line.substr(0, line.find("//"));
				// Most lines need no dear search.
				if (line.find("cp_") == std::string::npos &&
				    line.find("allocate_zeroed") == std::string::npos) {
					continue;
				}
				for (std::sregex_iterator call(line.begin(), line.end(), service), end; call != end;
				     ++call) {
					++places[{fs::relative(file.path(), root).string(), (*call)[1]}];
				}
			}
		}
	}
	return places;
}

TEST(FaultPlaces, AreAllSwept)
{
	EXPECT_EQ(places_in_core(), swept_places);
}

// A service of the seam that may fail is one that this file looks for.
TEST(FaultPlaces, AreOfTheServicesThatMayFail)
{
	std::ifstream stream(std::string(CORE_SOURCES) + "/platform/platform.h");
	std::stringstream text;
	text << stream.rdbuf();
	const std::string seam = text.str();
	// What gives a pointer, or an int or a size that says how it went.
	const std::regex declaration(R"(\n(?:void \*|int |size_t |struct cp_thread \*)(cp_[a-z0-9_]+)\()");
	// Look-ups, sizes and counts: nothing to fail, or "not there" is one of their answers.
	const std::string harmless[] = {"cp_allocations_are_watched", "cp_hardware_address_of_device", "cp_format",
					"cp_thread_should_stop"};
	for (std::sregex_iterator found(seam.begin(), seam.end(), declaration), end; found != end; ++found) {
		const std::string name = (*found)[1];
		if (std::find(std::begin(harmless), std::end(harmless), name) == std::end(harmless)) {
			EXPECT_TRUE(std::regex_search(name + '(', service)) << name;
		}
	}
}

} // namespace

} // namespace captive_portal::test
