// The cryptographic hash of recordings.
#pragma once

#include <initializer_list>
#include <memory>
#include <span>
#include <string>

namespace fleifeisa::host {

/// BLAKE2b with 256 bits over the pieces in a row, as 64 hexadecimal digits.
std::string digestOf(std::initializer_list<std::span<const char>> pieces);

/// The same over pieces that come one after the other.
class Digest {
 public:
    Digest();
    ~Digest();
    void add(std::span<const char> piece);
    /// Of all that was added. Call once.
    std::string text();

 private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace fleifeisa::host
