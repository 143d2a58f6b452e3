#include "script.hpp"

#include "error.hpp"
#include "gainParams.hpp"
#include "modeList.hpp"
#include "tomlTable.hpp"

#include <lumo/ravelcore/pidFilter.hpp>

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <numeric>

namespace lumo::ravelctl {

namespace {

constexpr int ULOW = 7;
constexpr int UHIGH = 8;

std::optional<float> ReadFloat(TomlTable& table, const std::string& key, const NumberRange& range)
{
    const std::optional<double> number = table.GetNumber(key, range);
    if (!number) {
        return std::nullopt;
    }
    constexpr double LARGEST = std::numeric_limits<float>::max();
    if (*number > LARGEST || *number < -LARGEST) {
        table.Refuse(key, fmt::format("expected a number of single precision but got {}", *number));
    }
    return static_cast<float>(*number);
}

std::optional<float> ReadValueUm(TomlTable& table)
{
    return ReadFloat(table, "value", {.low = {}, .high = {}, .unit = "um"});
}

std::vector<int> ReadModes(TomlTable& table, int num_modes)
{
    const std::string key = "modes";
    if (!table.Has(key) || (table.IsString(key) && table.GetString(key) == "all")) {
        std::vector<int> all(static_cast<std::size_t>(num_modes));
        std::iota(all.begin(), all.end(), 0);
        return all;
    }
    if (table.IsString(key)) {
        try {
            return ParseModeList(*table.GetString(key), num_modes);
        } catch (const InputError& error) {
            table.Refuse(key, error.what());
        }
    }
    std::vector<int> modes =
        *table.GetIntegers(key, 0, num_modes - 1, "a mode, an array of modes or a string such as \"0,3,10-19\"");
    std::sort(modes.begin(), modes.end());
    modes.erase(std::unique(modes.begin(), modes.end()), modes.end());
    return modes;
}

/// Whether the table `name` of a step names a file, which excludes `others`.
bool IsFileAlone(TomlTable& at, const std::string& name, TomlTable& table, const std::vector<std::string>& others)
{
    if (!table.Has("file")) {
        return false;
    }
    for (const std::string& other : others) {
        if (table.Has(other)) {
            at.Refuse(name, fmt::format("expected file alone but got {} besides", other));
        }
    }
    return true;
}

std::optional<float> ReadParam(TomlTable& table, const GainParam& param)
{
    NumberRange range;
    range.unit = param.unit;
    if (param.sign == Sign::NotNegative) {
        range.low = 0.0;
    }
    const std::optional<float> value = ReadFloat(table, param.name, range);
    if (value && param.sign == Sign::Positive && *value <= 0.0F) {
        const char* const space = range.unit.empty() ? "" : " ";
        table.Refuse(param.name, fmt::format("expected more than 0{}{} but got {}", space, range.unit, *value));
    }
    return value;
}

void ReadGains(TomlTable& at, int num_modes, ScriptStep& step)
{
    std::optional<TomlTable> table = at.GetTable("gains");
    if (!table) {
        return;
    }
    GainChange change;
    change.modes = ReadModes(*table, num_modes);
    step.gains_file = table->GetPath("file");
    std::vector<std::string> names;
    std::array<std::optional<float>, GAIN_PARAMS.size()> values;
    for (std::size_t i = 0; i < GAIN_PARAMS.size(); ++i) {
        names.emplace_back(GAIN_PARAMS[i].name);
        values[i] = ReadParam(*table, GAIN_PARAMS[i]);
        if (values[i]) {
            change.params.emplace_back(static_cast<int>(i), *values[i]);
        }
    }
    table->RefuseUnknownKeys();
    std::vector<std::string> others = names;
    others.insert(others.begin(), "modes");
    if (IsFileAlone(at, "gains", *table, others)) {
        return;
    }
    if (change.params.empty()) {
        at.Refuse("gains", fmt::format("expected file or at least one of {} but got none", fmt::join(names, ", ")));
    }
    if (values[ULOW] && values[UHIGH] && *values[ULOW] > *values[UHIGH]) {
        table->Refuse("ulow", fmt::format("expected at most uhigh = {} but got {}", *values[UHIGH], *values[ULOW]));
    }
    step.gains = std::move(change);
}

void ReadReferences(TomlTable& at, int num_modes, ScriptStep& step)
{
    std::optional<TomlTable> table = at.GetTable("references");
    if (!table) {
        return;
    }
    std::vector<int> modes = ReadModes(*table, num_modes);
    step.references_file = table->GetPath("file");
    const std::optional<float> value_um = ReadValueUm(*table);
    table->RefuseUnknownKeys();
    if (IsFileAlone(at, "references", *table, {"modes", "value"})) {
        return;
    }
    if (!value_um) {
        at.Refuse("references", "expected file or value but got none");
    }
    step.references = ReferenceChange{std::move(modes), *value_um};
}

std::optional<ReplacementChange> ReadReplacement(TomlTable& at, const std::string& name, int num_modes)
{
    std::optional<TomlTable> table = at.GetTable(name);
    if (!table) {
        return std::nullopt;
    }
    std::vector<int> modes = ReadModes(*table, num_modes);
    const std::optional<float> value_um = ReadValueUm(*table);
    const std::optional<bool> release = table->GetBool("release");
    table->RefuseUnknownKeys();
    if (release && !*release) {
        table->Refuse("release", "expected true but got false; leave it out to replace");
    }
    if (value_um.has_value() == release.has_value()) {
        at.Refuse(name,
                  fmt::format("expected either value or release = true but got {}", value_um ? "both" : "neither"));
    }
    return ReplacementChange{std::move(modes), value_um.has_value(), value_um.value_or(0.0F)};
}

void CheckFolderName(const TomlTable& at, const std::string& name)
{
    const bool plain = !name.empty() && name != "." && name != ".." &&
                       std::none_of(name.begin(), name.end(), [](char c) { return c == '/' || c == '\0'; });
    if (!plain) {
        at.Refuse("save", fmt::format("expected the name of a folder, not a path, but got '{}'", name));
    }
    if (name.ends_with(".fits") || name.ends_with(".json") || name.ends_with(".toml") ||
        name.ends_with(".html")) {  // the run's own files stand in the same place
        at.Refuse("save", fmt::format("expected the name of a folder, not of a file, but got '{}'", name));
    }
}

/// Checks what a step says against the ones before it.
void CheckOrder(const TomlTable& at, const ScriptStep& step, const std::vector<ScriptStep>& before)
{
    if (!before.empty() && step.time_s <= before.back().time_s) {
        at.Refuse(
            "time",
            fmt::format("expected more than {} seconds, the time of line {}, but got {}{}", before.back().time_s,
                        before.back().line, step.time_s,
                        step.time_s < before.back().time_s ? "" : "; put what happens at one time under one [[at]]"));
    }
    for (const ScriptStep& other : before) {
        if (!step.save.empty() && other.save == step.save) {
            at.Refuse("save", fmt::format("expected a name of its own but got '{}', the one of line {}", step.save,
                                          other.line));
        }
    }
}

ScriptStep ReadStep(TomlTable& at, int num_modes, double last_s, const std::vector<ScriptStep>& before)
{
    ScriptStep step;
    step.line = at.GetLine();
    const std::optional<double> time_s = at.GetNumber("time", {.low = 0.0, .high = last_s, .unit = "seconds"});
    ReadGains(at, num_modes, step);
    ReadReferences(at, num_modes, step);
    step.pdc = ReadReplacement(at, "pdc", num_modes);
    step.fdc = ReadReplacement(at, "fdc", num_modes);
    step.p2edc = at.GetPath("p2edc");
    step.pact2modes = at.GetPath("pact2modes");
    step.modes2pact = at.GetPath("modes2pact");
    if (const std::optional<std::string> name = at.GetString("save")) {
        CheckFolderName(at, *name);
        step.save = *name;
    }
    at.RefuseUnknownKeys();
    if (!time_s) {
        at.Refuse("time", "expected a number of seconds but got none");
    }
    step.time_s = *time_s;
    CheckOrder(at, step, before);
    if (Describe(step, num_modes).empty()) {
        at.Refuse(
            "expected a change (gains, references, pdc, fdc, p2edc, pact2modes, modes2pact or save) but got none");
    }
    return step;
}

std::string NameModes(const std::vector<int>& modes, int num_modes)
{
    if (modes.size() == static_cast<std::size_t>(num_modes)) {
        return "every mode";
    }
    return fmt::format("{} {}", modes.size() == 1 ? "mode" : "modes", FormatModeList(modes));
}

std::string DescribeGains(const GainChange& change, int num_modes)
{
    std::vector<std::string> params;
    for (const auto& [place, value] : change.params) {
        params.push_back(fmt::format("{} = {}", GAIN_PARAMS.at(static_cast<std::size_t>(place)).name, value));
    }
    return fmt::format("gains of {}: {}", NameModes(change.modes, num_modes), fmt::join(params, ", "));
}

std::string DescribeReplacement(const char* name, const ReplacementChange& change, int num_modes)
{
    const std::string modes = NameModes(change.modes, num_modes);
    return change.replace ? fmt::format("{} replaces {} by {} um", name, modes, change.value_um)
                          : fmt::format("{} gives {} back", name, modes);
}

}  // namespace

std::vector<ScriptStep> LoadScript(const std::filesystem::path& file, int num_modes, double last_s)
{
    TomlTable root = TomlTable::Open(file);
    std::vector<TomlTable> tables = root.GetTables("at");
    root.RefuseUnknownKeys();
    std::vector<ScriptStep> steps;
    steps.reserve(tables.size());
    for (TomlTable& at : tables) {
        steps.push_back(ReadStep(at, num_modes, last_s, steps));
    }
    for (ScriptStep& step : steps) {
        for (std::filesystem::path* path :
             {&step.gains_file, &step.references_file, &step.p2edc, &step.pact2modes, &step.modes2pact}) {
            *path = path->empty() ? *path : file.parent_path() / *path;  // an absolute one stays as it is
        }
    }
    return steps;
}

std::string Describe(const ScriptStep& step, int num_modes)
{
    std::vector<std::string> parts;
    const auto add_file = [&](const char* what, const std::filesystem::path& file) {
        if (!file.empty()) {
            parts.push_back(fmt::format("{} from {}", what, file.string()));
        }
    };
    if (step.gains) {
        parts.push_back(DescribeGains(*step.gains, num_modes));
    }
    add_file("gains", step.gains_file);
    if (step.references) {
        parts.push_back(fmt::format("references of {}: {} um", NameModes(step.references->modes, num_modes),
                                    step.references->value_um));
    }
    add_file("references", step.references_file);
    if (step.pdc) {
        parts.push_back(DescribeReplacement("PDC", *step.pdc, num_modes));
    }
    if (step.fdc) {
        parts.push_back(DescribeReplacement("FDC", *step.fdc, num_modes));
    }
    add_file("P2EDC", step.p2edc);
    add_file("PACT2MODES", step.pact2modes);
    add_file("MODES2PACT", step.modes2pact);
    if (!step.save.empty()) {
        parts.push_back(fmt::format("saves what was recorded into {}", step.save));
    }
    return fmt::format("{}", fmt::join(parts, "; "));
}

}  // namespace lumo::ravelctl
