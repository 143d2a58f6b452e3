#pragma once

#include "tuneOptions.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>

/// What a configuration says of commands other than run, and a run hands on with it.
namespace lumo::ravelctl {

/// Of ravelctl qualify, besides what it takes from the run.
struct QualifyTable
{
    static constexpr std::int64_t MOST_CYCLES = 1'000'000'000'000;

    bool flat_out = false;
    std::optional<double> duration_s;
    std::optional<std::int64_t> cycles;
    std::optional<double> deadline_us;
    std::filesystem::path output;
    bool overwrite = false;
    bool quiet = false;
};

/// Of ravelctl tune.
struct TuneTable
{
    TuneFrom from = TuneFrom::Auto;
    LoopDemands demands;
    std::filesystem::path output;
    bool overwrite = false;
};

}  // namespace lumo::ravelctl
