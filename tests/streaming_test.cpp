// The frame protocol inside the process: request bytes to outcome, fields, exact reply bytes and what is left unread.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <sstream>
#include <utility>

#include "host/Streaming.h"
#include "support/protocol.h"

namespace {

const std::string kTail = "tail of the input";

struct StreamCase {
    const char* what;
    std::string request;
    int code;
    std::string reply = "";
    const char* timestamp = nullptr;
    int sequence = 0;
    const char* status = nullptr;
};

const std::string kBody12 = "Content-Type: image/rgb\r\nContent-Length: 12\r\nImage-width: 2\r\nImage-height: 2\r\n";
const std::string kPixels = "abcdefghijkl";

const StreamCase kCases[] = {
    {"frame", message(kBody12 + "Timestamp: 13\r\nSequence-Number: 17\r\n", kPixels), 1, "", " 13", 17},
    {"name prefixes, other case, plain line ends",
     "ANALYTICS.CARTRIDGE and more\ncontent-TYPES: x-image/rgbx\ncontent-length-x:12z\nIMAGE-widths:+2\nImage-height: "
     "02\nTIMESTAMPS:a\nSequence-Numbering:-4\n----\n" +
         kPixels,
     1, "", "a", -4},
    {"repeated headers: the last one counts",
     message("Timestamp: 1\r\nSequence-Number: 1\r\nContent-Type: text/xml\r\nContent-Length: 3\r\n" + kBody12 +
                 "Timestamp: 2\r\nSequence-Number: 2\r\n",
             kPixels),
     1, "", " 2", 2},
    {"blanks inside and behind a value stay", message(kBody12 + "Timestamp:   a <b>  \r\n", kPixels), 1, "",
     "   a <b>  "},
    {"names behind blanks and colons", message("  : Sequence-Number: 8\r\n" + kBody12, kPixels), 1, "", nullptr, 8},
    {"name split off by a blank", message("Sequence-Number 9\r\nTimestamp x: y\r\n"), 0, "", "x: y", 9},
    {"blank line of tabs ends the headers", "ANALYTICS.CARTRIDGE\r\n" + kBody12 + " \t 12:34\r\n" + kPixels, 1},
    {"lone blank", " \n", 0},
    {"lone tab", "\t\n", 0},
    {"empty line", "\n", 0, unknownCommand("")},
    {"lone carriage return", "\r\n", 0, unknownCommand("\r")},
    {"two blanks", "  \n", 0, unknownCommand("  ")},
    {"first line in lower case", "analytics.cartridge\r\n", 0, unknownCommand("analytics.cartridge\r")},
    {"first line too short", "ANALYTICS.CARTRIDG\n", 0, unknownCommand("ANALYTICS.CARTRIDG")},
    {"first line with format letters", "%s%n%d\n", 0, unknownCommand("%s%n%d")},
    {"first line of 254 characters", "ANALYTICS.CARTRIDGE" + std::string(235, 'x') + "\nCommand: SHUTDOWN\n\n", 3},
    {"no command and no body", message("X-Other: 1\r\nStatus: OK\r\n"), 0, "", nullptr, 0, " OK"},
    {"shutdown", message("Command: SHUTDOWN\r\n"), 3},
    {"shutdown inside a longer word", message("Commander:xSHUTDOWNx\r\n"), 3},
    {"command in lower case is none", message("Command: shutdown\r\n"), 0},
    {"reconfigure", message("Command: RECONFIGURE\r\n"), 2},
    {"both words: reconfigure wins", message("Command: SHUTDOWN RECONFIGURE\r\n"), 2},
    {"both words, other order", message("Command: RECONFIGURE SHUTDOWN\r\n"), 2},
    {"a frame overrides a command", message("Command: SHUTDOWN\r\n" + kBody12, kPixels), 1},
    {"another body overrides a command",
     message("Command: SHUTDOWN\r\nContent-Type: text/plain\r\nContent-Length: 3\r\n", "xyz"), 4},
    {"body without a type", message("Content-Length: 3\r\n", "xyz"), 4},
    {"empty type keeps the earlier one", message(kBody12 + "Content-Type:\r\n", kPixels), 1},
    {"length 0", message("Content-Type: image/rgb\r\nContent-Length: 0\r\n"), 0},
    {"negative length", message("Content-Type: image/rgb\r\nContent-Length: -5\r\n"), 0},
    {"length without digits", message("Content-Type: image/rgb\r\nContent-Length: many\r\n"), 0},
    {"status text lands in status", message("Status: a\r\nStatus-text: b\r\n"), 0, "", nullptr, 0, " b"},
    {"headers without a value count as absent",
     message("Command: SHUTDOWN\r\nCommand:\r\nStatus:\r\nTimestamp: 5\r\nTimestamp:\r\n"), 3, "", " 5"},
    {"no length value", message("Timestamp: 7\r\nSequence-Number: 9\r\nContent-Length:\r\n"), 0,
     headerError("Content length invalid.", " 7", 9), " 7", 9},
    {"a blank is a value", message("Sequence-Number: \r\nContent-Length: \r\n"), 0},
    {"no width value, frame kept", message(kBody12 + "Image-width:\r\nTimestamp: 7\r\n", kPixels), 1,
     headerError("Image width invalid.", " 7", 0), " 7"},
    {"no height value, no colon", message(kBody12 + "Image-height\r\nTimestamp: 7\r\n", kPixels), 1,
     headerError("Image height invalid.", " 7", 0), " 7"},
    {"no sequence value keeps the number", message("Sequence-Number: 4\r\nSequence-Number:\r\nTimestamp: 1\r\n"), 0,
     headerError("Sequence num invalid.", " 1", 4), " 1", 4},
    {"the last error text counts", message("Image-width:\r\nContent-Length:\r\nTimestamp: 1\r\n"), 0,
     headerError("Content length invalid.", " 1", 0), " 1"},
    {"error without a timestamp", message("Image-width:\r\n"), 0, headerError("Image width invalid.", "", 0)},
    {"number beyond 32 bits", message("Sequence-Number: 5\r\nSequence-Number: 2147483648\r\nTimestamp: 1\r\n"), 0,
     headerError("Sequence num invalid.", " 1", 5), " 1", 5},
    {"number below 32 bits", message("Sequence-Number: -2147483649\r\nTimestamp: 1\r\n"), 0,
     headerError("Sequence num invalid.", " 1", 0), " 1"},
    {"number beyond 64 bits", message("Image-width: 99999999999999999999\r\nTimestamp: 1\r\n"), 0,
     headerError("Image width invalid.", " 1", 0), " 1"},
    {"such a number keeps the one before, frame kept", message(kBody12 + "Image-width: -2147483649\r\n", kPixels), 1,
     headerError("Image width invalid.", "", 0)},
    {"largest numbers", message("Sequence-Number: 2147483647\r\n"), 0, "", nullptr, 2147483647},
    {"image too large for memory",
     message("Content-Type: image/rgb\r\nContent-Length: 3\r\nImage-width: 20000\r\nImage-height: 20000\r\n", "xyz"), 0,
     errorReply("Image size too large.")},
};

TEST(StreamIo, MessageTable) {
    for (const StreamCase& c : kCases) {
        SCOPED_TRACE(c.what);
        KsColorImage image;
        std::istringstream in(c.request + kTail);
        std::ostringstream out;
        const streamin got = StreamIO(&image, in, out);
        EXPECT_EQ(got.ret_status, c.code);
        EXPECT_EQ(out.str(), c.reply);
        EXPECT_STREQ(got.timestamp, c.timestamp);
        EXPECT_STREQ(got.status, c.status);
        EXPECT_EQ(got.status_text, nullptr);
        EXPECT_EQ(got.sequence_num, c.sequence);
        const std::string rest{std::istreambuf_iterator<char>(in), {}};
        EXPECT_EQ(rest, kTail) << "the next message must begin right behind this one";
        ASSERT_EQ(image.raw, c.code == kFrame);
        if (c.code == kFrame) {
            EXPECT_EQ(image.Width(), 2);
            EXPECT_EQ(image.Height(), 2);
            EXPECT_EQ(std::string(reinterpret_cast<char*>(image.rawsrc), 12), kPixels);
        }
        image.KsFreeImageMemory();
        std::free(got.timestamp);
        std::free(got.status);
    }
}

// A body shorter than the image is filled up with zero bytes, a longer one is accepted.
TEST(StreamIo, BodyAndImageOfDifferentLength) {
    for (const int height : {1, 2, 5}) {
        KsColorImage image;
        std::ostringstream out;
        std::istringstream in(
            message("Content-Type: image/rgb\r\nContent-Length: 12\r\nImage-width: 2\r\nImage-height: " +
                        std::to_string(height) + "\r\n",
                    kPixels));
        ASSERT_EQ(StreamIO(&image, in, out).ret_status, kFrame);
        for (int i = 0; i < 2 * height * 3; i++)
            EXPECT_EQ(image.rawsrc[i], i < 12 ? kPixels[static_cast<std::size_t>(i)] : 0) << height << " " << i;
        EXPECT_EQ(out.str(), "");
        image.KsFreeImageMemory();
        EXPECT_TRUE(image.raw && image.NofR == height && image.NofC == 2) << "released, not detached";
    }
}

TEST(Replies, ExactBytes) {
    std::ostringstream out;
    const auto take = [&] { return std::exchange(out, std::ostringstream()).str(); };
    char timestamp[] = " 1300000000";
    streamin message{17, nullptr, nullptr, timestamp, kFrame};
    AckOK(message, out);
    EXPECT_EQ(take(), "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nTimestamp: 1300000000\r\nSequence-Number:17\r\n\r\n");
    AckError("Type must be COLOR or IR.", out);
    EXPECT_EQ(take(), "ANALYTICS.CARTRIDGE\r\nStatus: ERROR\r\nStatus-text: Type must be COLOR or IR.\r\n\r\n");
    message.timestamp = nullptr;
    AckOK(message, out);
    EXPECT_TRUE(out.fail());
    EXPECT_EQ(take(), "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nTimestamp:");
}

}  // namespace
