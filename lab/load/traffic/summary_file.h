// The module's proc file: how much of the address cache it lists.
#pragma once

#include <cstdint>

namespace load
{

// Entries that are listed when everything is selected; what no row's garden permits is not.
unsigned count_listed_addresses();
bool is_address_listed(uint32_t address);

} // namespace load
