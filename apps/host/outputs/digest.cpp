#include "outputs/digest.h"

#include <sodium.h>

#include <array>

namespace fleifeisa::host {

struct Digest::State {
    crypto_generichash_state state;
};

Digest::Digest() : state_(std::make_unique<State>()) {
    static const bool ready = ::sodium_init() >= 0;  // chooses the fastest implementation; all give the same
    static_cast<void>(ready);
    ::crypto_generichash_init(&state_->state, nullptr, 0, crypto_generichash_BYTES);
}

Digest::~Digest() = default;

void Digest::add(std::span<const char> piece) {
    ::crypto_generichash_update(&state_->state, reinterpret_cast<const unsigned char*>(piece.data()), piece.size());
}

std::string Digest::text() {
    std::array<unsigned char, crypto_generichash_BYTES> hash{};
    ::crypto_generichash_final(&state_->state, hash.data(), hash.size());
    std::string text(2 * hash.size() + 1, '\0');
    ::sodium_bin2hex(text.data(), text.size(), hash.data(), hash.size());
    text.pop_back();  // the NUL
    return text;
}

std::string digestOf(std::initializer_list<std::span<const char>> pieces) {
    Digest digest;
    for (const std::span<const char> piece : pieces) digest.add(piece);
    return digest.text();
}

}  // namespace fleifeisa::host
