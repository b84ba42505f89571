#include "cli/nearest.h"

#include <algorithm>
#include <vector>

namespace fleifeisa::host {

std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row.back();
}

std::string nearest(std::string_view word, std::span<const std::string> known) {
    std::string found;
    std::size_t least = std::min<std::size_t>(3, (word.size() + 1) / 2);
    for (const std::string& one : known) {
        const std::size_t distance = editDistance(one, word);
        if (distance >= least) continue;
        least = distance;
        found = one;
    }
    return found;
}

}  // namespace fleifeisa::host
