// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/module_image.h"

#include <vector>

#include "platform/host/context.h"

extern "C" {
extern std::byte captive_portal_data_start[];
extern std::byte captive_portal_data_end[];
extern std::byte captive_portal_bss_start[];
extern std::byte captive_portal_bss_end[];
}

namespace captive_portal::host
{

namespace
{

// The sanitizers do not watch these two: a red zone is copied with what lies around it, and no thread of the module
// runs between two machines. The pointers are volatile so that no call of an intercepted memcpy() comes of the loops.
__attribute__((no_sanitize("address", "thread"))) void copy_image(volatile std::byte *to,
								  const volatile std::byte *from, size_t size)
{
	for (size_t i = 0; i < size; ++i) {
		to[i] = from[i];
	}
}

__attribute__((no_sanitize("address", "thread"))) void zero_image(volatile std::byte *to, size_t size)
{
	for (size_t i = 0; i < size; ++i) {
		to[i] = std::byte{0};
	}
}

std::vector<std::byte> &initial_data()
{
	static std::vector<std::byte> data;
	return data;
}

// The core has no constructors, so at this point its data is still as the linker left it.
__attribute__((constructor)) void keep_initial_data()
{
	const auto size = static_cast<size_t>(captive_portal_data_end - captive_portal_data_start);
	initial_data().resize(size);
	copy_image(initial_data().data(), captive_portal_data_start, size);
}

} // namespace

void reload_module_image()
{
	copy_image(captive_portal_data_start, initial_data().data(), initial_data().size());
	zero_image(captive_portal_bss_start, static_cast<size_t>(captive_portal_bss_end - captive_portal_bss_start));
}

std::array<std::span<const std::byte>, 2> module_image()
{
	return {std::span<const std::byte>(captive_portal_data_start, captive_portal_data_end),
		std::span<const std::byte>(captive_portal_bss_start, captive_portal_bss_end)};
}

} // namespace captive_portal::host
