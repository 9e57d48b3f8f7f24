#include "ResString.h"
#include "TestFiles.h"
#include "Trace.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

namespace {

TEST(ResString, HelpTextIsExact)
{
    ResString help;
    EXPECT_EQ(help.Load(2), S_OK);
    const std::string expected = testfiles::ReadText(MAKEVERN3D_TEST_DATA "/help_text.txt");
    EXPECT_EQ(expected.size(), 975u);
    EXPECT_EQ(help, expected);
}

TEST(ResString, TextsAreStoredUnformatted)
{
    ResString text;
    ASSERT_EQ(text.Load(15), S_OK);
    EXPECT_EQ(text.back(), '.');  // no final line feed
    ASSERT_EQ(text.Load(4097), S_OK);
    EXPECT_EQ(text, "%s(%d) error: ");
    ASSERT_EQ(text.Load(4), S_OK);
    EXPECT_EQ(text, "File successful compiled.\n");
    // Exactly 14 characters fit a 16-character buffer with two to spare; 15 need a larger one.
    ASSERT_EQ(text.Load(4103), S_OK);
    EXPECT_EQ(text, "%s(%d) warning: ");
}

TEST(ResString, UnknownIdGivesEmptyTextAndAReportedFailure)
{
    TraceCapture trace;
    ResString text("previous");
    const HRESULT status = text.Load(999);
    EXPECT_TRUE(Failed(status));
    EXPECT_EQ(static_cast<uint32_t>(status), 0x80070716u);
    EXPECT_EQ(text, "");
    EXPECT_NE(trace.Text().find("Error: ASSERT_HRESULT(0x80070716)\n"), std::string::npos) << trace.Text();
}

TEST(Trace, ReportShowsPlaceAndUpperCaseStatus)
{
    TraceCapture trace;
    EXPECT_EQ(AssertHresult("some/Source", 42, E_OUTOFMEMORY), E_OUTOFMEMORY);
    EXPECT_EQ(trace.Text(), "some/Source(42) : Error: ASSERT_HRESULT(0x8007000E)\n");
}

TEST(Trace, MessageArgumentsAreFilledAfterThePlace)
{
    TraceCapture trace;
    TracePrintf("%s(%d) : %s", "src", 7, "Error: Open file '%s' failed.\n", "100%d.ase");
    EXPECT_EQ(trace.Text(), "src(7) : Error: Open file '100%d.ase' failed.\n");
}

TEST(Trace, LongTextIsCutAtTheBuffer)
{
    TraceCapture trace;
    const std::string longName(3000, 'n');
    TracePrintf("%s(%d) : %s", "src", 1, "%s\n", longName.c_str());
    EXPECT_EQ(trace.Text().size(), 1023u);
}

}  // namespace
