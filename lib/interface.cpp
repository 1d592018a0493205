// SPDX-License-Identifier: GPL-2.0-only
#include "lib/interface.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "lib/failure.h"

namespace libcaptiveportal
{

namespace
{

constexpr size_t error_text_size = 1024;
constexpr size_t longest_quotation = 256;

thread_local char error_text[error_text_size] = "nothing has failed";

} // namespace

int result_of_exception() noexcept
{
	try {
		throw;
	} catch (const Failure &failure) {
		store_text(error_text, failure.what());
		if (failure.system_error() != 0) {
			errno = failure.system_error();
		}
		return failure.result();
	} catch (const std::bad_alloc &) {
		store_text(error_text, "this program has no memory");
		return CAPTIVEPORTAL_NO_MEMORY;
	} catch (const std::exception &error) {
		store_text(error_text, error.what());
		return CAPTIVEPORTAL_UNAVAILABLE;
	} catch (...) {
		store_text(error_text, "a function that this program gave the library has thrown something");
		return CAPTIVEPORTAL_UNAVAILABLE;
	}
}

void missing_argument(const char *what)
{
	throw invalid(std::string("NULL is no ") + what);
}

std::string quoted(std::string_view word)
{
	std::string text = "'";
	for (const char character : word.substr(0, longest_quotation)) {
		const bool control = static_cast<unsigned char>(character) < ' ' || character == '\x7f';
		text += control ? '?' : character;
	}
	return text + (word.size() > longest_quotation ? "...'" : "'");
}

void store_text(char *field, size_t size, std::string_view text)
{
	const size_t kept = std::min(text.size(), size - 1);
	std::fill(std::copy_n(text.begin(), kept, field), field + size, '\0');
}

} // namespace libcaptiveportal

extern "C" {

const char *captiveportal_error_text(void)
{
	return libcaptiveportal::error_text;
}

const char *captiveportal_version(void)
{
	return CAPTIVEPORTAL_VERSION;
}
}
