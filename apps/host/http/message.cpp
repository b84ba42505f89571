#include "http/message.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>

#include "common/text.h"

namespace fleifeisa::host {
namespace {

std::string valueOf(const HttpRequest::Values& values, std::string_view name) {
    const auto found = values.find(name);
    return found == values.end() ? "" : found->second;
}

/// A whole number of digits alone.
std::optional<std::uint64_t> number(std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

}  // namespace

std::string HttpRequest::header(std::string_view name) const {
    return valueOf(headers, name);
}

std::string HttpRequest::argument(std::string_view name) const {
    return valueOf(query, name);
}

std::string HttpRequest::cookie(std::string_view name) const {
    const std::string all = header("cookie");
    for (std::string_view rest = all; !rest.empty();) {
        const std::size_t end = std::min(rest.find(';'), rest.size());
        std::string_view one = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        while (one.starts_with(' ')) one.remove_prefix(1);
        if (one.starts_with(name) && one.substr(name.size()).starts_with('='))
            return std::string(one.substr(name.size() + 1));
    }
    return "";
}

HttpResponse jsonResponse(std::string json, int status) {
    HttpResponse response;
    response.status = status;
    response.type = "application/json";
    response.body = std::move(json);
    return response;
}

HttpResponse noContent() {
    HttpResponse response;
    response.status = 204;
    return response;
}

HttpResponse errorResponse(int status, std::string_view message) {
    return jsonResponse("{\"status\":" + std::to_string(status) + ",\"error\":" + jsonString(message) + "}", status);
}

std::optional<ByteRange> rangeOf(std::string_view header, std::uint64_t size) {
    if (!header.starts_with("bytes=") || header.find(',') != std::string_view::npos) return std::nullopt;
    header.remove_prefix(6);
    const std::size_t dash = header.find('-');
    if (dash == std::string_view::npos) return std::nullopt;
    const auto first = number(header.substr(0, dash)), last = number(header.substr(dash + 1));
    const bool from_end = dash == 0;
    if ((from_end && !last) || (!from_end && !first) || (dash + 1 < header.size() && !last)) return std::nullopt;
    if (!from_end && last && *last < *first) return std::nullopt;
    if (size == 0 || (from_end ? *last == 0 : *first >= size))
        throw HttpError(416, "the file has " + std::to_string(size) + " bytes");
    if (from_end) return ByteRange{size - std::min(size, *last), size - 1};
    return ByteRange{*first, std::min(last.value_or(size - 1), size - 1)};
}

HttpResponse fileResponse(const HttpRequest& request, const std::string& path, const std::string& type) {
    auto file = std::make_shared<Fd>(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat about {};
    if (!*file || ::fstat(file->get(), &about) != 0 || !S_ISREG(about.st_mode))
        throw HttpError(404, "the file is not there (any more)");
    const auto size = static_cast<std::uint64_t>(about.st_size);
    const auto range = rangeOf(request.header("range"), size);
    HttpResponse response;
    response.type = type;
    response.headers = {{"Accept-Ranges", "bytes"}};
    response.length = size;
    if (range) {
        response.status = 206;
        response.offset = range->first;
        response.length = range->last - range->first + 1;
        response.headers.emplace_back("Content-Range", "bytes " + std::to_string(range->first) + '-' +
                                                           std::to_string(range->last) + '/' + std::to_string(size));
    }
    response.file = std::move(file);
    return response;
}

}  // namespace fleifeisa::host
