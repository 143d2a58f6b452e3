#pragma once

#include "tuning.hpp"

#include <filesystem>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// What was found, for people: several lines.
std::string FormatTuning(const Tuning& tuning);

/// For programs, and for a later comparison. Failure: RunError.
void WriteTuning(const Tuning& tuning, const std::filesystem::path& run, const std::filesystem::path& file);

/// What a tune.json predicts.
struct Prediction
{
    struct Mode
    {
        float kp = 0.0F;
        float ki = 0.0F;
        double residual_um2 = 0.0;
    };

    double rate_hz = 0.0;
    std::vector<Mode> modes;
    double residual_nm = 0.0;
    double surface_nm = 0.0;
};

/// Failure: InputError that names the file.
Prediction ReadPrediction(const std::filesystem::path& file);

}  // namespace lumo::ravelctl
