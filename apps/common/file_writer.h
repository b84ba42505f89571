// A file that is written front to back in whole records, with errors that name it.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "common/backoff.h"
#include "common/fd.h"
#include "common/leftovers.h"

namespace fleifeisa {

/// A failure of one output (no space left, a directory that is missing, an encoder that died): a sentence for the log.
class OutputError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// Where the bytes go until the file is complete.
enum class WriteMode {
    kInPlace,  ///< into the file itself, for formats that are of use while they grow; any record may begin a new file
    kSession,  ///< likewise, but a new file begins only where beginSession() says so
    kAtClose,  ///< into "PATH.part", which close() renames: whoever sees PATH sees a complete file
    kWhole,    ///< the same, for formats of which a part is of no use: a failure or the destructor removes "PATH.part"
};

/// When a growing file is set aside (set_aside.h) and begun anew. 0: not for this reason.
struct Rotation {
    std::uint64_t bytes = 0;  ///< before it would grow beyond so many bytes
    double seconds = 0;       ///< when it is so old
    int keep = 0;             ///< so many earlier files stay, the oldest go; 0: all stay

    bool operator==(const Rotation&) const = default;
};

struct FilePolicy {
    /// What an earlier run wrote is set aside, not emptied; a file that cannot be opened is tried again, too; a pipe
    /// whose reader takes nothing for two seconds counts as failed. Otherwise writing waits for the reader.
    bool service = false;
    Rotation rotation = {};      ///< of kInPlace and kSession
    double retry_seconds = 0.5;  ///< from a failure to the next attempt; doubled with each, up to 30 s

    bool operator==(const FilePolicy&) const = default;
};

/// Buffered. endRecord(), flush() and close() report failures (no space left, a vanished directory, a pipe without a
/// reader) as OutputError with the path and the reason; write() never throws.
///
/// A write that fails takes the file back to the end of a whole record, so that what is there can be read. After that
/// whole records are collected, up to a megabyte of them, and the ones beyond are counted as lost; endRecord() tries
/// again when its time has come, and reports the next failure. So a file always consists of whole records.
///
/// Bytes are appended, wherever the end is by then: a file that somebody else empties goes on from its start. One that
/// was moved away or deleted is begun anew under its name.
class FileWriter {
 public:
    /// Creates or empties the file. A path that exists and is no regular file (a pipe, /dev/null) is written in place;
    /// "-" is standard output. Opening a pipe waits for nobody: without a reader it counts as failed for now.
    /// @throws OutputError unless as a service
    explicit FileWriter(std::string path, WriteMode mode = WriteMode::kInPlace, const FilePolicy& policy = {});
    /// Writes what is buffered where that still works; a ".part" file stays one, unless it is to be whole.
    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    void write(std::string_view text);
    void write(std::span<const std::uint8_t> bytes);
    /// What was written up to here is a whole number of records. They leave together, so that a host that is killed
    /// leaves whole records, too.
    void endRecord();
    void flush();
    /// Rotation, or a moved file, ask for a new one; kInPlace begins it by itself.
    bool newFileDue() const;
    /// kSession: what follows may stand in a file of its own. Begins it where it is due, and tries again at once after
    /// a failure.
    void beginSession();
    /// Flushes, closes and gives the file its name; later calls do nothing.
    void close();
    /// Closes and removes the file, for an output that has nothing to say.
    void discard();

    const std::string& path() const { return path_; }
    /// The name it is written under: path(), or that with ".part".
    const std::string& workPath() const { return work_path_; }
    /// Failed, and not yet written again.
    bool failing() const { return failing_; }
    /// Records that are in no file and will never be.
    std::uint64_t lost() const { return lost_; }

 private:
    int open(bool empty);
    int openStream(bool fifo);
    void keepEarlier() const;
    void writeThrough(const char* bytes, std::size_t count);
    void waitForReader();
    void beginNewFile();
    void putBuffer();
    void attempt();
    void cutRecord();
    void undo(std::size_t written, int error);
    void noteFailure(int error);
    void raise();

    std::string path_, work_path_;
    WriteMode mode_;
    FilePolicy policy_;
    std::optional<Leftover> leftover_;  ///< the ".part" file that is to be whole
    Fd file_;
    bool regular_ = true, closed_ = false;

    std::string buffer_;
    std::deque<std::size_t> ends_;  ///< of the whole records in buffer_
    std::uint64_t cut_ = 0;         ///< bytes at the end of the file whose record still goes on
    bool skipping_ = false;         ///< what comes until the next endRecord() is lost

    bool failing_ = false;
    int error_ = 0;  ///< why
    bool told_ = true;
    bool worked_ = false;  ///< bytes were written since the last failure
    Backoff retries_;
    Clock::time_point begun_at_{};
    std::uint64_t lost_ = 0;
};

}  // namespace fleifeisa
