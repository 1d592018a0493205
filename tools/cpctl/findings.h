// SPDX-License-Identifier: GPL-2.0-only
// What cpctl check has found, and what it could not look at. Each check is a function that adds to it.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cpctl/machine.h"
#include "cpctl/status_files.h"

namespace cpctl
{

struct Finding {
	// For programs: the same word always.
	std::string_view check;
	// What it is about: an interface, a file, a rule's table.
	std::string subject;
	std::string problem;
	std::string remedy;
};

struct Omission {
	std::string what;
	std::string why;

	bool operator==(const Omission &) const = default;
};

class Findings
{
public:
	void add(Finding finding) { findings_.push_back(std::move(finding)); }
	// Once, however often it was tried.
	void omit(const Omission &omission)
	{
		if (std::ranges::find(omissions_, omission) == omissions_.end()) {
			omissions_.push_back(omission);
		}
	}

	[[nodiscard]] const std::vector<Finding> &all() const { return findings_; }
	[[nodiscard]] const std::vector<Omission> &omissions() const { return omissions_; }

private:
	std::vector<Finding> findings_;
	std::vector<Omission> omissions_;
};

inline constexpr std::string_view portal_bridge = "br0";

// Is it loaded, may the right people use it, does it tell its status?
void check_module(Machine &machine, const std::string &device, const ReadStatusFile &read, Findings &findings);

// The bridge, its address, its ports, its netfilter pass-through.
void check_bridge(Machine &machine, Findings &findings);

// What takes frames of a bridge port past the bridge.
void check_fast_paths(Machine &machine, const std::string &nft_ruleset, Findings &findings);

// Rules that set marks that are the module's own.
void check_marks(Machine &machine, const std::string &nft_ruleset, Findings &findings);

// Whether somebody listens where clients are sent to.
void check_services(Machine &machine, const std::vector<StatusLine> &status, const std::string &nft_ruleset,
		    Findings &findings);

// Names of the bridge's ports, and those of them that are wireless interfaces.
[[nodiscard]] std::vector<std::string> bridge_ports(Machine &machine);
[[nodiscard]] std::vector<std::string> wireless_ports(Machine &machine);
// Whether it is one that the module judges: a wireless interface, or an OWE companion.
[[nodiscard]] bool is_wireless_name(std::string_view name);

// The program's answer. Where there is none because it is not installed, or it failed, that is said for what was to be
// looked at, and nothing is returned.
[[nodiscard]] std::optional<std::string> ask_program(Machine &machine, const std::vector<std::string> &words,
						     const std::string &what, Findings &findings);

} // namespace cpctl
