/// What somebody may have meant by a name that nobody knows.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kit {

/// How many letters have to be put in, left out, replaced or swapped with their neighbour to make
/// one name of another. Small letters and capitals count as the same.
inline size_t DistanceOf(const std::string& one, const std::string& other) {
    const auto isSame = [&](size_t i, size_t j) {
        return std::tolower(static_cast<unsigned char>(one[i - 1])) ==
               std::tolower(static_cast<unsigned char>(other[j - 1]));
    };
    std::vector<std::vector<size_t>> least(one.size() + 1, std::vector<size_t>(other.size() + 1));
    for (size_t i = 0; i <= one.size(); ++i) {
        for (size_t j = 0; j <= other.size(); ++j) {
            if (i == 0 || j == 0) {
                least[i][j] = i + j;
                continue;
            }
            least[i][j] = std::min({least[i - 1][j] + 1, least[i][j - 1] + 1,
                                    least[i - 1][j - 1] + (isSame(i, j) ? 0 : 1)});
            if (i > 1 && j > 1 && isSame(i - 1, j) && isSame(i, j - 1)) {
                least[i][j] = std::min(least[i][j], least[i - 2][j - 2] + 1);
            }
        }
    }
    return least[one.size()][other.size()];
}

/// What makes a name of a map's item.
inline constexpr auto kName = [](const auto& item) { return item.first; };

/// For the end of a message, as in "; did you mean 'night-burst'?". Empty where no known name is
/// near: no more than a quarter of the letters may differ, so that V98 is not taken for V99.
/// \param nameOf what makes a name of one of the known.
template <class Known, class NameOf = std::identity>
std::string DidYouMean(const std::string& name, const Known& known, NameOf nameOf = {}) {
    std::string nearest;
    size_t least = SIZE_MAX;
    for (const auto& one : known) {
        const std::string other = std::invoke(nameOf, one);
        if (name.size() > 2 * other.size()) {
            continue; // However long it is.
        }
        const size_t distance = DistanceOf(name, other);
        if (distance <= std::max(name.size(), other.size()) / 4 && distance < least) {
            least = distance;
            nearest = other;
        }
    }
    return nearest.empty() ? "" : "; did you mean '" + nearest + "'?";
}

} // namespace kit
