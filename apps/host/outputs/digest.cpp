#include "outputs/digest.h"

#include <sodium.h>

#include <array>

namespace fleifeisa::host {

std::string digestOf(std::initializer_list<std::span<const char>> pieces) {
    static const bool ready = ::sodium_init() >= 0;  // chooses the fastest implementation; all give the same
    static_cast<void>(ready);
    crypto_generichash_state state;
    std::array<unsigned char, crypto_generichash_BYTES> hash{};
    ::crypto_generichash_init(&state, nullptr, 0, hash.size());
    for (const std::span<const char> piece : pieces)
        ::crypto_generichash_update(&state, reinterpret_cast<const unsigned char*>(piece.data()), piece.size());
    ::crypto_generichash_final(&state, hash.data(), hash.size());
    std::string text(2 * hash.size() + 1, '\0');
    ::sodium_bin2hex(text.data(), text.size(), hash.data(), hash.size());
    text.pop_back();  // the NUL
    return text;
}

}  // namespace fleifeisa::host
