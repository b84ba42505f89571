// The JSON of a request, taken strictly.
#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace fleifeisa::host {

/// An object. Every reader throws HttpError 400 where a value is of another kind; null counts as missing.
class JsonBody {
 public:
    explicit JsonBody(const std::string& text);

    bool has(const char* key) const;
    bool isNull(const char* key) const;
    std::optional<std::string> text(const char* key) const;
    std::optional<bool> flag(const char* key) const;
    std::optional<std::int64_t> integer(const char* key, std::int64_t low, std::int64_t high) const;
    std::string needText(const char* key) const;
    bool needFlag(const char* key) const;
    std::vector<std::string> texts(const char* key) const;
    /// A list of objects, which must be there.
    std::vector<JsonBody> objects(const char* key) const;

    /// The text of an object in it, "" where there is none.
    std::string object(const char* key) const;

    /// Whether the text is well-formed JSON.
    static bool sound(const std::string& text);

 private:
    explicit JsonBody(std::shared_ptr<const nlohmann::json> value);
    /// Null where there is nothing.
    const nlohmann::json* find(const char* key) const;

    std::shared_ptr<const nlohmann::json> value_;
};

}  // namespace fleifeisa::host
