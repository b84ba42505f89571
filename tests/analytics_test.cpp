// The reply to a detection frame, byte for byte, from records made by hand.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "support/images.h"
#include "support/protocol.h"
#include "tracker/kscolortracker.h"

namespace {

class Analytics : public testing::Test {
 protected:
    void add(int cell, int framenum, int id, bool reportit, int minr, int maxr, int minc, int maxc, int area) {
        Object& o = tracker.Ob[cell];
        o.framenum = framenum;
        o.id = id;
        o.reportit = reportit;
        o.area = area;
        o.h.KsSetBoxBounds(minr, maxr, minc, maxc);
        for (int i = 0; i < 5; i++) {
            ContNode* node = tracker.G->GetNewNode();
            *node = {false, i == 1 || i == 2 ? maxr : minr, i == 2 || i == 3 ? maxc : minc, o.fnode};
            o.fnode = node;
        }
        tracker.usedob[tracker.numobjects++] = cell;
    }

    std::string reply(const std::string& timestamp, int seqnum, int devid = 3, int analyzerid = 5) {
        std::ostringstream out;
        std::string text = timestamp;
        tracker.OutputAnalyticsXML(devid, text.data(), seqnum, analyzerid, out);
        return out.str();
    }

    TestImage image{8, 8, flat(0)};
    std::unique_ptr<ColorDiffTracker> owned = MakeTracker(COLOR, image, 10);
    ColorDiffTracker& tracker = *owned;
};

std::string withDocument(const std::string& timestamp, int seqnum, const std::string& document) {
    return "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nContent-Length: " + std::to_string(document.size()) +
           "\r\nContent-Type: text/xml \r\nTimestamp:" + timestamp + "\r\nSequence-Number: " + std::to_string(seqnum) +
           "\r\n\r\n" + document;
}

TEST_F(Analytics, OneObjectOnce) {
    tracker.t = 40;
    EXPECT_EQ(reply(" 1300000000", 17), emptyAnalytics(" 1300000000", 17));
    add(2, 40, 12, true, 16, 63, 40, 63, 706);
    EXPECT_EQ(reply(" 1300000000", 17),
              withDocument(" 1300000000", 17,
                           "<ANALYTICS>\n<FRAME DEVID=\"3\" TIMESTAMP=\" 1300000000\" SEQ=\"17\"/>\n"
                           "<TRACKING ANALYZERID=\"5\"><OBJECT OID=\"3.5.12\">\n"
                           "<BOX X=\"52\" Y=\"40\" W=\"24\" H=\"48\" DENS=\"61\"/>\n<SHAPE>\n</SHAPE>\n</OBJECT>"
                           "</TRACKING>\n</ANALYTICS>\n"));
    for (const ContNode* q = tracker.Ob[2].fnode; q != nullptr; q = q->link) EXPECT_TRUE(q->keepnode) << "a rectangle";
    EXPECT_FALSE(tracker.Ob[2].reportit);
    EXPECT_EQ(reply("", -1), emptyAnalytics("", -1)) << "reported once";
}

TEST_F(Analytics, OnlyMarkedRecordsOfTheFrameInTableOrder) {
    tracker.t = 40;
    add(7, 40, 1, true, 0, 2, 0, 2, 1);
    add(3, 39, 2, true, 0, 2, 0, 2, 1);
    add(5, 40, 3, false, 0, 2, 0, 2, 1);
    add(1, 40, 0, true, 5, 5, 6, 6, 1);
    tracker.usedob[tracker.numobjects++] = 1;  // a cell that stands twice is reported once
    const std::string long_timestamp(300, '8');
    EXPECT_EQ(reply(long_timestamp, 2147483647, -4, 0),
              withDocument(long_timestamp, 2147483647,
                           "<ANALYTICS>\n<FRAME DEVID=\"-4\" TIMESTAMP=\"" + long_timestamp +
                               "\" SEQ=\"2147483647\"/>\n<TRACKING ANALYZERID=\"0\"><OBJECT OID=\"-4.0.1\">\n"
                               "<BOX X=\"1\" Y=\"1\" W=\"3\" H=\"3\" DENS=\"11\"/>\n<SHAPE>\n</SHAPE>\n</OBJECT>"
                               "<OBJECT OID=\"-4.0.0\">\n<BOX X=\"6\" Y=\"5\" W=\"1\" H=\"1\" DENS=\"100\"/>\n"
                               "<SHAPE>\n</SHAPE>\n</OBJECT></TRACKING>\n</ANALYTICS>\n"));
    EXPECT_TRUE(tracker.Ob[3].reportit) << "left for nobody, as it was";
}

// area / box in extended precision, rounded to single precision, then floored.
TEST_F(Analytics, Density) {
    const int cases[][4] = {{10, 10, 29, 29},           {10, 10, 7, 7}, {3, 1, 1, 33},  {3, 1, 2, 66},
                            {100, 7, 399, 57},          {1, 1, 2, 200}, {64, 48, 0, 0}, {4096, 4096, 16777215, 99},
                            {8192, 8192, 67108863, 100}};
    for (const auto& c : cases) {
        tracker.t++;
        tracker.numobjects = 0;
        add(0, tracker.t, 1, true, 0, c[0] - 1, 0, c[1] - 1, c[2]);
        const std::string answer = reply("", 1);
        EXPECT_NE(answer.find("DENS=\"" + std::to_string(c[3]) + "\""), std::string::npos) << c[2] << ": " << answer;
    }
}

TEST_F(Analytics, NullTimestampFailsTheStream) {
    std::ostringstream out;
    int devid = 3, seqnum = 1, analyzerid = 5;
    tracker.OutputAnalyticsXML(devid, nullptr, seqnum, analyzerid, out);
    EXPECT_TRUE(out.fail());
    EXPECT_EQ(out.str(), "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nTimestamp:");
}

}  // namespace
