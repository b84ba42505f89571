#include "common/file_writer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "common/set_aside.h"

namespace fleifeisa {
namespace {

/// Whole records are collected up to this size; only one that is longer than kMaxBufferBytes goes out in pieces.
constexpr std::size_t kBufferBytes = 1 << 16, kMaxBufferBytes = 1 << 20;
constexpr double kLongestDelay = 30, kPipeDelay = 0.5;
constexpr int kPatienceMilliseconds = 2000;

bool isRegularOrNew(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) != 0 || S_ISREG(info.st_mode);
}

}  // namespace

FileWriter::FileWriter(std::string path, WriteMode mode, const FilePolicy& policy)
    : path_(std::move(path)),
      work_path_(path_),
      mode_(mode),
      policy_(policy),
      regular_(path_ != "-" && isRegularOrNew(path_)),
      retries_({policy.retry_seconds, regular_ ? kLongestDelay : kPipeDelay, Clock::duration::zero()}) {
    if (!regular_) mode_ = WriteMode::kInPlace;
    if (mode_ == WriteMode::kAtClose || mode_ == WriteMode::kWhole) work_path_ += ".part";
    int error = 0;
    try {
        if (policy_.service && regular_) keepEarlier();
        error = open(true);
    } catch (const std::system_error& failure) {
        error = failure.code().value();
    }
    if (error != 0) {
        noteFailure(error);
        if (!policy_.service && error != ENXIO) raise();
    }
    if (mode_ == WriteMode::kWhole) leftover_.emplace(work_path_);
}

FileWriter::~FileWriter() {
    if (closed_) return;
    if (mode_ == WriteMode::kWhole) {
        discard();
        return;
    }
    try {
        flush();
    } catch (const OutputError&) {  // reported nowhere: the output was given up, or the host is going down
    }
}

/// A service makes its directories, and never overwrites what an earlier run wrote, complete or not.
void FileWriter::keepEarlier() const {
    std::error_code error;
    const std::filesystem::path directory = std::filesystem::path(path_).parent_path();
    if (!directory.empty()) std::filesystem::create_directories(directory, error);
    setAside(path_, policy_.rotation.keep);
    if (work_path_ != path_) setAside(work_path_, policy_.rotation.keep);
}

/// Returns an error number, 0 where it is open.
int FileWriter::open(bool empty) {
    struct stat info {};
    if (!regular_) return openStream(path_ != "-" && ::stat(path_.c_str(), &info) == 0 && S_ISFIFO(info.st_mode));
    const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | (empty ? O_TRUNC : 0);
    file_ = Fd(::open(work_path_.c_str(), flags, 0666));
    if (!file_) return errno;
    begun_at_ = Clock::now();
    return 0;
}

int FileWriter::openStream(bool fifo) {
    file_ = Fd(path_ == "-" ? ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)
                            : ::open(path_.c_str(), O_WRONLY | O_CLOEXEC | (fifo ? O_NONBLOCK : 0)));
    return file_ ? 0 : errno;
}

/// A full pipe. Its reader is slow, or does nothing any more.
void FileWriter::waitForReader() {
    pollfd item{file_.get(), POLLOUT, 0};
    const int ready = ::poll(&item, 1, policy_.service ? kPatienceMilliseconds : -1);
    if (ready == 0) throw std::system_error(ETIMEDOUT, std::generic_category());
}

/// @throws std::system_error; cut_ tells how far it came
void FileWriter::writeThrough(const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t done = ::write(file_.get(), bytes, count);
        if (done < 0 && errno == EINTR) continue;
        if (done < 0 && errno == EAGAIN) {
            waitForReader();
            continue;
        }
        if (done < 0) throw std::system_error(errno, std::generic_category());
        bytes += done;
        count -= static_cast<std::size_t>(done);
        cut_ += static_cast<std::uint64_t>(done);
    }
}

void FileWriter::write(std::string_view text) {
    if (skipping_ || closed_) return;
    if (text.size() < kBufferBytes && buffer_.size() + text.size() <= kMaxBufferBytes) {
        buffer_ += text;
        return;
    }
    if (failing_ && told_ && Clock::now() >= retries_.nextTry()) attempt();
    if (!failing_) putBuffer();
    if (failing_) return cutRecord();
    try {
        writeThrough(text.data(), text.size());  // a frame: not worth a copy
        worked_ = true;
    } catch (const std::system_error& error) {
        undo(0, error.code().value());
        skipping_ = true;
    }
}

