// The names users see for V7 levels, line styles, weights and colours.
#include <gtest/gtest.h>

#include "kora/dgn/naming.h"

using namespace Kora::Dgn;

TEST(DgnNaming, NamesAndParsesLevelsStylesWeightsAndColours)
{
    EXPECT_EQ(levelName(1), "1");
    EXPECT_EQ(levelName(63), "63");
    EXPECT_EQ(levelName(0), "");
    EXPECT_EQ(levelName(64), "");
    EXPECT_EQ(lineStyleName(0), "Solid");
    EXPECT_EQ(lineStyleName(7), "Long Dash Short Dash");
    EXPECT_EQ(lineStyleName(8), "");
    EXPECT_EQ(weightName(31), "31");
    EXPECT_EQ(colourName(255), "255");
    EXPECT_EQ(colourName(256), "");

    for (int i = 1; i <= 63; ++i) EXPECT_EQ(levelFromName(levelName(i)), i);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(lineStyleFromName(lineStyleName(i)), i);
    for (int i = 0; i < 32; ++i) EXPECT_EQ(weightFromName(weightName(i)), i);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(colourFromName(colourName(i)), i);

    EXPECT_EQ(lineStyleFromName("dot dashed"), 4);
    EXPECT_EQ(lineStyleFromName("3"), 3);
    for (const char* bad : {"", "0", "64", "01", " 1", "+1", "-1", "1.0", "Level 1"}) EXPECT_FALSE(levelFromName(bad)) << bad;
    for (const char* bad : {"8", "Dashed", "Solid "}) EXPECT_FALSE(lineStyleFromName(bad)) << bad;
    EXPECT_FALSE(weightFromName("32"));
    EXPECT_FALSE(colourFromName("256"));
}
