#include "outputs/file_writer.h"

#include <cerrno>
#include <cstring>

#include "output.h"

namespace fleifeisa::host {

FileWriter::FileWriter(std::string path) : path_(std::move(path)), file_(std::fopen(path_.c_str(), "wbe")) {
    if (!file_) fail();
    static_cast<void>(std::setvbuf(file_, nullptr, _IOFBF, 1 << 16));
}

FileWriter::~FileWriter() {
    if (file_) std::fclose(file_);
}

void FileWriter::write(std::string_view text) {
    if (!file_ || std::fwrite(text.data(), 1, text.size(), file_) != text.size()) fail();
}

void FileWriter::write(std::span<const std::uint8_t> bytes) {
    if (!file_ || std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) fail();
}

void FileWriter::flush() {
    if (!file_ || std::fflush(file_) != 0) fail();
}

void FileWriter::close() {
    if (!file_) return;
    std::FILE* file = file_;
    file_ = nullptr;
    if (std::fclose(file) != 0) fail();
}

void FileWriter::fail() const {
    throw OutputError(path_ + ": " + std::strerror(errno));
}

}  // namespace fleifeisa::host
