// One analyzer process and the frame protocol, without ever blocking on it.
#pragma once

#include <deque>
#include <span>
#include <string>

#include "analyzer/question_wire.h"
#include "common/process.h"

namespace fleifeisa::host {

struct AnalyzerSettings {
    std::string program;  ///< path of the executable
    std::string root;     ///< FLEIFEISA_ROOT of the process; "": as in the host's environment
    int device = 1;       ///< numbers that the analyzer writes into every object id
    int analyzer_id = 1;
    bool infrared = false;
    std::string explainer;  ///< path of the executable that answers questions as well, "": `program` runs

    bool operator==(const AnalyzerSettings&) const = default;
};

/// The analyzer ended, broke the protocol, or (a hung one) had to be given up.
struct AnalyzerError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class AnalyzerClient {
 public:
    /// @throws AnalyzerError where it cannot be started
    explicit AnalyzerClient(const AnalyzerSettings& settings);

    /// Queues bytes for its standard input. They must stay where they are until the answer has come.
    void send(std::span<const char> bytes);
    void send(std::span<const std::uint8_t> bytes);

    /// For poll: descriptors, -1 where there is nothing to wait for.
    int wantsWrite() const { return outgoing_.empty() ? -1 : process_.in.get(); }
    int wantsRead() const { return process_.out.get(); }
    int wantsErrors() const { return process_.err.get(); }

    /// Write and read what is possible now. @throws AnalyzerError where the process has gone
    void write();
    void read();
    /// Lines it wrote to standard error since the last call.
    std::vector<std::string> takeErrors();
    /// The last lines of all that it wrote there: what it had to say before it died.
    std::string lastWords();

    /// Takes the next complete reply, exact bytes. @throws AnalyzerError where it is none
    bool nextReply(std::string& bytes);

    /// Asks it to end, gives it `grace`, kills it then. True where it ended by itself with status 0.
    bool shutdown(Clock::duration grace);
    void kill() { process_.kill(); }
    pid_t pid() const { return process_.pid(); }
    /// Closed where it answers no questions.
    QuestionWire& questions() { return questions_; }

 private:
    [[noreturn]] void gone();

    Process process_;
    QuestionWire questions_;
    std::deque<std::span<const char>> outgoing_;
    std::string incoming_;
    std::string error_text_;
    std::deque<std::string> last_lines_;
};

/// The header of a frame's request: everything but the pixels.
std::string frameHeader(int width, int height, std::int64_t time_ns, std::int64_t sequence);

/// Where the analyzer is: as given, else next to this program, else in PATH. "" where it is nowhere.
std::string findAnalyzer(const std::string& given);

}  // namespace fleifeisa::host
