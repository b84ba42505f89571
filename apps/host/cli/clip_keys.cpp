#include "cli/clip_keys.h"

#include <map>
#include <sstream>

#include "toml/toml_text.h"

namespace fleifeisa::host {
namespace {

std::string formatted(const toml::node& node) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << toml::toml_formatter(node, toml::format_flags::none);
    return text.str();
}

toml::table& cameraOf(toml::table& document) {
    return *document["camera"].as_array()->get(0)->as_table();
}

void merge(toml::table& into, const toml::table& from) {
    for (const auto& [key, node] : from) {
        toml::node* const there = into.get(key.str());
        if (there && there->is_table() && node.is_table())
            merge(*there->as_table(), *node.as_table());
        else
            into.insert_or_assign(key.str(), node);
    }
}

void flatten(const toml::table& table, const std::string& prefix, std::map<std::string, std::string>& values) {
    for (const auto& [key, node] : table) {
        const std::string name = prefix + std::string(key.str());
        if (node.is_table())
            flatten(*node.as_table(), name + ".", values);
        else
            values[name] = formatted(node);
    }
}

}  // namespace

std::string withOutputs(const std::string& configuration, const std::vector<std::string>& outputs) {
    toml::table document = parseToml(configuration, "configuration");
    toml::array list;
    for (const std::string& output : outputs) list.push_back(output);
    cameraOf(document).insert_or_assign("outputs", list);
    return formatted(document) + '\n';
}

std::string withLines(const std::string& configuration, const std::string& lines) {
    toml::table document = parseToml(configuration, "configuration");
    // As the lines stand in a file, behind the head of their table.
    toml::table added = parseToml("[[camera]]\n" + lines, "lines");
    merge(cameraOf(document), cameraOf(added));
    return formatted(document) + '\n';
}

std::string withoutKey(const std::string& configuration, const std::string& key) {
    toml::table document = parseToml(configuration, "configuration");
    cameraOf(document).erase(key);
    return formatted(document) + '\n';
}

std::vector<DifferentKey> differentKeys(const std::string& a, const std::string& b) {
    std::map<std::string, std::string> in_a, in_b;
    toml::table one = parseToml(a, "A"), other = parseToml(b, "B");
    flatten(cameraOf(one), "", in_a);
    flatten(cameraOf(other), "", in_b);
    std::map<std::string, DifferentKey> all;
    for (const auto& [key, value] : in_a) all[key] = {key, value, ""};
    for (const auto& [key, value] : in_b) {
        all[key].key = key;
        all[key].b = value;
    }
    std::vector<DifferentKey> different;
    for (auto& [key, line] : all)
        if (line.a != line.b) different.push_back(std::move(line));
    return different;
}

}  // namespace fleifeisa::host
