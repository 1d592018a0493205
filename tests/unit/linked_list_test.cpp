// SPDX-License-Identifier: GPL-2.0-only
#include "garden/linked_list.h"

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

namespace captive_portal::test
{

namespace
{

struct Element {
	int number;
	ListLink<Element> link;
};

using ElementList = LinkedList<Element, &Element::link>;

class LinkedListTest : public testing::Test
{
protected:
	[[nodiscard]] std::vector<int> forwards() const
	{
		std::vector<int> numbers;
		for (const Element &element : list) {
			numbers.push_back(element.number);
		}
		return numbers;
	}

	[[nodiscard]] static std::vector<int> backwards_from(const Element &last)
	{
		std::vector<int> numbers;
		for (const Element *element = &last; element != nullptr; element = element->link.previous) {
			numbers.push_back(element->number);
		}
		return numbers;
	}

	void append_all()
	{
		list.append(one);
		list.append(two);
		list.append(three);
	}

	ElementList list;
	Element one{1, {}};
	Element two{2, {}};
	Element three{3, {}};
};

TEST_F(LinkedListTest, ZeroedMemoryIsAnEmptyList)
{
	alignas(ElementList) unsigned char zeroes[sizeof(ElementList)] = {};
	std::memcpy(&list, zeroes, sizeof(list));
	EXPECT_EQ(list.first(), nullptr);
	EXPECT_TRUE(list.begin() == list.end());
	list.append(one);
	EXPECT_EQ(forwards(), (std::vector{1}));
}

TEST_F(LinkedListTest, AppendsAtTheTailInBothDirections)
{
	append_all();
	EXPECT_EQ(list.first(), &one);
	EXPECT_EQ(forwards(), (std::vector{1, 2, 3}));
	EXPECT_EQ(backwards_from(three), (std::vector{3, 2, 1}));
}

TEST_F(LinkedListTest, RemovesTheFirst)
{
	append_all();
	list.remove(one);
	EXPECT_EQ(list.first(), &two);
	EXPECT_EQ(forwards(), (std::vector{2, 3}));
	EXPECT_EQ(backwards_from(three), (std::vector{3, 2}));
}

TEST_F(LinkedListTest, RemovesFromTheMiddle)
{
	append_all();
	list.remove(two);
	EXPECT_EQ(forwards(), (std::vector{1, 3}));
	EXPECT_EQ(backwards_from(three), (std::vector{3, 1}));
}

TEST_F(LinkedListTest, AppendsBehindTheNewTailWhenTheLastIsRemoved)
{
	append_all();
	list.remove(three);
	EXPECT_EQ(forwards(), (std::vector{1, 2}));
	list.append(three);
	EXPECT_EQ(forwards(), (std::vector{1, 2, 3}));
	EXPECT_EQ(backwards_from(three), (std::vector{3, 2, 1}));
}

TEST_F(LinkedListTest, IsEmptyAndUsableWhenTheOnlyElementIsRemoved)
{
	list.append(two);
	list.remove(two);
	EXPECT_EQ(list.first(), nullptr);
	EXPECT_TRUE(forwards().empty());
	EXPECT_EQ(two.link.next, nullptr);
	EXPECT_EQ(two.link.previous, nullptr);
	list.append(two);
	EXPECT_EQ(forwards(), (std::vector{2}));
}

} // namespace

} // namespace captive_portal::test
