// The real executable: command line, start-up, the phases of the main loop. Bad input is the subject of hostile/.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "host/MainLoop.h"
#include "support/process.h"
#include "support/protocol.h"

namespace {

using Args = std::vector<std::string>;
const Args kStreaming{"COLOR", "STREAMING", "3", "5"};

class MainLoop : public testing::Test {
 protected:
    RunResult Run(const std::string& input, const Args& args = kStreaming) {
        return runAnalyzer(args, input, root.path);
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
        EXPECT_EQ(run.err, "");
    }
    const int full = open("/dev/full", O_WRONLY);
    const RunResult run = runAnalyzerOn({"COLOR"}, -1, full, root.path);
    close(full);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Cannot write to standard output.\n");
}

// An input that fails is not one that ends.
TEST_F(MainLoop, UnreadableInput) {
    root.writeControl("");
    const int directory = open(root.path.c_str(), O_RDONLY | O_DIRECTORY);
    int reset[2];  // the other end went without having read what was sent to it
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, reset), 0);
    ASSERT_EQ(write(reset[0], "x", 1), 1);
    close(reset[1]);
    for (const int input : {directory, reset[0]}) {
        const RunResult run = runAnalyzerOn(kStreaming, input, -1, root.path);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, kStartup);
        EXPECT_EQ(run.err, "INITIAL STARTUP!! My ID is 5\n\nCannot read standard input.\n");
        close(input);
    }
}

TEST(Handler, ReadsTheControlFile) {
    const TempDir root;
    root.writeControl(backgroundFrames(7));
    setenv("FLEIFEISA_ROOT", root.path.c_str(), 1);
    setenv("FLEIFEISA_SANDBOX", "off", 1);
    std::string args[] = {"fleifeisa", "IR", "STREAMING", "3", "5"};
    char* argv[] = {args[0].data(), args[1].data(), args[2].data(), args[3].data(), args[4].data(), nullptr};
    std::istringstream in;
    std::ostringstream out;
    EXPECT_EQ(RunAnalyzer(5, argv, in, out), 0);
    EXPECT_EQ(out.str(), kStartup);
    EXPECT_EQ(Parameters().bg_frames, 7);
    root.writeControl(backgroundFrames(8));
    handler(1);
    EXPECT_EQ(Parameters().bg_frames, 8);
    unsetenv("FLEIFEISA_SANDBOX");
    unsetenv("FLEIFEISA_ROOT");
}

struct StartCase {
    Args args;
    bool control_file;
    std::string out;
    std::string err;
    int status = 0;
};

TEST_F(MainLoop, StartUpReplies) {
    const std::string no_control = errorReply("Cannot open configuration file."),
                      type = errorReply("Type must be COLOR or IR.");
    const std::string hello5 = "INITIAL STARTUP!! My ID is 5\n\n", hello0 = "INITIAL STARTUP!! My ID is 0\n\n";
    const std::string refused = "Cannot open control file.  Cannot proceed.\n";
    const std::string list = root.write("empty-list", " \n");
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
        if (c.control_file) root.writeControl("");
        const RunResult run = Run("", c.args);
        EXPECT_EQ(run.out, c.out);
        EXPECT_EQ(run.err, c.err);
        EXPECT_EQ(run.status, c.status);
        if (c.control_file) unlink((root.path + "/opt/tesra/var/conf/3/qelparams2.conf").c_str());
    }
}

TEST_F(MainLoop, MessagesWithoutAFrameDoNotCount) {
    root.writeControl(backgroundFrames(2));
    const RunResult run = Run(message("Command: RECONFIGURE\r\n") + flatFrame(4, 4, 'a', 1) + " \n" +
                              message("Content-Type: text/plain\r\nContent-Length: 3\r\n", "abc") + "x\n" +
                              flatFrame(4, 4, 'a', 2) + message("Timestamp: 8\r\nImage-width:\r\n") +
                              flatFrame(4, 4, 'a', 3) + message("Command: RECONFIGURE\r\n"));
    EXPECT_EQ(run.out, kStartup + okReply(" 1001", 1) + unknownCommand("x") + okReply(" 1002", 2) +
                           headerError("Image width invalid.", " 8", 0) + emptyAnalytics(" 1003", 3));
    EXPECT_EQ(run.status, 0);
}

TEST_F(MainLoop, NoTimestamp) {
    root.writeControl(backgroundFrames(1));
    const std::string frame =
        message("Content-Type: image/rgb\r\nContent-Length: 3\r\nImage-width: 1\r\nImage-height: 1\r\n", "abc");
    EXPECT_EQ(Run(frame + frame).out, kStartup + okReply("", 0) + emptyAnalytics("", 0));
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
        root.writeControl(backgroundFrames(2), 1000);
        Session session(kStreaming, root.path);
        EXPECT_EQ(session.reply(), kStartup);
        int f = 0;
        const auto answer = [&] {
            f++;
            session.send(flatFrame(4, 4, 'a', f));
            const std::string reply = session.reply(), ts = " " + std::to_string(1000 + f);
            return reply == okReply(ts, f) ? 'o' : reply == emptyAnalytics(ts, f) ? 'a' : '?';
        };
        EXPECT_EQ(std::string({answer(), answer(), answer()}), "ooa");
        session.send("junk\n");  // its answer shows that the frame's own look at the control file is over
        EXPECT_EQ(session.reply(), unknownCommand("junk"));
        root.writeControl(backgroundFrames(c.bg_frames), 2000);
        EXPECT_EQ(answer(), 'a') << "the frame after which the change is seen";
        std::string replies;
        for (std::size_t i = 0; i < c.replies.size(); i++) replies += answer();
        EXPECT_EQ(replies, c.replies);
        session.send(kShutdownMessage);
        EXPECT_EQ(session.finish(), 0);
    }
}

}  // namespace
