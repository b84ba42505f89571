#include "cli/overrides.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "toml/toml_text.h"

namespace fleifeisa::host {
namespace {

using nlohmann::json;

template <typename Names>
bool isOneOf(const Names& names, std::string_view key) {
    return std::ranges::find(names, key) != std::end(names);
}

std::string nameOf(const toml::table& table) {
    return table["name"].value<std::string>().value_or("");
}

toml::table* findNamed(toml::array* list, const std::string& name) {
    if (list == nullptr) return nullptr;
    for (toml::node& item : *list)
        if (toml::table* table = item.as_table(); table && nameOf(*table) == name) return table;
    return nullptr;
}

void dropNamed(toml::array& list, const std::string& name) {
    for (auto item = list.begin(); item != list.end(); ++item)
        if (const toml::table* table = item->as_table(); table && nameOf(*table) == name) {
            list.erase(item);
            return;
        }
}

std::string placeOf(const toml::node& node) {
    return (node.source().path ? *node.source().path : "") + ':' + std::to_string(node.source().begin.line);
}

/// One camera's changes, laid over its table.
class Merge {
 public:
    Merge(toml::table& camera, std::string name, std::vector<std::string>& warnings, const Complain& complain)
        : camera_(camera), name_(std::move(name)), warnings_(warnings), complain_(complain) {}

    void merge(toml::table& changes) {
        for (auto&& [key, node] : changes) {
            const std::string_view word = key.str();
            if (word == "name") continue;
            if (isOneOf(kOverrideNamed, word))
                mergeNamed(key, node);
            else if (isOneOf(kOverrideTables, word))
                mergeTable(key, node);
            else if (isOneOf(kOverrideKeys, word))
                camera_.insert_or_assign(key, std::move(node));
            else
                complain_(key.source(), "camera." + name_ + '.' + std::string(word),
                          "is not to be changed here, but in the configuration file");
        }
    }

 private:
    void mergeTable(const toml::key& key, toml::node& node) {
        toml::table* changes = node.as_table();
        toml::table* own = camera_[key.str()].as_table();
        if (changes == nullptr || own == nullptr) {
            camera_.insert_or_assign(key, std::move(node));  // what is none is complained of by whoever reads it
            return;
        }
        for (auto&& [inner, value] : *changes) own->insert_or_assign(inner, std::move(value));
    }

    void mergeNamed(const toml::key& key, toml::node& node) {
        const std::string word(key.str());
        toml::array* changes = node.as_array();
        if (changes == nullptr || !changes->is_array_of_tables()) {
            complain_(node.source(), "camera." + name_ + '.' + word, "expected [[camera." + word + "]] tables");
            return;
        }
        for (toml::node& item : *changes) mergeOne(word, *item.as_table());
        if (toml::array* list = camera_[word].as_array(); list && list->empty()) camera_.erase(word);
    }

    void mergeOne(const std::string& word, toml::table& changes) {
        const std::string name = nameOf(changes);
        toml::array* list = camera_[word].as_array();
        toml::table* own = findNamed(list, name);
        const bool added = changes["added"].value_or(false), removed = changes["removed"].value_or(false);
        changes.erase("added");
        changes.erase("removed");
        if (own == nullptr && !added) {
            warnings_.push_back(placeOf(changes) + ": camera " + name_ + " has no " + word + " '" + name +
                                "' any more: what was changed of it is left out");
        } else if (removed) {
            if (own != nullptr) dropNamed(*list, name);
        } else if (own != nullptr) {
            for (auto&& [key, value] : changes)
                if (key.str() != "name") own->insert_or_assign(key, std::move(value));
        } else {
            if (list == nullptr) list = camera_.insert_or_assign(word, toml::array{}).first->second.as_array();
            list->push_back(std::move(changes));
        }
    }

