#include "replayArguments.hpp"

#include "commandOutline.hpp"
#include "error.hpp"
#include "gainParams.hpp"
#include "helpText.hpp"

#include <CLI/CLI.hpp>
#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>

namespace lumo::ravelctl {

namespace {

std::vector<std::string> NameParams()
{
    std::vector<std::string> names;
    names.reserve(GAIN_PARAMS.size());
    for (const GainParam& param : GAIN_PARAMS) {
        names.emplace_back(param.name);
    }
    return names;
}

/// None for what is no number of single precision.
std::optional<float> ParseFloat(const std::string& text)
{
    double value = 0.0;
    const char* const end = text.data() + text.size();
    const auto [parsed, error] = std::from_chars(text.data(), end, value);
    constexpr double LARGEST = std::numeric_limits<float>::max();
    if (error != std::errc() || parsed != end || !(value >= -LARGEST && value <= LARGEST)) {
        return std::nullopt;
    }
    return static_cast<float>(value);
}

GainSetting ParseSetting(const std::string& text)
{
    const std::size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    const auto param = std::find_if(GAIN_PARAMS.begin(), GAIN_PARAMS.end(),
                                    [&name](const GainParam& candidate) { return name == candidate.name; });
    if (equals == std::string::npos || param == GAIN_PARAMS.end()) {
        throw InputError(fmt::format("--set: expected NAME=VALUE with one of {}, such as kp=0.5, but got {}",
                                     fmt::join(NameParams(), ", "), text));
    }
    const std::optional<float> value = ParseFloat(text.substr(equals + 1));
    if (!value) {
        throw InputError(fmt::format("--set: {}: expected a number but got {}", name, text.substr(equals + 1)));
    }
    if ((param->sign == Sign::Positive && *value <= 0.0F) || (param->sign == Sign::NotNegative && *value < 0.0F)) {
        throw InputError(fmt::format("--set: {}: expected {} but got {}", name,
                                     param->sign == Sign::Positive ? "more than 0" : "0 or above", *value));
    }
    return {static_cast<int>(param - GAIN_PARAMS.begin()), *value};
}

}  // namespace

void AddReplayOptions(CLI::App& command, ReplayArguments& arguments)
{
    ReplayOptions& options = arguments.options;
    command.add_option("RUN", options.run, "Output folder of the run")->required()->type_name(FOLDER_VALUE);
    command
        .add_option("--set", arguments.set,
                    fmt::format("Also show what the channels would have done with another gain: {}; may be repeated",
                                fmt::join(NameParams(), ", ")))
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    command.add_option("--modes", options.modes, "The modes that it is set for, such as 5 or 0,3,10-19 [all]")
        ->type_name("LIST");
    command
        .add_option("--output", options.output,
                    "Write the outputs of the channels as modes_out.fits has them; compressed if its name ends in "
                    ".gz")
        ->type_name(FILE_VALUE);
    command.add_flag("--overwrite", options.overwrite, "Replace that file");
    command.add_flag("--quiet", options.quiet, "Print nothing but errors; the status tells");
    command.footer(FormatFooter(
        "The channels are given what the run's were given: the measured modes, the references and what the actuators "
        "fell short of. With other gains the mirror would have moved otherwise; this does not show.",
        {"ravelctl replay night1", "ravelctl replay night1 --set kp=0.5 --set ki=20 --modes 0-9 --output other.fits"},
        "every recorded output was computed again to the last bit", "not so"));
}

ReplayOptions ReadReplayOptions(const ReplayArguments& arguments)
{
    ReplayOptions options = arguments.options;
    for (const std::string& setting : arguments.set) {
        const GainSetting parsed = ParseSetting(setting);
        const auto same = std::find_if(options.set.begin(), options.set.end(),
                                       [&parsed](const GainSetting& other) { return other.param == parsed.param; });
        if (same != options.set.end()) {
            throw InputError(fmt::format("--set: {}: expected one value but got {} and {}; replay once for each",
                                         GAIN_PARAMS.at(static_cast<std::size_t>(parsed.param)).name, same->value,
                                         parsed.value));
        }
        options.set.push_back(parsed);
    }
    if (!options.modes.empty() && options.set.empty()) {
        throw InputError("--modes: expected --set besides, for what is set for these modes");
    }
    return options;
}

}  // namespace lumo::ravelctl
