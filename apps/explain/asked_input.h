// The standard input of an analyzer that answers questions while it waits for frames.
#pragma once

#include <streambuf>
#include <vector>

#include "explain/explainer.h"

namespace fleifeisa::explain {

class AskedInput final : public std::streambuf {
 public:
    AskedInput(int fd, Explainer& explainer) : fd_(fd), explainer_(explainer), buffer_(kBuffer) {}

 protected:
    int_type underflow() override;
    /// What is larger than the buffer goes where it belongs without passing it.
    std::streamsize xsgetn(char* to, std::streamsize count) override;

 private:
    static constexpr std::size_t kBuffer = 1 << 14;

    std::size_t take(char* to, std::size_t most);

    const int fd_;
    Explainer& explainer_;
    std::vector<char> buffer_;
};

}  // namespace fleifeisa::explain
