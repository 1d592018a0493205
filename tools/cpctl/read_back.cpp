// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/read_back.h"

namespace cpctl
{

Failure not_stored(const std::string &setting)
{
	return refusal(setting + " is not what was set though the module took the command: see the kernel log (dmesg)");
}

void note_unverified(const Session &session, const std::string &setting, const std::string &why)
{
	session.note(setting + " could not be verified: " + why);
}

void require_stored(const Session &session, const std::string &setting, const IsStored &is_stored,
		    const DeviceTellsStored &device_tells)
{
	bool stored = false;
	try {
		stored = is_stored(read_module_status(session.read_status_file));
	} catch (const Failure &unreadable) {
		const std::optional<bool> told = device_tells ? device_tells() : std::nullopt;
		if (!told) {
			note_unverified(session, setting, unreadable.what());
			return;
		}
		stored = *told;
	}
	if (!stored) {
		throw not_stored(setting);
	}
}

} // namespace cpctl
