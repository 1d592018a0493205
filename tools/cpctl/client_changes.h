// SPDX-License-Identifier: GPL-2.0-only
// Many clients at once: the module's lists are read before the first and after the last instead of around each.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "cpctl/addresses.h"
#include "cpctl/client_tables.h"
#include "cpctl/progress.h"
#include "cpctl/session.h"

namespace cpctl
{

// A client that comes onto a list, or leaves it.
struct ClientChange {
	enum class Kind { add, del };

	Kind kind;
	const ClientTable *table;
	// Empty for the tables that are one for all interfaces.
	std::string interface;
	MacAddress mac;

	// "02:00:5e:10:00:01 ... login of wlan-1-1", with the words between.
	[[nodiscard]] std::string text(std::string_view between) const;
};

struct FailedChange {
	size_t index;
	std::string text;
};

enum class AfterFailure { stop, go_on };

struct ChangedClients {
	// The first so many changes were tried.
	size_t tried = 0;
	// Those of them that failed, in their order.
	std::vector<FailedChange> failed;
};

// Makes the changes in their order, with what `client add` and `client del` say of clients that are there already or are
// not there. What the module dropped silently is found after the last one.
[[nodiscard]] ChangedClients change_clients(const Session &session, std::span<const ClientChange> changes,
					    AfterFailure after_failure, Progress &progress);

} // namespace cpctl
