#include "makeModulation.hpp"

#include "error.hpp"
#include "longWork.hpp"
#include "modeList.hpp"
#include "modulationShape.hpp"
#include "outputFile.hpp"
#include "resources.hpp"
#include "wholeFile.hpp"

#include <lumo/ravelcore/modulation.hpp>

#include <fmt/core.h>
#include <unistd.h>

namespace lumo::ravelctl {

namespace {

namespace fs = std::filesystem;

/// Of the values, while they are saved: the modulation's own, and what the table's rows take.
constexpr std::uint64_t COPIES = 4;

std::string Count(int number, const char* what)
{
    return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

std::string DescribeShape(const ModulationOptions& options, const ModulationPlan& plan)
{
    switch (options.shape) {
        case ModulationShape::Sine:
            return fmt::format("sine {} Hz of {} um", plan.frequency_hz, options.amplitude_um);
        case ModulationShape::Chirp:
            return fmt::format("chirp {} to {} Hz of {} um", plan.frequency_hz, plan.to_hz, options.amplitude_um);
        case ModulationShape::Noise:
            return fmt::format("noise of seed {} and {} um rms", plan.seed, options.amplitude_um);
        case ModulationShape::Step:
            break;
    }
    return fmt::format("step of {} um", options.amplitude_um);
}

std::string Describe(const ModulationOptions& options, const ModulationPlan& plan)
{
    return fmt::format(
        "{} of {}, {} on mode{} {}{}, {} s at {} Hz", Count(plan.samples, "sample"), Count(options.modes, "mode"),
        DescribeShape(options, plan), plan.on.size() == 1 ? "" : "s", FormatModeList(plan.on),
        plan.first_sample == 0 ? "" : fmt::format(" from {} s", options.start_s), options.duration_s, options.rate_hz);
}

}  // namespace

void MakeModulationFile(const ModulationOptions& options, std::ostream& out)
{
    const ModulationPlan plan = PlanModulation(options);
    CheckOutputFile(options.output, options.overwrite);
    const std::uint64_t values_bytes =
        static_cast<std::uint64_t>(plan.samples) * static_cast<std::uint64_t>(options.modes) * sizeof(float);
    CheckMemory(COPIES * values_bytes,
                fmt::format("{} of {}", Count(plan.samples, "sample"), Count(options.modes, "mode")),
                "make a shorter one, or one for fewer modes");
    const fs::path file = fs::absolute(options.output);
    LongWork work(StatusLine::StyleFor(options.quiet, STDOUT_FILENO), out, "computing the samples");
    ravelcore::Modulation modulation("MODULATION", options.modes, 0.0F);
    modulation.Set(MakeModulation(options));
    work.Tell(fmt::format("writing {} ({})", options.output.string(), FormatBytes(values_bytes)));
    try {
        WriteWhole(file, [&modulation](const fs::path& part) { modulation.Save(part.string()); });
    } catch (const std::exception& e) {
        throw RunError(CannotWrite(options.output, e.what()));
    }
    work.Finish();
    if (options.quiet) {
        return;
    }
    out << fmt::format("{}: {} ({})\n", options.output.string(), Describe(options, plan),
                       FormatBytes(fs::file_size(file)))
        << std::flush;
}

}  // namespace lumo::ravelctl
