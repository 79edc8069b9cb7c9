#include <gtest/gtest.h>
#include <tessel/Tessel.h>
#include <cstring>

TEST(Version, SymbolsHoldTheReleaseText)
{
    EXPECT_EQ(TesselVersionNumber, 1.0);
    EXPECT_STREQ(reinterpret_cast<const char*>(TesselVersionString), "@(#)PROGRAM:Tessel  PROJECT:Tessel-1\n");
}
