// The real executable: command line, start-up, the phases of the main loop, ends of the process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/process.h"
#include "support/protocol.h"

namespace {

using Args = std::vector<std::string>;
const Args kStreaming{"COLOR", "STREAMING", "3", "5"};

class MainLoop : public testing::Test {
 protected:
    RunResult Run(const std::string& input, const Args& args = kStreaming) {
        return RunAnalyzer(args, input, root.path);
    }
    TempDir root;
};

TEST_F(MainLoop, UsageWithAWrongNumberOfArguments) {
    const std::string name = FLEIFEISA_EXE;
    const std::string usage = "There are three possible modes of execution:\n1) " + name +
                              " <COLOR | IR> <name_path> <file_names> <devid>\n"
                              "\t-Intended to operate with stored sequences.\n2) " +
                              name +
                              " <COLOR | IR> LIVE <updated file> <devid>\n"
                              "\t-Intended to operate with a live camera updating a file.\n3) " +
                              name +
                              " <COLOR | IR> STREAMING <devid> <analyzerid>\n"
                              "\t-Intended to operate with a live camera through stdio.\n";
    for (const Args& args :
         {Args{}, Args{"COLOR"}, Args{"COLOR", "STREAMING"}, Args{"COLOR", "STREAMING", "3", "5", "7"}}) {
        const RunResult run = Run("", args);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, usage);
    }
}

struct StartCase {
    Args args;
    bool control_file;
    std::string out;
    std::string err;
    int status = 0;
};

TEST_F(MainLoop, StartUpReplies) {
    const std::string no_control = ErrorReply("Cannot open configuration file."),
                      type = ErrorReply("Type must be COLOR or IR.");
    const std::string hello5 = "INITIAL STARTUP!! My ID is 5\n\n", hello0 = "INITIAL STARTUP!! My ID is 0\n\n";
    const std::string refused = "Cannot open control file.  Cannot proceed.\n";
    const std::string list = root.Write("empty-list", " \n");
    const StartCase cases[] = {
        {{"COLOR", "STREAMING", "3", "5"}, true, kStartup, hello5},
        {{"IR", "STREAMINGX", "3", "5x"}, true, kStartup, hello5},
        {{"COLOR", "STREAMING", "3"}, true, kStartup, hello0},
        {{"COLOR", "STREAMING", "3", "5"}, false, no_control + kStartup, hello5},
        {{"color", "STREAMING", "3", "5"}, true, type + kStartup, hello5},
        {{"COLORS", "STREAMING", "3", "5"}, false, no_control + type + kStartup, hello5},
        {{"COLOR", "/tmp/", list, "3"}, true, kStartup, hello0},
        {{"grey", "streaming", list, "3"}, true, type + kStartup, hello0},
        {{"COLOR", "/tmp/", list, "3"}, false, refused, ""},
        {{"COLOR", "LIVEX", "file", "3"}, false, refused, ""},
        {{"COLOR", "/tmp/", "no-such-list", "3"}, true, "\n Invalid file name no-such-list\n", "", 1},
        {{"COLOR", std::string(5000, 'd'), std::string(5000, 'l'), "3"},
         true,
         "\n Invalid file name " + std::string(5000, 'l') + "\n",
         "",
         1},
    };
    for (const StartCase& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.args).substr(0, 80));
        if (c.control_file) root.WriteControl("");
        const RunResult run = Run("", c.args);
        EXPECT_EQ(run.out, c.out);
        EXPECT_EQ(run.err, c.err);
        EXPECT_EQ(run.status, c.status);
        if (c.control_file) unlink((root.path + "/opt/tesra/var/conf/3/qelparams2.conf").c_str());
    }
}

TEST_F(MainLoop, LearningThenDetection) {
    for (const int learning : {-2, 0, 1, 2, 6}) {
        root.WriteControl(BackgroundFrames(learning));
        std::string input, expected = kStartup;
        for (int f = 1; f <= 9; f++) {
            input += FlatFrame(8, 8, 'a', f);
            const std::string ts = " " + std::to_string(1000 + f);
            expected += f == 1 || f <= learning ? OkReply(ts, f) : EmptyAnalytics(ts, f);
        }
        const RunResult run = Run(input + kShutdownMessage + "ANYTHING BEHIND IT");
        EXPECT_EQ(run.out, expected) << "bg_frames " << learning;
        EXPECT_EQ(run.status, 0);
    }
}

