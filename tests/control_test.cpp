// The control file: text to the five settings, and when it counts as changed.
#include <gtest/gtest.h>

#include <cstdlib>

#include "host/Control.h"
#include "support/process.h"

namespace {

struct ControlCase {
    const char* what;
    std::string text;
    control expected;
};

const control kDefaults{300, 0.25f, 0.5f, 1.0f, 2.0f};

const ControlCase kCases[] = {
    {"empty file", "", kDefaults},
    {"all five",
     "<a name=\"-bgframes\" value=\"50\"/>\n<a name=\"-color_low\" value=\"0.3\"/>\n<a name=\"-color_high\" "
     "value=\"0.7\"/>\n<a name=\"-ir_low\" value=\"1.5\"/>\n<a name=\"-ir_high\" value=\"2.5\"/>\n",
     {50, 0.3f, 0.7f, 1.5f, 2.5f}},
    {"two settings in one line, no line end",
     "<a name=\"-ir_low\" value=\"3\"/><a name=\"-color_low\" value=\"4\"/>",
     {300, 4.0f, 0.5f, 3.0f, 2.0f}},
    {"the last setting of a key wins", "name=-color_low v=1\nname=-color_low v=2\n", {300, 2.0f, 0.5f, 1.0f, 2.0f}},
    {"keys are prefixes, names too", "<p names=\"-color_lowest\" value=\"0.125\">", {300, 0.125f, 0.5f, 1.0f, 2.0f}},
    {"keys are case-sensitive", "<p name=\"-Color_low\" value=\"9\"><p NAME=\"-color_low\" value=\"9\">", kDefaults},
    {"unknown keys are ignored",
     "<p name=\"-other\" value=\"9\"><p name=\"-ir_high\" value=\"9\">",
     {300, 0.25f, 0.5f, 1.0f, 9.0f}},
    {"any word stands before the value", "<p name=\"-ir_low\" x=\"6\">", {300, 0.25f, 0.5f, 6.0f, 2.0f}},
    // The full delimiter set ends a value at a blank; with the quote alone the token also begins at the equals sign.
    {"value without quotes, full set", "name -color_low value 0.75 more", {300, 0.75f, 0.5f, 1.0f, 2.0f}},
    {"value without quotes, quote set", "name -color_high value 0.75 more", {300, 0.25f, 0.75f, 1.0f, 2.0f}},
    {"equals sign before an unquoted value, quote set", "name=-bgframes value==7", {0, 0.25f, 0.5f, 1.0f, 2.0f}},
    {"blanks and brackets inside quotes", "<p name=\"-bgframes\" value=\" 12 <x>\">", {12, 0.25f, 0.5f, 1.0f, 2.0f}},
    {"blanks inside quotes, full set", "<p name=\"-ir_low\" value=\" 12 <x>\">", {300, 0.25f, 0.5f, 12.0f, 2.0f}},
    {"text that does not convert gives 0",
     "<p name=\"-bgframes\" value=\"x\"><p name=\"-color_low\" value=\"y\">",
     {0, 0.0f, 0.5f, 1.0f, 2.0f}},
    {"negative",
     "<p name=\"-bgframes\" value=\"-3\"><p name=\"-color_low\" value=\"-1\">",
     {-3, -1.0f, 0.5f, 1.0f, 2.0f}},
    {"line ends after name", "<p name\n<p name=\"-bgframes\" value=\"4\">", {4, 0.25f, 0.5f, 1.0f, 2.0f}},
    {"line ends after a key", "<p name=\"-bgframes", kDefaults},
    {"line ends before the value", "<p name=\"-color_low\" value", kDefaults},
    {"a line of two pieces", std::string(508, ' ') + "name=\"-bgframes\" value=\"4\"", kDefaults},
    {"a long line before a setting",
     std::string(5000, 'x') + "\n<p name=\"-bgframes\" value=\"4\">",
     {4, 0.25f, 0.5f, 1.0f, 2.0f}},
    {"lines with carriage returns",
     "<p name=\"-bgframes\" value=\"4\"/>\r\n<p name=\"-ir_low\" value=\"4\"/>\r\n",
     {4, 0.25f, 0.5f, 4.0f, 2.0f}},
};

class Control : public testing::Test {
 protected:
    void SetUp() override { setenv("FLEIFEISA_ROOT", root.path.c_str(), 1); }
    void TearDown() override { unsetenv("FLEIFEISA_ROOT"); }
    TempDir root;
};

void expectEqual(const control& got, const control& expected) {
    EXPECT_EQ(got.bg_frames, expected.bg_frames);
    EXPECT_EQ(got.color_low, expected.color_low);
    EXPECT_EQ(got.color_high, expected.color_high);
    EXPECT_EQ(got.ir_low, expected.ir_low);
    EXPECT_EQ(got.ir_high, expected.ir_high);
}

TEST_F(Control, FileTable) {
    for (const ControlCase& c : kCases) {
        SCOPED_TRACE(c.what);
        root.writeControl(c.text);
        control got{1, 2, 3, 4, 5};
        EXPECT_TRUE(updateControl(3, &got));
        expectEqual(got, c.expected);
    }
}

TEST_F(Control, MissingFileLeavesTheDefaults) {
    control got{1, 2, 3, 4, 5};
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ControlFile(3).Read(got));
    expectEqual(got, kDefaults);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "The control file " + ControlPath(3) +
                  " has changed but cannot be opened: No such file or directory. The defaults hold.\n");
    root.writeControl("");
    EXPECT_TRUE(updateControl(3, &got));
    EXPECT_FALSE(updateControl(4, &got)) << "every device has a file of its own";
}

TEST_F(Control, PathBelowTheRoot) {
    EXPECT_EQ(ControlPath(-7), root.path + "/opt/tesra/var/conf/-7/qelparams2.conf");
    unsetenv("FLEIFEISA_ROOT");
    EXPECT_EQ(ControlPath(12), "/opt/tesra/var/conf/12/qelparams2.conf");
}

TEST_F(Control, ChangesAreSeenByModificationTime) {
    time_t last = 0;
    EXPECT_FALSE(updated(3, &last)) << "no file";
    EXPECT_EQ(last, 0);
    root.writeControl("", 1000);
    EXPECT_TRUE(updated(3, &last)) << "a file that appears";
    EXPECT_EQ(last, 1000);
    EXPECT_FALSE(updated(3, &last));
    root.writeControl("other content", 1000);
    EXPECT_FALSE(updated(3, &last)) << "only the time counts";
    root.writeControl("other content", 999);
    EXPECT_TRUE(updated(3, &last)) << "an older time is a change too";
    std::remove(ControlPath(3).c_str());
    EXPECT_FALSE(updated(3, &last));
    EXPECT_EQ(last, 999);
}

}  // namespace
