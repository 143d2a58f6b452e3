#include "modeSlice.hpp"

#include <algorithm>
#include <cstddef>

namespace lumo::ravelctl {

std::vector<ModeSlice> SliceModes(int num_modes, int num_slices)
{
    const int size = (num_modes + num_slices - 1) / num_slices;
    std::vector<ModeSlice> slices;
    for (int first = 0; first < num_modes; first += size) {
        slices.push_back({first, std::min(size, num_modes - first)});
    }
    return slices;
}

std::vector<float> RowsOf(const std::vector<float>& matrix, int num_cols, const ModeSlice& slice)
{
    const auto begin = matrix.begin() + static_cast<std::ptrdiff_t>(slice.first) * num_cols;
    return {begin, begin + static_cast<std::ptrdiff_t>(slice.count) * num_cols};
}

std::vector<float> ColumnsOf(const std::vector<float>& matrix, int num_cols, const ModeSlice& slice)
{
    const auto num_rows = static_cast<std::ptrdiff_t>(matrix.size()) / num_cols;
    std::vector<float> columns;
    columns.reserve(static_cast<std::size_t>(num_rows * slice.count));
    for (std::ptrdiff_t row = 0; row < num_rows; ++row) {
        const auto begin = matrix.begin() + row * num_cols + slice.first;
        columns.insert(columns.end(), begin, begin + slice.count);
    }
    return columns;
}

}  // namespace lumo::ravelctl