TEST_F(MainLoop, MessagesWithoutAFrameDoNotCount) {
    root.WriteControl(BackgroundFrames(2));
    const RunResult run = Run(Message("Command: RECONFIGURE\r\n") + FlatFrame(4, 4, 'a', 1) + " \n" +
                              Message("Content-Type: text/plain\r\nContent-Length: 3\r\n", "abc") + "x\n" +
                              FlatFrame(4, 4, 'a', 2) + Message("Timestamp: 8\r\nImage-width:\r\n") +
                              FlatFrame(4, 4, 'a', 3) + Message("Command: RECONFIGURE\r\n"));
    EXPECT_EQ(run.out, kStartup + OkReply(" 1001", 1) + UnknownCommand("x") + OkReply(" 1002", 2) +
                           HeaderError("Image width invalid.", " 8", 0) + EmptyAnalytics(" 1003", 3));
    EXPECT_EQ(run.status, 0);
}

TEST_F(MainLoop, FramesWithoutPixelsAndOfAnotherSize) {
    root.WriteControl(BackgroundFrames(2));
    const std::string pixels(48, 'a');
    const std::string headers = "Content-Type: image/rgb\r\nContent-Length: 48\r\n";
    const RunResult run = Run(Message(headers + "Timestamp: 1\r\n", pixels) + FrameMessage(-4, 4, pixels, "2", 2) +
                              FrameMessage(4, 0, pixels, "3", 3) + FlatFrame(4, 4, 'a', 4) + FlatFrame(8, 4, 'a', 5) +
                              FrameMessage(0, 0, pixels, "6", 6) + FlatFrame(4, 4, 'a', 7) + Message(headers, pixels));
    EXPECT_EQ(run.out, kStartup + OkReply(" 1", 0) + OkReply(" 2", 2) + EmptyAnalytics(" 3", 3) +
                           EmptyAnalytics(" 1004", 4) + ErrorReply("Image size differs from the first frame.") +
                           EmptyAnalytics(" 6", 6) + EmptyAnalytics(" 1007", 7) + EmptyAnalytics("", 0));
    EXPECT_EQ(run.status, 0);
}

TEST_F(MainLoop, NoTimestamp) {
    root.WriteControl(BackgroundFrames(1));
    const std::string frame =
        Message("Content-Type: image/rgb\r\nContent-Length: 3\r\nImage-width: 1\r\nImage-height: 1\r\n", "abc");
    EXPECT_EQ(Run(frame + frame).out, kStartup + OkReply("", 0) + EmptyAnalytics("", 0));
}

TEST_F(MainLoop, LinesThatAreTooLong) {
    root.WriteControl(BackgroundFrames(9));
    const std::string line(300, 'z'), too_long = ErrorReply("Line too long.");
    const RunResult run = Run(
        line + "\n" + FlatFrame(1, 1, 'a', 1) + "ANALYTICS.CARTRIDGE\r\nCommand: SHUTDOWN\r\nX: " + line + "\r\n" +
        FlatFrame(1, 1, 'a', 2) + "ANALYTICS.CARTRIDGE\r\nContent-Type: image/rgb\r\nContent-Length: 3\r\nX: " + line +
        "\n" + FlatFrame(1, 1, 'a', 3) + Message("Timestamp: 5\r\nImage-width:\r\nX: " + line + "\n") + line);
    EXPECT_EQ(run.out, kStartup + UnknownCommand(line.substr(0, 254)) + too_long + OkReply(" 1001", 1) + too_long +
                           OkReply(" 1002", 2) + too_long + OkReply(" 1003", 3) +
                           HeaderError("Image width invalid.", " 5", 0) + too_long + UnknownCommand("\r") +
                           UnknownCommand(line.substr(0, 254)) + too_long);
    EXPECT_EQ(run.status, 0);
}

// Every place at which the input of one frame can break off.
TEST_F(MainLoop, InputEndsAnywhere) {
    root.WriteControl(BackgroundFrames(9));
    const std::string headers =
        "ANALYTICS.CARTRIDGE\r\nTimestamp: 5\r\nSequence-Number: 6\r\nImage-width: 4\r\nImage-height: "
        "4\r\nContent-Type: image/rgb\r\nContent-Length: 48\r\n\r\n";
    const std::string whole = headers + std::string(48, 'p');
    const auto ends_with = [](const std::string& text, const std::string& end) {
        return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
    };
    for (std::size_t cut = 0; cut <= whole.size(); cut++) {
        const std::string input = whole.substr(0, cut);
        const std::size_t digits = input.find("Content-Length: 4");
        std::string expected = kStartup;
        int status = 0;
        if (cut == whole.size()) {
            expected += OkReply(" 5", 6);
        } else if (digits != std::string::npos) {
            status = 1;  // a length was announced and the body is not there
        } else if (cut > 0 && cut < 19) {
            expected += UnknownCommand(input);
        } else {
            const std::string numeric[][2] = {{"Sequence-Number", "Sequence num invalid."},
                                              {"Image-width", "Image width invalid."},
                                              {"Image-height", "Image height invalid."},
                                              {"Content-Length", "Content length invalid."}};
            for (const auto& [name, text] : numeric)
                if (ends_with(input, name) || ends_with(input, name + ":"))
                    expected += HeaderError(text, " 5", name == "Sequence-Number" ? 0 : 6);
        }
        const RunResult run = Run(input);
        ASSERT_EQ(run.out, expected) << "cut at " << cut;
        ASSERT_EQ(run.status, status) << "cut at " << cut;
        ASSERT_EQ(run.err != "INITIAL STARTUP!! My ID is 5\n\n", status == 1) << "cut at " << cut << ": " << run.err;
    }
}

