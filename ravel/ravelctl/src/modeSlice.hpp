#pragma once

#include <vector>

namespace lumo::ravelctl {

/// The modes that one worker controls: `count` of them from `first` on.
struct ModeSlice
{
    int first = 0;
    int count = 0;
};

/// Slices of ceil(num_modes / num_slices) modes, the last one with what is left.
std::vector<ModeSlice> SliceModes(int num_modes, int num_slices);

/// The slice's rows of a row-major matrix with one row per mode.
std::vector<float> RowsOf(const std::vector<float>& matrix, int num_cols, const ModeSlice& slice);

/// The slice's columns of a row-major matrix with one column per mode.
std::vector<float> ColumnsOf(const std::vector<float>& matrix, int num_cols, const ModeSlice& slice);

}  // namespace lumo::ravelctl
