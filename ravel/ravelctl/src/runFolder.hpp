#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// A recording of modes as it stands in its file: a row for each cycle.
struct ModesRecording
{
    int cols = 0;
    std::vector<float> values;  // row-major
    std::vector<double> timestamps;

    std::span<const float> Row(std::int64_t row) const
    {
        const auto size = static_cast<std::size_t>(cols);
        return std::span<const float>(values).subspan(static_cast<std::size_t>(row) * size, size);
    }
};

/// The gains of a run from a cycle on, 10 floats per mode.
struct GainsInForce
{
    std::int64_t before_cycle = 0;
    std::vector<float> params;
};

/// What a run has left in its output folder.
/// Thread: a slow one. Real time: no. Failure of everything: InputError, one line that names the file.
class RunFolder
{
public:
    /// Reads the summary.
    explicit RunFolder(std::filesystem::path folder);

    const std::filesystem::path& GetPath() const { return m_folder; }
    std::int64_t GetCycles() const { return m_cycles; }           // that were run
    std::int64_t GetOpenCycles() const { return m_open_cycles; }  // with the loop open, at the beginning
    int GetModes() const { return m_modes; }
    double GetRateHz() const { return m_rate_hz; }

    /// Loads the recording `name`, such as modes_in, which must hold every cycle of the run: of one that does not it
    /// says why, and how to run so that it will.
    ModesRecording LoadEveryCycle(const std::string& name) const;

    /// Loads the gains with which the run began and, after them, those of each change.
    std::vector<GainsInForce> LoadGains() const;

private:
    struct GainsEntry
    {
        std::int64_t before_cycle;
        std::string file;
    };

    void ReadSummary();
    void CheckSummary() const;
    [[noreturn]] void RefuseRecording(const std::string& name, const std::string& flaw) const;
    std::string FindReason() const;

    std::filesystem::path m_folder;
    std::int64_t m_cycles = 0;
    std::int64_t m_open_cycles = 0;
    int m_modes = 0;
    double m_rate_hz = 0.0;
    bool m_recorded_modes = false;
    int m_decimation = 1;
    std::optional<double> m_last_s;
    bool m_saved_meanwhile = false;
    std::vector<GainsEntry> m_gains;
};

}  // namespace lumo::ravelctl
