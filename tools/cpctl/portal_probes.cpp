// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/portal_probes.h"

#include <array>

namespace cpctl
{

namespace
{

// What a system asks first stands first among its hosts. GNOME has its host from NetworkManager, for which distributions
// set one of their own.
constexpr std::array probes = {
	PortalProbe{"captive.apple.com", "Apple"},
	PortalProbe{"www.apple.com", "Apple"},
	PortalProbe{"gsp1.apple.com", "Apple"},
	PortalProbe{"www.appleiphonecell.com", "Apple"},
	PortalProbe{"www.airport.us", "Apple"},
	PortalProbe{"www.ibook.info", "Apple"},
	PortalProbe{"www.itools.info", "Apple"},
	PortalProbe{"www.thinkdifferent.us", "Apple"},
	PortalProbe{"connectivitycheck.gstatic.com", "Android"},
	PortalProbe{"www.google.com", "Android"},
	PortalProbe{"play.googleapis.com", "Android"},
	PortalProbe{"connectivitycheck.android.com", "Android"},
	PortalProbe{"clients3.google.com", "Android"},
	PortalProbe{"www.gstatic.com", "ChromeOS"},
	PortalProbe{"www.msftconnecttest.com", "Windows"},
	PortalProbe{"www.msftncsi.com", "Windows"},
	PortalProbe{"detectportal.firefox.com", "Firefox"},
	PortalProbe{"nmcheck.gnome.org", "GNOME"},
	PortalProbe{"network-test.debian.org", "GNOME on Debian"},
	PortalProbe{"connectivity-check.ubuntu.com", "GNOME on Ubuntu"},
	PortalProbe{"fedoraproject.org", "GNOME on Fedora"},
	PortalProbe{"conncheck.opensuse.org", "GNOME on openSUSE"},
	PortalProbe{"ping.archlinux.org", "GNOME on Arch Linux"},
	PortalProbe{"networkcheck.kde.org", "KDE"},
};

} // namespace

std::span<const PortalProbe> portal_probes()
{
	return probes;
}

} // namespace cpctl
