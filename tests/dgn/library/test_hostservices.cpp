// The DGN side of the host: loading the DGN library registers its system
// variables with the runtime.
#include <gtest/gtest.h>

#include "kora/editor.h"
#include "kora/sysvars.h"

TEST(DgnHostServices, SystemVariablesAreRegisteredWithTheirDefaults)
{
    koraResetSysVars();
    koresbuf rb;
    ASSERT_EQ(koedGetVar(L"_KX_DGNEXPORTTYPE", &rb), KORTNORM);
    EXPECT_EQ(rb.restype, KORTSHORT);
    EXPECT_EQ(rb.resval.rint, 1);  // V7: the format this host writes
    ASSERT_EQ(koedGetVar(L"DGNIMPORTMODE", &rb), KORTNORM);
    EXPECT_EQ(rb.resval.rint, 1);
    // Any short value is kept; the readers give the others their meaning.
    EXPECT_EQ(koraSetSysVarText(L"DGNIMPORTMODE", L"7"), KORTNORM);
    EXPECT_EQ(koraSetSysVarText(L"_KX_DGNEXPORTTYPE", L"2"), KORTERROR);
    koraResetSysVars();
}