    toml::table& camera_;
    const std::string name_;
    std::vector<std::string>& warnings_;
    const Complain& complain_;
};

json jsonOf(const toml::node& node) {
    if (const toml::table* table = node.as_table()) {
        json all = json::object();
        for (const auto& [key, value] : *table) all[std::string(key.str())] = jsonOf(value);
        return all;
    }
    if (const toml::array* array = node.as_array()) {
        json all = json::array();
        for (const toml::node& value : *array) all.push_back(jsonOf(value));
        return all;
    }
    if (const auto text = node.value_exact<std::string>()) return *text;
    if (const auto flag = node.value_exact<bool>()) return *flag;
    if (const auto number = node.value_exact<std::int64_t>()) return *number;
    if (const auto number = node.value_exact<double>()) return *number;
    throw std::invalid_argument(placeOf(node) + ": a date or time has no place here");
}

/// [{"name":"a","x":1}] becomes {"a":{"x":1}}.
json byName(json list) {
    json all = json::object();
    for (json& item : list) {
        const auto name = item.find("name");
        if (name == item.end() || !name->is_string()) throw std::invalid_argument("a table without a name");
        const std::string key = *name;
        item.erase("name");
        all[key] = std::move(item);
    }
    return all;
}

void insert(toml::table& table, const std::string& key, const json& value);

toml::table tableOf(const json& object) {
    toml::table table;
    for (const auto& [key, value] : object.items()) insert(table, key, value);
    return table;
}

toml::array arrayOf(const json& list) {
    toml::array array;
    for (const json& item : list) {
        toml::table one;
        insert(one, "x", item);
        if (toml::node* node = one.get("x")) array.push_back(std::move(*node));
    }
    return array;
}

void insert(toml::table& table, const std::string& key, const json& value) {
    if (value.is_object()) table.insert_or_assign(key, tableOf(value));
    if (value.is_array()) table.insert_or_assign(key, arrayOf(value));
    if (value.is_string()) table.insert_or_assign(key, value.get<std::string>());
    if (value.is_boolean()) table.insert_or_assign(key, value.get<bool>());
    if (value.is_number_integer()) table.insert_or_assign(key, value.get<std::int64_t>());
    if (value.is_number_float()) table.insert_or_assign(key, value.get<double>());
}

/// {"a":{"x":1}} becomes [{"name":"a","x":1}].
toml::array namedArray(const json& all) {
    toml::array list;
    for (const auto& [name, item] : all.items()) {
        toml::table table = tableOf(item);
        table.insert_or_assign("name", name);
        list.push_back(std::move(table));
    }
    return list;
}

}  // namespace

void mergeOverrides(toml::table& config, toml::table&& changes, std::vector<std::string>& warnings,
                    const Complain& complain) {
    for (auto&& [key, node] : changes) {
        if (key.str() == "change" && node.is_integer()) continue;
        toml::array* cameras = node.as_array();
        if (key.str() != "camera" || cameras == nullptr || (!cameras->empty() && !cameras->is_array_of_tables())) {
            complain(key.source(), std::string(key.str()), "has no place in this file");
            continue;
        }
        for (toml::node& item : *cameras) {
            const std::string name = nameOf(*item.as_table());
            if (toml::table* camera = findNamed(config["camera"].as_array(), name))
                Merge(*camera, name, warnings, complain).merge(*item.as_table());
            else
                warnings.push_back(placeOf(item) + ": there is no camera '" + name +
                                   "' any more: what was changed of it is left out");
        }
    }
}

json overridesJson(const std::string& text, const std::string& path) {
    try {
        json all = jsonOf(parseToml(text, path));
        json cameras = all.contains("camera") ? byName(std::move(all["camera"])) : json::object();
        for (json& camera : cameras)
            for (const char* key : kOverrideNamed)
                if (camera.contains(key)) camera[key] = byName(std::move(camera[key]));
        return {{"change", all.value("change", std::int64_t{0})}, {"camera", std::move(cameras)}};
    } catch (const TomlFault& fault) {
        throw std::invalid_argument(fault.what());
    } catch (const json::exception&) {
        throw std::invalid_argument(path + ": is not as this program writes it");
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(path + ": " + error.what());
    }
}

std::string overridesText(const json& changes) {
    toml::array cameras;
    for (const auto& [name, changed] : changes.at("camera").items()) {
        json rest = changed;
        for (const char* key : kOverrideNamed) rest.erase(key);
        toml::table camera = tableOf(rest);
        camera.insert_or_assign("name", name);
        for (const char* key : kOverrideNamed)
            if (changed.contains(key)) camera.insert_or_assign(key, namedArray(changed[key]));
        cameras.push_back(std::move(camera));
    }
    toml::table root;
    root.insert_or_assign("change", changes.at("change").get<std::int64_t>());
    if (!cameras.empty()) root.insert_or_assign("camera", std::move(cameras));
    std::ostringstream text;
    text << "# Written by fleifeisa-host: what was changed on its page. Laid over the configuration file.\n"
         << toml::toml_formatter(root, toml::toml_formatter::default_flags & ~toml::format_flags::indentation) << '\n';
    return text.str();
}

}  // namespace fleifeisa::host
