// SPDX-License-Identifier: GPL-2.0-only
// cpctl client: the tables of client MAC addresses. Functions that take words check them (usage failures). `interface` is
// empty when none was written.
#pragma once

#include <string>

#include "cpctl/client_changes.h"
#include "cpctl/session.h"

namespace cpctl
{

// A change whose words are checked.
[[nodiscard]] ClientChange client_change(ClientChange::Kind kind, const std::string &table, const std::string &mac,
					 const std::string &interface);

// Adds the client unless it is listed already: a second entry would outlive one deletion. Or deletes every entry of it; a
// client that is not listed is a refusal then.
[[nodiscard]] Action change_client(const ClientChange &change);

// Lists a table, of all interfaces when none is named.
[[nodiscard]] Action show_clients(const std::string &table, const std::string &interface);

// Says whether the client is listed; a refusal when it is not, so that scripts can ask.
[[nodiscard]] Action check_client(const std::string &table, const std::string &mac, const std::string &interface);

// Empties a table, or the five per-interface tables ("portal"), of an interface or of all of them ("all").
[[nodiscard]] Action flush_clients(const std::string &table, const std::string &interface);

} // namespace cpctl
