// SPDX-License-Identifier: GPL-2.0-only
// Says of a hook's step why it came out as it did. Every frame that the module's portal concerns has a reason that the core
// itself has counted; one that nothing stops has none, and what let it pass is read from the tables here.
#pragma once

#include "cpctl/explain/explanation.h"

namespace cpctl
{

// Fills `decision`, `because` and `unknown` of a step that has run. `frame` is as it came to the hook, `device` its port
// there; at the portal check `target` is the frame as it leaves it.
void narrate(HookStep &step, const FrameFields &frame, const FrameFields &target, const std::string &device,
	     const ModuleTables &tables, const ModuleCopy &copy);

} // namespace cpctl
