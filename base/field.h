// SPDX-License-Identifier: GPL-2.0-only
// A value that may be missing, such as a header field that lies outside the packet. A missing field equals nothing.
#pragma once

namespace captive_portal
{

template <typename T> class Field
{
public:
	constexpr Field() = default;
	// Implicit, so that a function that found a value returns it as it is. NOLINTNEXTLINE(google-explicit-constructor)
	constexpr Field(T value) : value_(value), present_(true) {}

	[[nodiscard]] constexpr bool has_value() const { return present_; }
	// Only of a field that is there.
	[[nodiscard]] constexpr T value() const { return value_; }

	[[nodiscard]] friend constexpr bool operator==(const Field &field, T other)
	{
		return field.present_ && field.value_ == other;
	}

private:
	T value_{};
	bool present_ = false;
};

} // namespace captive_portal
