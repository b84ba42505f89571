// Who changed what, when: changes.jsonl in the state directory, one line a change, and the file of changes itself.
//
// A line is on disk before overrides.toml names its number; a line beyond that number never came into force, and is
// not shown.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace fleifeisa::host {

class ChangeHistory {
 public:
    static constexpr std::size_t kMost = 2000;  ///< lines; half of them go at once, the oldest first

    explicit ChangeHistory(const std::string& state) : state_(state) {}

    std::string overridesPath() const { return state_ + "/overrides.toml"; }
    /// Of overrides.toml; "" where there is none. @throws std::invalid_argument where it cannot be read
    std::string overridesText() const;
    /// As overridesJson() has them. @throws std::invalid_argument where they are damaged
    nlohmann::json overrides() const;

    /// Lines up to that number, oldest first. Damaged ones are left out.
    std::vector<nlohmann::json> lines(std::int64_t up_to) const;
    /// Adds a line, then writes the overrides whole. @throws std::system_error; the overrides are as before then
    void commit(const nlohmann::json& line, const nlohmann::json& overrides) const;

 private:
    std::string path() const { return state_ + "/changes.jsonl"; }

    const std::string state_;
};

}  // namespace fleifeisa::host
