#include "nearestName.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace lumo::ravelctl {

namespace {

/// Letters to add, remove, replace or swap with their neighbour to make `b` of `a`.
std::size_t EditDistance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> before_last;
    std::vector<std::size_t> last;
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        before_last = std::exchange(last, row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({replaced, last[j] + 1, row[j - 1] + 1});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                row[j] = std::min(row[j], before_last[j - 2] + 1);
            }
        }
    }
    return row.back();
}

}  // namespace

std::string FindNearest(std::string_view name, const std::vector<std::string>& known)
{
    std::string nearest;
    std::size_t smallest = 0;
    for (const std::string& candidate : known) {
        const std::size_t longer = std::max(name.size(), candidate.size());
        const std::size_t distance = EditDistance(name, candidate);
        const bool near = distance <= (longer + 1) / 3 && distance < candidate.size();
        if (near && (nearest.empty() || distance < smallest)) {
            nearest = candidate;
            smallest = distance;
        }
    }
    return nearest;
}

}  // namespace lumo::ravelctl
