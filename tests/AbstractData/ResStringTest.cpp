#include "AbstractData/ResString.h"
#include "AbstractData/Trace.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

namespace {

// The texts themselves reach the console: the end-to-end and reader tests compare them whole.
TEST(ResString, UnknownIdGivesEmptyTextAndAReportedFailure)
{
    TraceCapture trace;
    ResString text("previous");
    EXPECT_EQ(static_cast<uint32_t>(text.Load(999)), 0x80070716u);
    EXPECT_EQ(text, "");
    EXPECT_NE(trace.Text().find("Error: ASSERT_HRESULT(0x80070716)\n"), std::string::npos) << trace.Text();
}

TEST(Trace, ReportsShowThePlaceAndCutLongTexts)
{
    TraceCapture trace;
    EXPECT_EQ(AssertHresult("some/Source", 42, E_OUTOFMEMORY), E_OUTOFMEMORY);
    // The arguments are filled in after the place, never read as a format.
    TracePrintf("%s(%d) : %s", "src", 7, "Error: Open file '%s' failed.\n", "100%d.ase");
    EXPECT_EQ(trace.Text(),
              "some/Source(42) : Error: ASSERT_HRESULT(0x8007000E)\nsrc(7) : Error: Open file '100%d.ase' failed.\n");
    trace.lines.clear();
    TracePrintf("%s(%d) : %s", "src", 1, "%s\n", std::string(3000, 'n').c_str());
    EXPECT_EQ(trace.Text().size(), 1023u);
}

}  // namespace
