// A file that is written front to back in whole records, with errors that name it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "common/leftovers.h"

namespace fleifeisa {

/// A failure of one output (no space left, a directory that is missing, an encoder that died): a sentence for the log.
class OutputError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// Where the bytes go until the file is complete.
enum class WriteMode {
    kInPlace,  ///< into the file itself, for formats that are of use while they grow
    kAtClose,  ///< into "PATH.part", which close() renames: whoever sees PATH sees a complete file
    kWhole,    ///< the same, for formats of which a part is of no use: a failure or the destructor removes "PATH.part"
};

/// Buffered; every failure (no space left, a vanished directory) throws OutputError with the path and the reason.
///
/// A write that fails (a full disk) takes the file back to the end of its last whole record, so that what is there
/// can be read. What follows on a failure is dropped silently: the output is given up by then.
class FileWriter {
 public:
    /// Creates or empties the file. A path that exists and is no regular file (a pipe, /dev/null) is written in place.
    explicit FileWriter(std::string path, WriteMode mode = WriteMode::kInPlace);
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
    /// Flushes, closes and gives the file its name; later calls do nothing.
    void close();
    /// Closes and removes the file, for an output that has nothing to say.
    void discard();

    const std::string& path() const { return path_; }
    /// The name it is written under: path(), or that with ".part".
    const std::string& workPath() const { return work_path_; }

 private:
    void remove();
    void writeThrough(const char* bytes, std::size_t count);
    [[noreturn]] void fail(int error);
    [[noreturn]] void raise(int error) const;

    std::string path_, work_path_;
    WriteMode mode_;
    std::optional<Leftover> leftover_;  ///< the ".part" file that is to be whole
    int file_ = -1;
    std::string buffer_;
    std::uint64_t written_ = 0;     ///< bytes in the file
    std::uint64_t record_end_ = 0;  ///< where the last whole record ends, buffered bytes included
    std::uint64_t safe_end_ = 0;    ///< the same for the bytes in the file
    bool failed_ = false;
};

}  // namespace fleifeisa
