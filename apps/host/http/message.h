// What comes in and goes out over HTTP, without the library that carries it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/fd.h"

namespace fleifeisa::host {

struct HttpRequest {
    using Values = std::map<std::string, std::string, std::less<>>;

    std::string method;  ///< HEAD is GET here: the body of its answer is not sent
    std::string path;    ///< percent-decoded, begins with '/'; below the base path
    Values query;        ///< percent-decoded, the first of several
    Values headers;      ///< names in lower case
    std::string body;
    std::string peer;     ///< address; of a trusted proxy: the one it speaks for
    bool secure = false;  ///< over TLS, or the proxy says so

    /// "" where there is none.
    std::string header(std::string_view name) const;
    std::string argument(std::string_view name) const;
    std::string cookie(std::string_view name) const;
};

/// A response without an end, read in the server's thread whenever its reader can take more.
class HttpStream {
 public:
    HttpStream() = default;
    HttpStream(const HttpStream&) = delete;
    HttpStream& operator=(const HttpStream&) = delete;
    virtual ~HttpStream() = default;

    /// How many bytes were put there, 0: none for now.
    virtual std::size_t read(std::span<char> to) = 0;
    /// Whether read() would give any; asked whenever the server was woken, and once a second.
    virtual bool ready() = 0;
    /// Nothing will come any more.
    virtual bool over() { return false; }
};

struct HttpResponse {
    int status = 200;
    std::string type = {};  ///< "": no body
    std::string body = {};
    std::vector<std::pair<std::string, std::string>> headers = {};
    std::string_view lasting = {};                 ///< in place of `body`: bytes that outlive the server
    std::shared_ptr<HttpStream> stream = nullptr;  ///< in place of `body`
    std::shared_ptr<Fd> file = nullptr;            ///< in place of `body`: `length` bytes from `offset`
    std::uint64_t offset = 0, length = 0;
};

/// Ends a handler with an answer in JSON: {"status":404,"error":"..."}.
struct HttpError : std::runtime_error {
    HttpError(int code, const std::string& what) : std::runtime_error(what), status(code) {}
    int status;
};

HttpResponse jsonResponse(std::string json, int status = 200);
/// 204.
HttpResponse noContent();
HttpResponse errorResponse(int status, std::string_view message);

/// To be called once, from any thread, at any time.
using HttpAnswer = std::function<void(HttpResponse)>;

/// One range of a file, both ends included.
struct ByteRange {
    std::uint64_t first = 0, last = 0;
};
/// Of "bytes=0-499", "bytes=500-", "bytes=-500". Nothing where the header asks for something else, for several ranges
/// or for none: then the whole file is sent. @throws HttpError 416 where the range lies behind the end
std::optional<ByteRange> rangeOf(std::string_view header, std::uint64_t size);

/// A whole file or the range that was asked for. @throws HttpError 404, 416
HttpResponse fileResponse(const HttpRequest& request, const std::string& path, const std::string& type);

}  // namespace fleifeisa::host