TEST_F(MainLoop, BodiesBeyondTheLimitAreSkipped) {
    root.WriteControl(BackgroundFrames(9));
    const std::string path = root.Write("input", Message("Content-Type: image/rgb\r\nContent-Length: 268435457\r\n"));
    const int in = open(path.c_str(), O_RDWR);
    const off_t body_end = lseek(in, 0, SEEK_END) + 268435457;  // a hole in the file
    const std::string rest = FlatFrame(1, 1, 'a', 1) + kShutdownMessage;
    ASSERT_EQ(pwrite(in, rest.data(), rest.size(), body_end), static_cast<ssize_t>(rest.size()));
    lseek(in, 0, SEEK_SET);
    const RunResult run = RunAnalyzerOn(kStreaming, in, -1, root.path);
    close(in);
    EXPECT_EQ(run.out, kStartup + ErrorReply("Content length too large.") + OkReply(" 1001", 1));
    EXPECT_EQ(run.status, 0);
}

TEST_F(MainLoop, BrokenOutputEndsTheProcess) {
    root.WriteControl(BackgroundFrames(9));
    const int in = open(root.Write("input", FlatFrame(4, 4, 'a', 1) + FlatFrame(4, 4, 'a', 2)).c_str(), O_RDONLY);
    const int full = open("/dev/full", O_WRONLY);
    const RunResult run = RunAnalyzerOn(kStreaming, in, full, root.path);
    close(in);
    close(full);
    EXPECT_EQ(run.status, 1);
    EXPECT_GT(run.err.size(), std::string("INITIAL STARTUP!! My ID is 5\n\n").size());
}

struct RelearnCase {
    int bg_frames;
    std::string replies;  // of the frames behind the change: o plain OK, a analytics
};

// Replies reach the host service before the analyzer waits for more input, and a changed control file counts twice per
// plainly answered frame.
TEST_F(MainLoop, RelearningAfterAControlFileChange) {
    for (const RelearnCase& c :
         {RelearnCase{10, "oooooaa"}, {9, "ooooaaa"}, {2, "oaa"}, {1, "aaa"}, {0, "aaa"}, {-1, "ooooooooo"}}) {
        SCOPED_TRACE(c.bg_frames);
        root.WriteControl(BackgroundFrames(2), 1000);
        Session session(kStreaming, root.path);
        EXPECT_EQ(session.Reply(), kStartup);
        int f = 0;
        const auto answer = [&] {
            f++;
            session.Send(FlatFrame(4, 4, 'a', f));
            const std::string reply = session.Reply(), ts = " " + std::to_string(1000 + f);
            return reply == OkReply(ts, f) ? 'o' : reply == EmptyAnalytics(ts, f) ? 'a' : '?';
        };
        EXPECT_EQ(std::string({answer(), answer(), answer()}), "ooa");
        session.Send("junk\n");  // its answer shows that the frame's own look at the control file is over
        EXPECT_EQ(session.Reply(), UnknownCommand("junk"));
        root.WriteControl(BackgroundFrames(c.bg_frames), 2000);
        EXPECT_EQ(answer(), 'a') << "the frame after which the change is seen";
        std::string replies;
        for (std::size_t i = 0; i < c.replies.size(); i++) replies += answer();
        EXPECT_EQ(replies, c.replies);
        session.Send(kShutdownMessage);
        EXPECT_EQ(session.Finish(), 0);
    }
}

// Images that cannot be read count as frames without pixels.
TEST_F(MainLoop, StoredSequence) {
    root.WriteControl(BackgroundFrames(3));
    const std::string list = root.Write("list", "one two\n\n  three\tfour five");
    const RunResult run = Run("", {"IR", root.path + "/no-", list, "3"});
    EXPECT_EQ(run.status, 0);
    // Frame 1 has no reply of its own; the timestamps are the current time, 10 digits without a blank.
    std::string shape = run.out.substr(std::min(run.out.size(), kStartup.size()));
    for (std::size_t at = 0; (at = shape.find("Timestamp:", at)) != std::string::npos; at += 10) {
        ASSERT_EQ(shape.find_first_not_of("0123456789", at + 10), at + 20);
        shape.replace(at + 10, 10, "T");
    }
    EXPECT_EQ(shape, OkReply("T", 2) + OkReply("T", 3) + EmptyAnalytics("T", 4) + EmptyAnalytics("T", 5));
}

}  // namespace
