/* SPDX-License-Identifier: GPL-2.0-only */
/* The whole binary interface between the captive portal module and user space. */
#ifndef CAPTIVE_PORTAL_CAPTIVE_PORTAL_H
#define CAPTIVE_PORTAL_CAPTIVE_PORTAL_H

#include "captive_portal/control.h"
#include "captive_portal/gatekeeper.h"
#include "captive_portal/interface_index.h"
#include "captive_portal/marks.h"
#include "captive_portal/portal.h"
#include "captive_portal/ports.h"
#include "captive_portal/reasons.h"
#include "captive_portal/walled_garden.h"

#endif
