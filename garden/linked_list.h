// SPDX-License-Identifier: GPL-2.0-only
// A doubly linked list through a link that lies in its elements. The list owns nothing and takes no lock.
#pragma once

namespace captive_portal
{

template <typename T> struct ListLink {
	T *next;
	T *previous;
};

// Zeroed memory is an empty list: a static one is valid before any code has run, one in a zeroed allocation at once.
template <typename T, ListLink<T> T::*link> class LinkedList
{
public:
	class Iterator
	{
	public:
		explicit Iterator(T *element) : element_(element) {}
		[[nodiscard]] T &operator*() const { return *element_; }
		Iterator &operator++()
		{
			element_ = (element_->*link).next;
			return *this;
		}
		friend bool operator==(const Iterator &, const Iterator &) = default;

	private:
		T *element_;
	};

	[[nodiscard]] Iterator begin() const { return Iterator(first_); }
	[[nodiscard]] Iterator end() const { return Iterator(nullptr); }

	// The first element, null when the list is empty.
	[[nodiscard]] T *first() const { return first_; }

	// The element must be in no list.
	void append(T &element)
	{
		(element.*link) = {.next = nullptr, .previous = last_};
		if (last_ != nullptr) {
			(last_->*link).next = &element;
		} else {
			first_ = &element;
		}
		last_ = &element;
	}

	// The element must be in this list.
	void remove(T &element)
	{
		const ListLink<T> neighbours = element.*link;
		if (neighbours.previous != nullptr) {
			(neighbours.previous->*link).next = neighbours.next;
		} else {
			first_ = neighbours.next;
		}
		if (neighbours.next != nullptr) {
			(neighbours.next->*link).previous = neighbours.previous;
		} else {
			last_ = neighbours.previous;
		}
		(element.*link) = {};
	}

private:
	T *first_ = nullptr;
	T *last_ = nullptr;
};

} // namespace captive_portal
