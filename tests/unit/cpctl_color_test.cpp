// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/color.h"

#include "cpctl/failure.h"
#include "tests/unit/cpctl_test.h"

namespace cpctl::test
{

namespace
{

TEST(CpctlColor, ChoicesHaveNames)
{
	EXPECT_EQ(parse_color_choice("auto"), ColorChoice::automatic);
	EXPECT_EQ(parse_color_choice("always"), ColorChoice::always);
	EXPECT_EQ(parse_color_choice("never"), ColorChoice::never);
	for (const char *word : {"", "yes", "Auto", "always "}) {
		EXPECT_THROW((void)parse_color_choice(word), Failure) << word;
	}
}

TEST(CpctlColor, ByItselfOnlyATerminalHasColours)
{
	EXPECT_TRUE(wants_color(ColorChoice::automatic, true, "", "xterm"));
	EXPECT_TRUE(wants_color(ColorChoice::automatic, true, "", ""));
	EXPECT_FALSE(wants_color(ColorChoice::automatic, false, "", "xterm"));
	EXPECT_FALSE(wants_color(ColorChoice::automatic, true, "", "dumb"));
}

TEST(CpctlColor, NoColorIsHonouredUnlessTheCommandLineSaysOtherwise)
{
	EXPECT_FALSE(wants_color(ColorChoice::automatic, true, "1", "xterm"));
	EXPECT_FALSE(wants_color(ColorChoice::automatic, true, "0", "xterm"));
	EXPECT_TRUE(wants_color(ColorChoice::always, true, "1", "xterm"));
	EXPECT_TRUE(wants_color(ColorChoice::always, false, "", "dumb"));
	EXPECT_FALSE(wants_color(ColorChoice::never, true, "", "xterm"));
}

TEST(CpctlColor, PaintGoesAroundTheTextAndEndsWithIt)
{
	const Paint paint(true);
	EXPECT_EQ(paint(Hue::addition, "+ a"), "\x1b[32m+ a\x1b[0m");
	EXPECT_EQ(paint(Hue::removal, "- a"), "\x1b[31m- a\x1b[0m");
	EXPECT_EQ(paint(Hue::name, ""), "");
	EXPECT_EQ(Paint(false)(Hue::error, "text"), "text");
	EXPECT_EQ(Paint()(Hue::error, "text"), "text");
}

class CpctlColorOption : public CpctlTest
{
};

TEST_F(CpctlColorOption, IsCheckedBeforeTheDeviceIsOpened)
{
	expect_usage_failure({"--color=loud", "gateway", "show"}, "--color takes auto, always or never, not 'loud'");
	EXPECT_EQ(run({"--color=never", "gateway", "show"}), 0);
}

} // namespace

} // namespace cpctl::test
