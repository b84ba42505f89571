#include "explain/asked_input.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ios>
#include <system_error>

namespace fleifeisa::explain {

/// Some bytes, none at the end. Throws where the descriptor cannot be read; the stream on this then is bad.
std::size_t AskedInput::take(char* to, std::size_t most) {
    explainer_.waitFor(fd_);
    ssize_t count = 0;
    do {
        count = ::read(fd_, to, most);
    } while (count < 0 && errno == EINTR);
    if (count < 0) throw std::ios_base::failure("read", std::error_code(errno, std::generic_category()));
    return static_cast<std::size_t>(count);
}

AskedInput::int_type AskedInput::underflow() {
    const std::size_t count = take(buffer_.data(), buffer_.size());
    setg(buffer_.data(), buffer_.data(), buffer_.data() + count);
    return count == 0 ? traits_type::eof() : traits_type::to_int_type(*gptr());
}

std::streamsize AskedInput::xsgetn(char* to, std::streamsize count) {
    std::streamsize done = 0;
    while (done < count) {
        if (gptr() == egptr() && count - done >= static_cast<std::streamsize>(kBuffer)) {
            const std::size_t some = take(to + done, static_cast<std::size_t>(count - done));
            if (some == 0) break;
            done += static_cast<std::streamsize>(some);
            continue;
        }
        if (gptr() == egptr() && underflow() == traits_type::eof()) break;
        const std::streamsize some = std::min<std::streamsize>(count - done, egptr() - gptr());
        std::memcpy(to + done, gptr(), static_cast<std::size_t>(some));
        gbump(static_cast<int>(some));
        done += some;
    }
    return done;
}

}  // namespace fleifeisa::explain
