// Reads a child's output: blocking to the caller, but never beyond a stop or a stall.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/fd.h"

namespace fleifeisa::host {

/// Why reading ended early.
struct ReadEnd : std::runtime_error {
    enum Reason { kEnd, kStopped, kStalled };
    ReadEnd(Reason why, const std::string& text) : std::runtime_error(text), reason(why) {}
    Reason reason;
};

/// Bytes in their order, from wherever they come.
class ByteStream {
 public:
    ByteStream() = default;
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;
    virtual ~ByteStream() = default;

    /// Fills `to`. @throws ReadEnd
    virtual void read(std::span<std::uint8_t> to) = 0;
    virtual std::uint8_t byte() = 0;
    /// False at the end of the data; true when there is more. @throws ReadEnd on stop and stall
    virtual bool more() = 0;
    /// Bytes taken so far.
    virtual std::uint64_t position() const = 0;
};

class PipeReader final : public ByteStream {
 public:
    /// `errors` (may be -1) is read along, its lines go to `on_line`; a full pipe there would stop the child.
    PipeReader(int data, int errors, const Event& stop, Clock::duration stall,
               std::function<void(std::string_view)> on_line)
        : data_(data), errors_(errors), stop_(stop), stall_(stall), on_line_(std::move(on_line)), buffer_(1 << 16) {}

    void read(std::span<std::uint8_t> to) override;
    std::uint8_t byte() override;
    bool more() override;
    /// Takes what has been written to the error pipe until now.
    void drainErrors();
    /// Another output of the child that is read along, which would stop the child as well; `taken` gets its bytes.
    void alsoRead(int fd, std::function<void(std::span<const std::uint8_t>)> taken) {
        also_ = fd;
        taken_ = std::move(taken);
    }
    /// Takes what has been written there until now.
    void drainAlso();
    /// Takes what is still written there until it is closed, so that the child can end.
    void finishAlso(Clock::time_point deadline);
    std::uint64_t position() const override { return position_; }

 private:
    void waitForData();
    /// One read(2) into `to`; 0 at the end of the data.
    std::size_t receive(std::span<std::uint8_t> to);

    int data_, errors_, also_ = -1;
    const Event& stop_;
    Clock::duration stall_;
    std::function<void(std::string_view)> on_line_;
    std::function<void(std::span<const std::uint8_t>)> taken_;
    std::vector<std::uint8_t> buffer_, also_buffer_;
    std::size_t begin_ = 0, end_ = 0;
    std::uint64_t position_ = 0;
    std::string line_;
};

}  // namespace fleifeisa::host
