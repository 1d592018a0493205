// SPDX-License-Identifier: GPL-2.0-only
// What "nft list ruleset" says, as far as cpctl check asks.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace cpctl
{

struct FlowTable {
	// "inet routed fast": family, table and own name.
	std::string name;
	std::vector<std::string> devices;
	// Hardware takes the frames.
	bool offload = false;
};

[[nodiscard]] std::vector<FlowTable> flow_tables(std::string_view ruleset);

// A rule that sets a mark to a number of its own.
struct MarkRule {
	// "bridge filter prerouting": family, table and chain.
	std::string chain;
	uint32_t mark = 0;
};

[[nodiscard]] std::vector<MarkRule> mark_rules(std::string_view ruleset);

// A chain at the ingress of devices that forwards frames to others.
struct ForwardingChain {
	std::string chain;
	std::vector<std::string> devices;
};

[[nodiscard]] std::vector<ForwardingChain> forwarding_chains(std::string_view ruleset);

} // namespace cpctl
