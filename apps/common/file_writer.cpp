#include "common/file_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace fleifeisa {
namespace {

/// Whole records are collected up to this size; only one that is longer than kMaxBufferBytes goes out in pieces.
constexpr std::size_t kBufferBytes = 1 << 16, kMaxBufferBytes = 1 << 20;

bool isRegularOrNew(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) != 0 || S_ISREG(info.st_mode);
}

}  // namespace

FileWriter::FileWriter(std::string path, WriteMode mode) : path_(std::move(path)), work_path_(path_), mode_(mode) {
    if (mode_ != WriteMode::kInPlace && isRegularOrNew(path_))
        work_path_ += ".part";
    else
        mode_ = WriteMode::kInPlace;
    file_ = ::open(work_path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file_ < 0) raise(errno);
    if (mode_ == WriteMode::kWhole) leftover_.emplace(work_path_);
}

FileWriter::~FileWriter() {
    if (file_ < 0) return;
    if (mode_ == WriteMode::kWhole) {
        discard();
        return;
    }
    try {
        flush();
    } catch (const OutputError&) {  // reported nowhere: the output was given up, or the host is going down
    }
    ::close(file_);
}

void FileWriter::writeThrough(const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t done = ::write(file_, bytes, count);
        if (done < 0 && errno == EINTR) continue;
        if (done < 0) fail(errno);
        bytes += done;
        count -= static_cast<std::size_t>(done);
        written_ += static_cast<std::uint64_t>(done);
    }
}

void FileWriter::write(std::string_view text) {
    if (failed_) return;
    if (file_ < 0) raise(EBADF);
    if (text.size() < kBufferBytes && buffer_.size() < kMaxBufferBytes) {
        buffer_ += text;
        return;
    }
    flush();
    writeThrough(text.data(), text.size());  // a frame: not worth a copy
}

void FileWriter::endRecord() {
    record_end_ = written_ + buffer_.size();
    if (buffer_.size() >= kBufferBytes) flush();
}

void FileWriter::write(std::span<const std::uint8_t> bytes) {
    write(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

void FileWriter::flush() {
    if (failed_) return;
    if (file_ < 0) raise(EBADF);
    writeThrough(buffer_.data(), buffer_.size());
    buffer_.clear();
    if (record_end_ <= written_) safe_end_ = record_end_;
}

void FileWriter::close() {
    if (file_ < 0) return;
    flush();
    const int file = std::exchange(file_, -1);
    if (::close(file) != 0 && errno != EINTR) fail(errno);
    if (!failed_ && work_path_ != path_ && std::rename(work_path_.c_str(), path_.c_str()) != 0) fail(errno);
    leftover_.reset();
}

void FileWriter::discard() {
    if (file_ < 0) return;
    ::close(std::exchange(file_, -1));
    remove();
}

void FileWriter::remove() {
    buffer_.clear();
    if (isRegularOrNew(work_path_)) ::unlink(work_path_.c_str());
}

void FileWriter::fail(int error) {
    failed_ = true;
    buffer_.clear();
    if (mode_ == WriteMode::kWhole) {
        if (file_ >= 0) ::close(std::exchange(file_, -1));
        remove();
    } else if (file_ >= 0 && ::ftruncate(file_, static_cast<off_t>(safe_end_)) != 0) {
        errno = error;  // a pipe: nothing to undo
    }
    raise(error);
}

void FileWriter::raise(int error) const {
    throw OutputError(path_ + ": " + std::generic_category().message(error));
}

}  // namespace fleifeisa
