// The NUT reader: frames or an error, never more memory than the bytes that came, times without overflow.
#include "sources/nut.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "fuzz/bytes.h"

namespace {

using namespace fleifeisa::host;

class Memory : public ByteStream {
 public:
    Memory(const std::uint8_t* data, std::size_t size) : data_(data, size) {}
    void read(std::span<std::uint8_t> to) override {
        if (data_.size() - at_ < to.size()) throw ReadEnd(ReadEnd::kEnd, "the end");
        std::copy_n(data_.begin() + static_cast<std::ptrdiff_t>(at_), to.size(), to.begin());
        at_ += to.size();
    }
    std::uint8_t byte() override {
        if (!more()) throw ReadEnd(ReadEnd::kEnd, "the end");
        return data_[at_++];
    }
    bool more() override { return at_ < data_.size(); }
    std::uint64_t position() const override { return at_; }

 private:
    std::span<const std::uint8_t> data_;
    std::size_t at_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Memory memory(data, size);
    NutReader reader(memory);
    try {
        reader.readHeaders();
        FUZZ_CHECK(reader.width() > 0 && reader.height() > 0 && reader.width() <= 16384 && reader.height() <= 16384,
                   "a size");
        std::vector<std::uint8_t> frame;
        std::size_t all = 0;
        for (std::int64_t time = 0; reader.next(frame, time);) {
            all += frame.size();
            FUZZ_CHECK(all <= size, "frames hold what was there");
        }
    } catch (const std::runtime_error&) {
    }
    return 0;
}
