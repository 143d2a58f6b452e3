#pragma once

#include "runFolder.hpp"
#include "terminalStyle.hpp"
#include "tuneReport.hpp"

#include <string>

namespace lumo::ravelctl {

/// How a run compares with what was predicted of it.
struct PredictionCheck
{
    /// How far what is measured may be from what was predicted.
    static constexpr double TOLERANCE = 0.2;

    std::string table;  // for people, several lines
    bool is_confirmed = false;

    /// The last line.
    std::string FormatVerdict(const Palette& palette = {}) const;
};

/// Compares the residual of a run, where its result was judged, with the prediction.
/// Failure: InputError for a run with other gains, modes or another rate, or one that ended before it was judged.
PredictionCheck CheckPrediction(const Prediction& prediction, const RunFolder& run);

}  // namespace lumo::ravelctl
