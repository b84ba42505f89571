// A file that is written front to back, with errors that name it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

namespace fleifeisa::host {

/// Buffered; every failure (no space left, a vanished directory) throws OutputError with the path and the reason.
class FileWriter {
 public:
    explicit FileWriter(std::string path);
    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    void write(std::string_view text);
    void write(std::span<const std::uint8_t> bytes);
    void flush();
    /// Flushes and closes; later calls do nothing.
    void close();
    const std::string& path() const { return path_; }

 private:
    [[noreturn]] void fail() const;

    std::string path_;
    std::FILE* file_;
};

}  // namespace fleifeisa::host
