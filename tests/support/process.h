// The real analyzer process: a whole run on prepared input, or a conversation over pipes.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <string>
#include <vector>

// A directory of its own below the system's temporary one, removed at the end.
class TempDir {
 public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    // Writes the control file of device 3 with this directory as FLEIFEISA_ROOT. A stamp other than 0 becomes the
    // file's modification time.
    void writeControl(const std::string& text, time_t stamp = 0) const;
    std::string write(const std::string& name, const std::string& bytes) const;  // returns the path

    std::string path;
};

inline std::string backgroundFrames(int n) {
    return "<param name=\"-bgframes\" value=\"" + std::to_string(n) + "\"/>\n";
}

struct RunResult {
    int status;  // exit status, or 128 + signal
    std::string out, err;
};

// Runs the analyzer with `input` on standard input to its end. A run of more than two minutes is killed.
RunResult runAnalyzer(const std::vector<std::string>& args, const std::string& input, const std::string& root);
// The same with standard input and output from open files (-1 for an empty input, a captured output).
RunResult runAnalyzerOn(const std::vector<std::string>& args, int input, int output, const std::string& root);

// An analyzer at the other end of two pipes.
class Session {
 public:
    // The analyzer is killed after so many seconds, 0: never.
    Session(const std::vector<std::string>& args, const std::string& root, unsigned patience = 120);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    void send(const std::string& bytes);  // waits until the pipe has taken them
    std::string reply();                  // headers and body of the next reply; what there was at the end of output
    bool quiet(int milliseconds) const;   // whether nothing comes for so long
    void signal(int number) const;        // to the process
    int finish();                         // closes the input, waits, returns the exit status
    pid_t process() const { return child_; }

 private:
    pid_t child_;
    int to_, from_;
    std::string pending_;  // read, but behind the latest reply
};