void FileWriter::write(std::span<const std::uint8_t> bytes) {
    write(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

/// The record in work cannot be kept.
void FileWriter::cutRecord() {
    buffer_.resize(ends_.empty() ? 0 : ends_.back());
    skipping_ = true;
}

void FileWriter::endRecord() {
    if (skipping_) {
        skipping_ = false;
        ++lost_;
    } else if (!buffer_.empty() && (ends_.empty() || ends_.back() < buffer_.size())) {
        ends_.push_back(buffer_.size());
    } else if (buffer_.empty()) {
        cut_ = 0;
    }
    if (failing_ && told_ && !buffer_.empty() && Clock::now() >= retries_.nextTry()) attempt();
    if (!failing_ && buffer_.size() >= kBufferBytes) putBuffer();
    raise();
}

void FileWriter::flush() {
    if (!failing_ && !closed_) putBuffer();
    raise();
}

/// After a failure, once more.
void FileWriter::attempt() {
    failing_ = false;
    if (!file_)
        if (const int error = open(false)) return noteFailure(error);
    putBuffer();
}

void FileWriter::putBuffer() {
    const std::uint64_t before = cut_;
    try {
        if (cut_ == 0 && mode_ == WriteMode::kInPlace && newFileDue()) beginNewFile();
        writeThrough(buffer_.data(), buffer_.size());
    } catch (const std::system_error& error) {
        undo(static_cast<std::size_t>(cut_ - before), error.code().value());
        return;
    }
    if (!buffer_.empty()) worked_ = true;
    if (!ends_.empty()) cut_ = buffer_.size() - ends_.back();
    buffer_.clear();
    ends_.clear();
}

void FileWriter::beginSession() {
    if (closed_) return;
    if (failing_)
        attempt();
    else
        putBuffer();
    try {
        if (!failing_ && newFileDue()) beginNewFile();
    } catch (const std::system_error& error) {
        noteFailure(error.code().value());
    }
    raise();
}

bool FileWriter::newFileDue() const {
    if (!regular_ || !file_) return false;
    struct stat own {
    }, named{};
    if (::fstat(file_.get(), &own) != 0 || ::stat(work_path_.c_str(), &named) != 0) return true;
    if (named.st_ino != own.st_ino || named.st_dev != own.st_dev) return true;
    const Rotation& rotation = policy_.rotation;
    const auto size = static_cast<std::uint64_t>(own.st_size);
    const bool large = rotation.bytes > 0 && size + buffer_.size() > rotation.bytes;
    const bool old = rotation.seconds > 0 && Seconds(Clock::now() - begun_at_).count() >= rotation.seconds;
    return size > 0 && (large || old);
}

/// The file was moved away or deleted, or is large or old enough. @throws std::system_error
void FileWriter::beginNewFile() {
    struct stat own {
    }, named{};
    const bool there = ::fstat(file_.get(), &own) == 0 && ::stat(work_path_.c_str(), &named) == 0 &&
                       named.st_ino == own.st_ino && named.st_dev == own.st_dev;
    if (there) setAside(work_path_, policy_.rotation.keep);
    Fd before = std::move(file_);
    if (const int error = open(false)) {
        file_ = std::move(before);  // a moved file is better than none
        throw std::system_error(error, std::generic_category());
    }
}

/// After an error: `written` bytes of the buffer went out, cut_ in all since the last whole record. A regular file is
/// taken back to the end of a whole record; what a pipe has swallowed it has.
void FileWriter::undo(std::size_t written, int error) {
    bool inside = cut_ > written;  // the begin of the buffer's first record went out before
    std::size_t gone = 0;          // of the buffer, in whole records
    for (; !ends_.empty() && ends_.front() <= written; ends_.pop_front()) gone = ends_.front();
    if (gone > 0) inside = false;
    const auto excess = static_cast<off_t>(gone > 0 ? written - gone : cut_);
    if (regular_) {
        struct stat info {};
        if (excess > 0 && ::fstat(file_.get(), &info) == 0 && info.st_size >= excess &&
            ::ftruncate(file_.get(), info.st_size - excess) != 0)
            error = errno;
    } else if (excess > 0) {
        inside = true;
    }
    if (inside && ends_.empty()) {
        buffer_.clear();
        skipping_ = true;
    } else if (inside) {
        gone = ends_.front();
        ends_.pop_front();
        ++lost_;
    }
    buffer_.erase(0, std::min(gone, buffer_.size()));
    for (std::size_t& end : ends_) end -= gone;
    cut_ = 0;
    noteFailure(error);
}

void FileWriter::noteFailure(int error) {
    failing_ = true;
    told_ = false;
    error_ = error;
    if (mode_ == WriteMode::kWhole) {
        file_.reset();
        if (isRegularOrNew(work_path_)) ::unlink(work_path_.c_str());
    }
    if (!regular_) file_.reset();  // so that a reader sees an end, and the next one a begin
    retries_.failed(Clock::now(), std::exchange(worked_, false));
}

/// Each failure once.
void FileWriter::raise() {
    if (!failing_ || std::exchange(told_, true)) return;
    const std::string reason = !regular_ && error_ == ENXIO       ? "nobody reads this pipe"
                               : !regular_ && error_ == ETIMEDOUT ? "the reader of this pipe takes nothing"
                                                                  : std::generic_category().message(error_);
    throw OutputError((path_ == "-" ? "standard output" : path_) + ": " + reason);
}

void FileWriter::close() {
    if (closed_) return;
    if (failing_)
        attempt();
    else
        putBuffer();
    raise();
    closed_ = true;
    const int file = file_.release();
    if ((::close(file) != 0 && errno != EINTR) ||
        (work_path_ != path_ && std::rename(work_path_.c_str(), path_.c_str()) != 0)) {
        noteFailure(errno);
        raise();
    }
    leftover_.reset();
}

void FileWriter::discard() {
    if (std::exchange(closed_, true)) return;
    file_.reset();
    buffer_.clear();
    if (isRegularOrNew(work_path_)) ::unlink(work_path_.c_str());
}

}  // namespace fleifeisa
