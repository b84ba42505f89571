// The camera host's pieces: replies, control files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "analyzer/control_file.h"
#include "analyzer/reply.h"
#include "host/Control.h"

namespace fleifeisa::host {
namespace {

const std::string kDocument =
    "<ANALYTICS>\n<FRAME DEVID=\"3\" TIMESTAMP=\" 12.5\" SEQ=\"17\"/>\n<TRACKING ANALYZERID=\"5\">"
    "<OBJECT OID=\"3.5.12\">\n<BOX X=\"52\" Y=\"40\" W=\"24\" H=\"48\" DENS=\"61\"/>\n<SHAPE>\n</SHAPE>\n</OBJECT>"
    "<OBJECT OID=\"3.5.0\">\n<BOX X=\"1\" Y=\"0\" W=\"3\" H=\"1\" DENS=\"100\"/>\n<SHAPE>\n</SHAPE>\n</OBJECT>"
    "</TRACKING>\n</ANALYTICS>\n";

std::string analyticsReply(const std::string& document) {
    return "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nContent-Length: " + std::to_string(document.size()) +
           "\r\nContent-Type: text/xml \r\nTimestamp: 12.5\r\nSequence-Number: 17\r\n\r\n" + document;
}

TEST(Replies, FieldsOfEveryKind) {
    const Reply start = parseReply("ANALYTICS.CARTRIDGE\r\nStatus: OK\r\n\r\n");
    EXPECT_TRUE(start.ok && !start.numbered && !start.detection);
    const Reply learnt = parseReply("ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nTimestamp: 1\r\nSequence-Number:7\r\n\r\n");
    EXPECT_TRUE(learnt.numbered && !learnt.detection && learnt.sequence == 7);
    const Reply empty = parseReply("ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nTimestamp: 1\r\nSequence-Number: 8\r\n\r\n");
    EXPECT_TRUE(empty.detection && empty.sequence == 8 && empty.objects.empty());
    const Reply error = parseReply("ANALYTICS.CARTRIDGE\r\nStatus: ERROR\r\nStatus-text: Line too long.\r\n\r\n");
    EXPECT_TRUE(!error.ok && !error.numbered);
    EXPECT_EQ(error.status_text, "Line too long.");
    const Reply full = parseReply(analyticsReply(kDocument));
    EXPECT_EQ(full.timestamp, "12.5");
    ASSERT_EQ(full.objects.size(), 2u);
    const AnalyzerObject& one = full.objects[0];
    EXPECT_EQ((std::array{one.device, one.analyzer_id, one.id, one.left, one.top, one.width, one.height, one.density}),
              (std::array{3, 5, 12, 40, 16, 24, 48, 61}));
    EXPECT_EQ(full.objects[1].left, 0);  // odd width: the centre is truncated
}

TEST(Replies, LengthIsKnownOnlyWhenAllIsThere) {
    const std::string reply = analyticsReply(kDocument);
    for (std::size_t n = 0; n < reply.size(); ++n) ASSERT_EQ(replyLength(reply.substr(0, n)), 0u) << n;
    EXPECT_EQ(replyLength(reply + "ANALYTICS"), reply.size());
}

TEST(Replies, DamageIsFound) {
    EXPECT_THROW(replyLength("ANALYTICS.CARTRIDGF"), std::runtime_error);
    EXPECT_THROW(replyLength("ANALYTICS.CARTRIDGE\r\nContent-Length: -5\r\n\r\n"), std::runtime_error);
    EXPECT_THROW(replyLength("ANALYTICS.CARTRIDGE\r\n" + std::string(9000, 'x')), std::runtime_error);
    EXPECT_THROW(replyLength("ANALYTICS.CARTRIDGE\r\n" + std::string(9000, 'x') + "\r\n\r\n"), std::runtime_error);
    EXPECT_THROW(replyLength("ANALYTICS.CARTRIDGE\r\nContent-Length: 1048577\r\n\r\n"), std::runtime_error);
    for (const auto& [from, to] : {std::pair{"W=\"24\"", "W=\"0\""},
                                   {"W=\"24\"", "W=\"2147483647\""},
                                   {"W=\"24\"", "W=\"16417\""},
                                   {"H=\"48\"", "H=\"-1\""},
                                   {"X=\"52\"", "X=\"-2147483648\""},
                                   {"X=\"52\"", "X=\"-5\""},     // a box of 24: left of -16
                                   {"Y=\"40\"", "Y=\"16385\""},  // a box of 48: below 16400
                                   {"DENS=\"61\"", "DENS=\"101\""},
                                   {"DENS=\"61\"", "DENS=\"-1\""},
                                   {"3.5.12", "3.5.100000"},
                                   {"3.5.12", "3.5.-1"},
                                   {"3.5.12", "-3.5.1"},
                                   {"3.5.12", "3.5"},
                                   {"DENS=\"61\"", "DENS=\"\""},
                                   {"</ANALYTICS>\n", ""},
                                   {"<SHAPE>", "<SHAPE/>"},
                                   {"X=\"52\"", "X=\"99999999999\""}}) {
        std::string document = kDocument;
        document.replace(document.find(from), std::string(from).size(), to);
        EXPECT_THROW(parseReply(analyticsReply(document)), std::runtime_error) << from << " -> " << to;
    }
    // As many objects as an analyzer ever reports, and one more.
    const std::size_t begin = kDocument.find("<OBJECT"), end = kDocument.find("<OBJECT", begin + 1);
    for (const std::size_t count : {kMaxObjects, kMaxObjects + 1}) {
        std::string document = kDocument.substr(0, begin);
        for (std::size_t i = 0; i < count; ++i) document += kDocument.substr(begin, end - begin);
        const std::string reply = analyticsReply(document + "</TRACKING>\n</ANALYTICS>\n");
        if (count == kMaxObjects)
            EXPECT_EQ(parseReply(reply).objects.size(), count);
        else
            EXPECT_THROW(parseReply(reply), std::runtime_error);
    }
}

TEST(ControlFile, TheAnalyzerReadsWhatIsWritten) {
    const auto root = std::filesystem::temp_directory_path() / ("fleifeisa-units-" + std::to_string(::getpid()));
    const std::string path = controlPath(root.string(), 42);
    ControlParameters values;
    values.bgframes = "17";
    values.color_low = "0.125";
    values.color_high = "0.75";
    values.ir_low = "1.5";
    values.ir_high = "2.5";
    EXPECT_TRUE(writeControlFile(path, controlText(values)));
    ::setenv("FLEIFEISA_ROOT", root.c_str(), 1);
    control read{};
    EXPECT_TRUE(updateControl(42, &read));
    EXPECT_EQ(read.bg_frames, 17);
    EXPECT_EQ(read.color_low, 0.125f);
    EXPECT_EQ(read.color_high, 0.75f);
    EXPECT_EQ(read.ir_low, 1.5f);
    EXPECT_EQ(read.ir_high, 2.5f);

    // The same text leaves the file alone; another one within the same second is still noticed.
    std::time_t seen = 0;
    updated(42, &seen);
    EXPECT_FALSE(writeControlFile(path, controlText(values)));
    EXPECT_FALSE(updated(42, &seen));
    for (const char* frames : {"18", "19", "20"}) {
        values.bgframes = frames;
        EXPECT_TRUE(writeControlFile(path, controlText(values)));
        EXPECT_TRUE(updated(42, &seen)) << frames;
    }
    ::unsetenv("FLEIFEISA_ROOT");
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
    std::filesystem::remove_all(root);
    EXPECT_THROW(writeControlFile("/proc/nowhere/file", "x"), std::system_error);
}

}  // namespace
}  // namespace fleifeisa::host
