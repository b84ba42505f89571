#include "web/json_body.h"

#include <nlohmann/json.hpp>

#include "http/message.h"

namespace fleifeisa::host {
namespace {

[[noreturn]] void refuse(const char* key, const std::string& expected) {
    throw HttpError(400, std::string(key) + ": expected " + expected);
}

}  // namespace

JsonBody::JsonBody(std::shared_ptr<const nlohmann::json> value) : value_(std::move(value)) {
    if (!value_->is_object()) throw HttpError(400, "expected a JSON object");
}

JsonBody::JsonBody(const std::string& text)
    : JsonBody(std::make_shared<nlohmann::json>(nlohmann::json::parse(text, nullptr, false))) {}

bool JsonBody::sound(const std::string& text) {
    return nlohmann::json::accept(text);
}

const nlohmann::json* JsonBody::find(const char* key) const {
    const auto found = value_->find(key);
    return found == value_->end() || found->is_null() ? nullptr : &*found;
}

bool JsonBody::has(const char* key) const {
    return value_->contains(key);
}

bool JsonBody::isNull(const char* key) const {
    return has(key) && !find(key);
}

std::optional<std::string> JsonBody::text(const char* key) const {
    const nlohmann::json* value = find(key);
    if (!value) return std::nullopt;
    if (!value->is_string()) refuse(key, "a text");
    return value->get<std::string>();
}

std::optional<bool> JsonBody::flag(const char* key) const {
    const nlohmann::json* value = find(key);
    if (!value) return std::nullopt;
    if (!value->is_boolean()) refuse(key, "true or false");
    return value->get<bool>();
}

std::optional<std::int64_t> JsonBody::integer(const char* key, std::int64_t low, std::int64_t high) const {
    const nlohmann::json* value = find(key);
    if (!value) return std::nullopt;
    if (!value->is_number_integer() || value->get<double>() < static_cast<double>(low) ||
        value->get<double>() > static_cast<double>(high))
        refuse(key, "a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    return value->get<std::int64_t>();
}

std::string JsonBody::needText(const char* key) const {
    const auto value = text(key);
    if (!value || value->empty()) refuse(key, "a text");
    return *value;
}

bool JsonBody::needFlag(const char* key) const {
    const auto value = flag(key);
    if (!value) refuse(key, "true or false");
    return *value;
}

std::vector<std::string> JsonBody::texts(const char* key) const {
    std::vector<std::string> all;
    const nlohmann::json* value = find(key);
    if (!value) return all;
    if (!value->is_array()) refuse(key, "a list of texts");
    for (const nlohmann::json& item : *value) {
        if (!item.is_string()) refuse(key, "a list of texts");
        all.push_back(item.get<std::string>());
    }
    return all;
}

std::string JsonBody::object(const char* key) const {
    const nlohmann::json* value = find(key);
    if (!value) return "";
    if (!value->is_object()) refuse(key, "an object");
    return value->dump();
}

std::vector<JsonBody> JsonBody::objects(const char* key) const {
    const nlohmann::json* value = find(key);
    if (!value || !value->is_array()) refuse(key, "a list");
    std::vector<JsonBody> all;
    for (const nlohmann::json& item : *value) all.push_back(JsonBody(std::make_shared<nlohmann::json>(item)));
    return all;
}

}  // namespace fleifeisa::host
