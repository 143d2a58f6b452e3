#pragma once

#include "loopAnalysis.hpp"

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
    std::int64_t GetFirstJudgedCycle() const { return m_first_judged; }  // from which on the run's result was judged

    /// The plant of each mode. Failure also: InputError where the run is of a version that did not say.
    Plant GetPlant() const;

    /// The cycles before a script replaced measured modes or a matrix; all of them where none did.
    std::int64_t GetCyclesBeforeRedefinition() const { return m_before_redefinition; }

    /// Whether recorded frames took the place of the edge sensors, so that no command could be seen.
    bool WasPlayed() const { return m_was_played; }

    /// Rms of the surface in the controlled modes, nm, from the first judged cycle on; none where nobody saw it.
    std::optional<double> GetSurfaceNm() const { return m_surface_nm; }

    /// Whether the run's script changed gains, measured modes or a matrix.
    bool IsChangedMidway() const { return m_gains.size() > 1 || m_before_redefinition < m_cycles; }

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
    std::string RecordEveryCycle() const;

    std::filesystem::path m_folder;
    std::int64_t m_cycles = 0;
    std::int64_t m_open_cycles = 0;
    int m_modes = 0;
    double m_rate_hz = 0.0;
    std::int64_t m_first_judged = 0;
    std::optional<Plant> m_plant;
    std::int64_t m_before_redefinition = 0;
    bool m_was_played = false;
    std::optional<double> m_surface_nm;
    std::vector<std::string> m_recorded;
    int m_decimation = 1;
    std::optional<double> m_last_s;
    bool m_saved_meanwhile = false;
    std::vector<GainsEntry> m_gains;
};

}  // namespace lumo::ravelctl
