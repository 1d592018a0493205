// SPDX-License-Identifier: GPL-2.0-only
#include "lib/handle.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include "captive_portal/captive_portal.h"
#include "lib/device_file.h"
#include "lib/interface.h"

namespace libcaptiveportal
{

void judge(cp_command command, long result)
{
	if (result == 0) {
		return;
	}
	const std::string subject = "command " + std::to_string(command) + " of the control device: ";
	if (result > 0) {
		throw refused(subject + std::to_string(result) + " bytes of the reply did not arrive");
	}
	switch (-result) {
	case EPERM:
		throw refused(subject + "refused: is this program as new as the module?");
	case EINVAL:
		throw refused(subject + "refused: more rules than a record holds");
	case ENOMEM:
		throw refused(subject + "the kernel has no memory for it now; nothing was changed");
	case ENOTTY:
		throw Failure(CAPTIVEPORTAL_UNAVAILABLE, subject + "not understood: is this the module's device?",
			      ENOTTY);
	default:
		throw Failure(CAPTIVEPORTAL_REFUSED, subject + std::strerror(static_cast<int>(-result)),
			      static_cast<int>(-result));
	}
}

Failure no_answer(std::string_view what)
{
	return refused("the module did not answer the question for " + std::string(what));
}

Failure not_stored(std::string_view what)
{
	return refused(std::string(what) +
		       " is not what was set though the module took the command: see the kernel log (dmesg)");
}

namespace
{

// The bytes that the module reads, or writes, at the place that it is given.
size_t record_size(uint32_t command)
{
	switch (command) {
	case CAPTIVE_PORTAL_IOCTL_SET:
		return sizeof(cp_cmd);
	case CAPTIVE_PORTAL_IOCTL_GET:
		return sizeof(cp_status);
	case WALLED_GARDEN_IOCTL_SET:
	case WALLED_GARDEN_IOCTL_GET:
		return sizeof(wg_cmd);
	case GATEWAY_IOCTL_SET:
	case GATEWAY_IOCTL_GET:
		return sizeof(uint32_t);
	case GATEKEEPER_IOCTL_SET:
		return sizeof(gk_cmd);
	case GATEKEEPER_IOCTL_GET:
		return sizeof(gk_list_reply);
	case GATEKEEPER_IOCTL_CHECK:
		return sizeof(gk_check_reply);
	default:
		return 0;
	}
}

int make_handle(const captiveportal_transport &transport, void *context, captiveportal **portal)
{
	*portal = new captiveportal{.transport = transport, .context = context, .read_back = true};
	return CAPTIVEPORTAL_OK;
}

long exchange_with_file(void *context, uint32_t command, void *record, size_t /*size*/)
{
	return static_cast<DeviceFile *>(context)->exchange(command, record);
}

long pass_value_to_file(void *context, uint32_t command, uint32_t value)
{
	return static_cast<DeviceFile *>(context)->pass_value(command, value);
}

void close_file(void *context)
{
	delete static_cast<DeviceFile *>(context);
}

constexpr captiveportal_transport device_file_transport = {
	.size = sizeof(captiveportal_transport),
	.exchange = exchange_with_file,
	.pass_value = pass_value_to_file,
	.read_status = nullptr,
	.close = close_file,
};

} // namespace

} // namespace libcaptiveportal

using namespace libcaptiveportal;

extern "C" {

int captiveportal_open(const char *path, unsigned int wait_milliseconds, captiveportal **portal)
{
	return guarded([&] {
		given(portal, "place for a handle") = nullptr;
		auto file = std::make_unique<DeviceFile>(path != nullptr ? path : CP_DEVICE_PATH,
							 std::chrono::milliseconds(wait_milliseconds));
		const int result = make_handle(device_file_transport, file.get(), portal);
		// The handle owns it from now on.
		(void)file.release();
		return result;
	});
}

int captiveportal_open_transport(const captiveportal_transport *transport, void *context, captiveportal **portal)
{
	return guarded([&] {
		given(portal, "place for a handle") = nullptr;
		const captiveportal_transport &parts = given(transport, "transport");
		if (parts.size != sizeof(parts) || parts.exchange == nullptr || parts.pass_value == nullptr) {
			throw invalid("a transport of another version, or without its functions");
		}
		return make_handle(parts, context, portal);
	});
}

void captiveportal_close(captiveportal *portal)
{
	if (portal != nullptr && portal->transport.close != nullptr) {
		portal->transport.close(portal->context);
	}
	delete portal;
}

void captiveportal_read_back(captiveportal *portal, int on)
{
	portal->read_back = on != 0;
}

long captiveportal_exchange(captiveportal *portal, uint32_t command, void *record, size_t size)
{
	if (record == nullptr || size < record_size(command)) {
		return -EINVAL;
	}
	return portal->transport.exchange(portal->context, command, record, size);
}

long captiveportal_pass_value(captiveportal *portal, uint32_t command, uint32_t value)
{
	return portal->transport.pass_value(portal->context, command, value);
}
}
