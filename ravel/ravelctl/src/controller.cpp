#include "controller.hpp"

#include "error.hpp"
#include "gains.hpp"
#include "htmlReport.hpp"
#include "inputPlace.hpp"
#include "matrixStore.hpp"
#include "outputFile.hpp"
#include "parameterFile.hpp"
#include "passingFolder.hpp"
#include "resources.hpp"
#include "runConfig.hpp"
#include "runFiles.hpp"
#include "statusLine.hpp"
#include "version.hpp"
#include "wholeFile.hpp"

#include <lumo/mirrorsim/geometry.hpp>
#include <lumo/mirrorsim/mirror.hpp>
#include <lumo/ravelcore/names.hpp>

#include <fmt/chrono.h>
#include <fmt/core.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <limits>
#include <utility>

namespace lumo::ravelctl {

namespace {

/// A cycle that is not paced waits for the script as long as a step takes, and the workers with it; it is no reason to
/// end them. One that ends by itself or hangs is found without.
WorkerGroup::Timeouts TimeoutsFor(const LoopPlan& plan)
{
    constexpr std::chrono::hours LONGER_THAN_ANY_STEP{1000};
    return {plan.paced ? Controller::HANDSHAKE_TIMEOUT : LONGER_THAN_ANY_STEP, Controller::HANDSHAKE_TIMEOUT};
}

std::string DescribeMargins(const MarginRange& range)
{
    const Margins& lowest = range.lowest;
    if (fmt::format("{:.1f}", lowest.crossover_hz) == fmt::format("{:.1f}", range.highest_crossover_hz)) {
        return fmt::format("open-loop crossover {:.1f} Hz, phase margin {:.0f} deg, gain margin {:.1f} dB",
                           lowest.crossover_hz, lowest.phase_margin_deg, lowest.gain_margin_db);
    }
    return fmt::format(
        "open-loop crossover {:.1f} to {:.1f} Hz, lowest phase margin {:.0f} deg, lowest gain margin "
        "{:.1f} dB",
        lowest.crossover_hz, range.highest_crossover_hz, lowest.phase_margin_deg, lowest.gain_margin_db);
}

std::tm UtcNow()
{
    return fmt::gmtime(std::time(nullptr));
}

}  // namespace

/// As long as it lives what takes long is said to be going on.
class Controller::Working
{
public:
    Working(Controller& controller, const std::string& what) : m_long_work(controller.m_long_work)
    {
        const StatusLine::Style style = StatusLine::StyleFor(controller.m_options.quiet, STDOUT_FILENO);
        m_long_work = std::make_unique<LongWork>(style, controller.m_out, what);
    }

    ~Working() { m_long_work.reset(); }

    Working(const Working&) = delete;
    Working& operator=(const Working&) = delete;

private:
    std::unique_ptr<LongWork>& m_long_work;
};

Controller::Controller(RunOptions options, std::ostream& out) : m_options(std::move(options)), m_out(out)
{
}

Controller::~Controller()
{
    Stop();
}

void Controller::Say(const std::string& line)
{
    if (m_options.quiet) {
        return;
    }
    if (m_long_work) {
        m_long_work->Note(line);
    } else {
        m_out << line << '\n' << std::flush;
    }
}

void Controller::Configure()
{
    const Working working(*this, "checking what the run needs");
    PlanTheRun();
    PlaceThreads();
    if (m_options.matrices.empty()) {
        m_options.matrices = DefaultMatrixFolder();
    }
    CheckLogLevels();
    CheckResources();
    m_report.version = VERSION;
    m_report.blas = DescribeBlas();
    Say(fmt::format("ravelctl {}: {} modes on {} worker{} at {} Hz, seed {}, {}", VERSION, m_options.modes,
                    m_options.workers, m_options.workers == 1 ? "" : "s", m_options.rate_hz, m_options.seed,
                    m_report.blas));
    Say(DescribeRecording());

    m_long_work->Tell("getting the matrices");
    const mirrorsim::Geometry geometry;
    m_modes = LoadOrComputeModes(geometry, m_options.matrices, m_options.modes,
                                 [this](const std::string& line) { Say(line); });
    mirrorsim::MirrorConfig config;
    config.seed = m_options.seed;
    config.period_s = 1.0 / m_options.rate_hz;
    config.tones = m_options.tones;
    m_front_end = std::make_unique<SimulatedFrontEnd>(
        mirrorsim::Mirror(geometry, config, m_modes.modes2pact, m_modes.num_modes), m_player.get());
    m_long_work->Tell("taking the memory");
    MakeGains();
    MakeTasks();
    MakeLoop();
    m_report.options = m_options;
    m_report.plan = m_plan;
}

/// Checks what the options say; a run is as long as what it plays back where nothing else is said.
void Controller::PlanTheRun()
{
    const auto say = [this](const std::string& line) {
        Say(line);
    };
    if (!m_options.play.es.empty() || !m_options.play.pact.empty()) {
        m_player = std::make_unique<FramePlayer>(m_options.play, say);
        const auto frames = static_cast<double>(m_player->GetNumFrames().value_or(0));
        m_options.duration_s = m_options.duration_s.value_or(frames / m_options.rate_hz);
        Say(fmt::format("playing {} frames", frames));
    }
    m_plan = PlanRun(m_options);
    if (m_player) {
        for (const std::string& line : m_player->DescribeOtherPace(m_plan.TimeOf(1))) {
            Say(line);
        }
    }
    m_options.duration_s = m_plan.TimeOf(m_plan.cycles);
    if (m_player && *m_player->GetNumFrames() < m_plan.cycles) {
        throw InputError(fmt::format("{}: expected at most the {} recorded frames but it takes {}; run for {} s",
                                     m_options.places.Name("--duration"), *m_player->GetNumFrames(), m_plan.cycles,
                                     m_plan.TimeOf(*m_player->GetNumFrames())));
    }
    m_recording_plan = PlanRecording(m_options, m_plan);
    if (m_options.inject.file.empty() && (m_options.inject.loop || m_options.inject.decimation != 1)) {
        const std::string name = m_options.places.Name(m_options.inject.loop ? "--inject-loop" : "--inject-decimation");
        throw InputError(fmt::format("{}: expected --inject besides, a file of samples", name));
    }
    if (!m_options.inject.file.empty()) {
        m_injection = std::make_unique<ReferenceInjection>(m_options.inject, m_options.modes, say);
        Say(m_injection->Describe(m_plan));
    }
    if (!m_options.gains.empty()) {
        m_pid_params = LoadGainsFile(m_options.gains, m_options.modes);
        Say(fmt::format("gains from {}", m_options.gains.string()));
    }
    if (!m_options.script.empty()) {
        m_script = LoadScript(m_options.script, m_options.modes, m_plan.TimeOf(m_plan.cycles - 1));
    }
}

std::string Controller::DescribeRecording() const
{
    const int decimation = m_recording_plan.decimation;
    return fmt::format("recording {}: {}{} {}{}, {} of memory", fmt::join(NameRecorded(m_options.record), ", "),
                       m_recording_plan.loopback ? "the last " : "", m_recording_plan.capacity,
                       m_recording_plan.capacity == 1 ? "sample" : "samples",
                       decimation > 1 ? fmt::format(", one in {} cycles", decimation) : "",
                       FormatBytes(m_recording_plan.BytesToRecord(m_options.modes, m_options.workers)));
}

/// With DEBUG on, the control task reports fixed places of its vectors; in a shorter vector they end the process.
void Controller::CheckLogLevels() const
{
    constexpr int FEWEST_MODES = 17;
    int index = 0;
    for (const ModeSlice& slice : SliceModes(m_options.modes, m_options.workers)) {
        const std::string name = fmt::format("{}.TaskEdc.{}", ravelcore::LOGGER_RAVELCORE, index++);
        if (slice.count < FEWEST_MODES &&
            log4cplus::Logger::getInstance(name).isEnabledFor(log4cplus::DEBUG_LOG_LEVEL)) {
            throw InputError(
                fmt::format("--log-config: DEBUG on {} needs at least {} modes a worker but it has {}; use "
                            "more modes or fewer workers, or INFO",
                            name, FEWEST_MODES, slice.count));
        }
    }
}

void Controller::CheckResources()
{
    const auto modes = static_cast<std::uint64_t>(m_options.modes);
    const std::uint64_t recorded = m_recording_plan.BytesToRecord(m_options.modes, m_options.workers);
    const std::uint64_t saving = m_recording_plan.BytesToSave(m_options.modes, m_options.workers);
    constexpr std::uint64_t FLOATS_PER_MODE = mirrorsim::NUM_ES + 2 * mirrorsim::NUM_PACT;
    const std::uint64_t matrices = 4 * modes * FLOATS_PER_MODE * sizeof(float);
    const LiveParameters::Matrices live = ScriptPlayer::FindMatrices(m_script);
    constexpr std::uint64_t COPIES = 4;  // in force, spare, and two to hand over
    const std::uint64_t exchanged =
        COPIES * modes * sizeof(float) *
        ((live.p2edc ? mirrorsim::NUM_ES : 0U) + (live.pact2modes ? mirrorsim::NUM_PACT : 0U) +
         (live.modes2pact ? mirrorsim::NUM_PACT : 0U));
    constexpr std::uint64_t BYTES_PER_CYCLE = 40;  // durations, residuals, missed instants
    const std::uint64_t logs = BYTES_PER_CYCLE * static_cast<std::uint64_t>(m_plan.cycles) + SurfaceLog::MAX_BYTES;
    CheckMemory(recorded + saving + matrices + exchanged + logs,
                fmt::format("matrices ({}), recordings ({}) and saving them ({})", FormatBytes(matrices + exchanged),
                            FormatBytes(recorded), FormatBytes(saving)),
                "run for a shorter time or with fewer modes, or record less with --record, --record-decimation or "
                "--record-last");
    if (m_options.output.empty()) {
        m_options.output = MakeNewFolder(fmt::format("ravelctl-{:%Y%m%dT%H%M%SZ}", UtcNow()));
    }
    CheckRunFolder(m_options, m_script);
    constexpr std::uint64_t HEADERS = 2'000'000;  // of the files, the summary and the page
    const std::uint64_t gains = (1 + m_script.size()) * modes * ravelcore::NUM_PID_FILTER_PARAMS * sizeof(float);
    PrepareOutputFolder(m_options.output, recorded + gains + HEADERS, "the recordings",
                        "run for a shorter time or with fewer modes");
}

void Controller::MakeGains()
{
    const mirrorsim::Mirror& mirror = m_front_end->GetMirror();
    const Plant plant{mirror.GetLagCoefficient(), mirrorsim::Mirror::COMMAND_DELAY_CYCLES, mirror.GetConfig().period_s};
    m_plant = plant;
    m_report.plant = plant;
    if (m_pid_params.empty()) {
        m_pid_params = DesignGains(DesignFor(m_options.rate_hz), plant, m_modes, mirror.GetConfig().stroke_limit_um);
    }
    std::vector<ravelcore::PidFilterContext> channels;
    ravelcore::PidFilterCopy(static_cast<float>(plant.period_s), 0.0F, m_pid_params, channels);
    if (!m_options.gains.empty() && !m_player) {  // frames that are played do not run away
        try {
            CheckStable(channels, plant);
        } catch (const InputError& e) {
            throw InputError(fmt::format("{}: {}", m_options.gains.string(), e.what()));
        }
    }
    const MarginRange range = ComputeMarginRange(channels, plant);
    m_report.margins = range.lowest;
    m_report.highest_crossover_hz = range.highest_crossover_hz;
    Say(DescribeMargins(range));
}

void Controller::MakeTasks()
{
    const int capacity = m_recording_plan.modes ? m_recording_plan.capacity : 1;
    m_slices = std::make_unique<SliceSet>(m_modes, m_options.workers, m_pid_params, 1.0 / m_options.rate_hz,
                                          m_front_end->GetEsMeas().block1.data(), capacity);
    if (m_process->UsesHugePages()) {
        m_slices->UseHugePages();
    }
    m_workers = std::make_unique<WorkerGroup>(m_slices->GetTasks(), m_process->GetPlan().workers, TimeoutsFor(m_plan),
                                              log4cplus::Logger::getInstance(ravelcore::LOGGER_APP));
    for (ravelcore::Task* task : m_slices->GetTasks()) {
        task->Configure(m_options.cfg);
    }
    m_recordings = std::make_unique<Recordings>(m_recording_plan, *m_slices);
    if (!m_script.empty()) {
        m_parameters = std::make_unique<LiveParameters>(*m_slices, m_options.modes, m_pid_params,
                                                        ScriptPlayer::FindMatrices(m_script));
        m_requests = std::make_unique<CycleRequests>(*m_parameters, *m_recordings, m_plan.paced);
    }
}

void Controller::MakeLoop()
{
    const LoopExtras extras{m_recordings.get(), m_injection.get(), m_parameters.get(), m_requests.get()};
    m_loop = std::make_unique<ControlLoop>(m_plan, m_modes, *m_front_end, *m_slices, *m_workers, extras);
    m_cycle_thread = std::make_unique<CycleThread>(
        m_process->GetPlan().cycle, [this](const std::function<bool()>& is_stopped) { m_loop->Run(is_stopped); });
    if (m_requests) {
        m_script_player = std::make_unique<ScriptPlayer>(m_script, m_plan, m_options.modes, m_options.output,
                                                         ScriptPlayer::Loop{*m_parameters, *m_requests, *m_recordings});
    }
}

/// Without pacing no time is kept, so nothing is pinned unless that is asked for: runs side by side share the machine.
void Controller::PlaceThreads()
{
    PlacementOptions options = m_options.placement;
    if (!m_plan.paced) {
        for (PlaceChoice* choice : {&options.cpus, &options.cycle_cpu}) {
            choice->kind = choice->IsGiven() ? choice->kind : PlaceChoice::Kind::None;
        }
    }
    m_process = std::make_unique<RealTimeProcess>(options, NeedsOf(m_options), FindCpuTopology(), ReadMachineFiles("/"),
                                                  ThisSystem());
}

void Controller::Start()
{
    m_process->Enter();
    m_workers->Start();
    m_process->SetWorkers(m_slices->GetPlaces(), m_slices->GetHugePages());
    m_process->Say([this](const std::string& line) { Say(line); });
    m_recordings->Start();
    m_report.started_utc = fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", UtcNow());
    m_old_files = ListFilesOfOldRun(m_options.output);  // before the script can save
    m_cycle_thread->StartThread();
    if (m_script_player) {
        m_script_player->StartThread();
    }
}

void Controller::Wait(const std::function<bool()>& is_interrupted)
{
    const StatusLine::Style style = StatusLine::StyleFor(m_options.quiet, STDOUT_FILENO);
    StatusLine status(style, m_plan, m_out, STDOUT_FILENO);
    while (m_loop->GetProgress().cycles_done.load() < m_plan.cycles &&
           m_cycle_thread->GetThreadException() == nullptr) {
        if (is_interrupted()) {
            m_report.interrupted = true;
            break;
        }
        SaySteps(status);
        status.Update(m_loop->GetProgress());
    }
    status.Finish(m_loop->GetProgress());
    JoinScript();
    SaySteps(status);
}

/// Ends the script's thread, after the save that it may be busy with. The cycle must have ended, or be about to.
void Controller::JoinScript()
{
    m_cycle_thread->stop(nullptr);
    m_cycle_thread->JoinThread();
    if (m_script_player) {
        m_script_player->stop(nullptr);
        m_script_player->JoinThread();
    }
}

/// What the script has done since the last time.
void Controller::SaySteps(StatusLine& status)
{
    if (!m_script_player) {
        return;
    }
    for (const ScriptEvent& event : m_script_player->TakeNews()) {
        if (!m_options.quiet) {
            status.Note(FormatStep(event));
        }
    }
}

void Controller::Stop()
{
    if (!m_cycle_thread) {
        return;
    }
    JoinScript();
    if (const std::exception_ptr exception = m_cycle_thread->GetThreadException()) {
        try {
            std::rethrow_exception(exception);
        } catch (const std::exception& e) {
            m_report.problems.emplace_back(e.what());
        }
    }
    m_slices->PrepareStop();
    m_workers->Stop(true);
    ReportPlacement();
    m_cycle_thread.reset();
    ComputeFigures();
    ReportScript();
}

/// Of the threads, which have been joined.
void Controller::ReportPlacement()
{
    m_process->SetCycle(m_cycle_thread->GetPlace());
    m_process->Leave();
    m_report.placement = m_process->GetReport();
    m_report.placement.cycle_page_faults = m_cycle_thread->GetPageFaults();
    m_report.placement.worker_page_faults = m_slices->GetPageFaults();
}

void Controller::ReportScript()
{
    if (!m_script_player) {
        return;
    }
    m_report.script = m_script_player->GetEvents();
    for (const ScriptEvent& event : m_report.script) {
        m_report.files.insert(m_report.files.end(), event.files.begin(), event.files.end());
        if (!event.problem.empty()) {
            m_report.problems.push_back(fmt::format("script, at {} s: {}", event.time_s, event.problem));
        }
    }
    if (!m_report.interrupted && m_report.script.size() < m_script.size()) {
        m_report.problems.push_back(fmt::format("script: {} of {} steps were not done before the run ended",
                                                m_script.size() - m_report.script.size(), m_script.size()));
    }
}

void Controller::ComputeFigures()
{
    constexpr double NM_PER_UM = 1.0e3;
    m_report.cycles_done = m_loop->GetProgress().cycles_done.load();
    m_report.missed_cycles = m_loop->GetProgress().missed.load();
    m_report.missed_before = m_loop->GetMissedBefore();
    m_report.limited_commands = m_loop->GetLimiter().GetNumLimited();
    m_report.commands_not_finite = m_loop->GetLimiter().GetNumNotFinite();
    m_report.cycle_time_us = m_loop->GetCycleTimes().ComputePercentiles();
    m_report.execution_time_us = m_loop->GetExecTimes().ComputePercentiles();
    const SurfaceLog& surface = m_loop->GetSurfaceLog();
    if (const auto open = surface.ComputeRms(0, m_plan.open_cycles, m_modes)) {
        m_report.surface_rms_nm.before = open->total * NM_PER_UM;
        m_report.controlled_rms_nm.before = open->controlled * NM_PER_UM;
    }
    if (const auto judged = surface.ComputeRms(m_plan.FirstJudgedCycle(), m_plan.cycles, m_modes)) {
        m_report.surface_rms_nm.after = judged->total * NM_PER_UM;
        m_report.controlled_rms_nm.after = judged->controlled * NM_PER_UM;
    }
    if (m_plan.open_cycles == 0) {
        if (const auto first = surface.ComputeRms(0, 1, m_modes)) {
            m_report.first_closed_rms_nm = first->controlled * NM_PER_UM;
        }
    }
    if (const auto open = m_loop->GetOpenEsRms()) {
        m_report.edge_sensor_rms_nm.before = *open * NM_PER_UM;
    }
    if (const auto judged = m_loop->GetJudgedEsRms()) {
        m_report.edge_sensor_rms_nm.after = *judged * NM_PER_UM;
    }
    m_report.mirror_was_seen = m_front_end->IsMirrorSeen();
    if (!m_report.interrupted && !m_report.DidHold() && m_report.problems.empty()) {
        m_report.problems.emplace_back(DescribeFailure(m_report));
    }
}

void Controller::Save()
{
    const Working working(*this, "saving the recordings");
    RemoveSummary(m_options.output);  // of an old run, whose files are replaced from here on
    m_recordings->Save(
        m_options.output,
        [this](const std::string& name) {
            m_report.files.push_back(name);
            m_long_work->Tell(fmt::format("saving the recordings, {} is written", name));
        },
        [this](const std::string& problem) { m_report.problems.push_back(problem); });
    SaveGains();
    SaveConfig();
    m_long_work->Tell("writing the report");
    SavePage();
    const std::string summary = "summary.json";
    m_report.files.push_back(summary);  // it lists itself
    try {
        WriteSummary(m_report, m_options.output / summary);
        RemoveStaleFiles(m_options.output, m_old_files, m_report.files);
    } catch (const std::exception& e) {
        m_report.files.pop_back();
        m_report.problems.emplace_back(e.what());
    }
}

/// The gains that were used, in files that a script can load.
void Controller::SaveGains()
{
    SaveGains(0, "gains.fits", m_pid_params);
    for (const ScriptEvent& event : m_report.script) {
        if (!event.gains.empty()) {
            SaveGains(event.cycle, fmt::format("gains-{}.fits", event.cycle), event.gains);
        }
    }
}

void Controller::SaveGains(std::int64_t before_cycle, const std::string& name, const std::vector<float>& params)
{
    m_report.gains.push_back({before_cycle, name});  // also where it cannot be written: they were in force
    const std::filesystem::path file = m_options.output / name;
    try {
        SaveGainsFile(file, params);
        m_report.files.push_back(name);
    } catch (const std::exception& e) {
        m_report.problems.emplace_back(e.what());
    }
}

/// What repeats this run into another folder: every option that was given, and in comments what was meant by the
/// others, so that one of them can be overridden and those that follow from it follow. What lies in the output folder
/// it names as seen from there, so that the folder can be moved.
void Controller::SaveConfig()
{
    RunOptions options = m_options;
    options.output.clear();
    options.overwrite = false;
    if (!options.gains.empty()) {
        options.gains = m_options.output / "gains.fits";  // the run's own: others may change
    }
    const std::filesystem::path folder = std::filesystem::absolute(m_options.output).lexically_normal();
    for (std::filesystem::path* const path : ListInputs(options)) {
        if (!path->empty()) {
            *path = LocateInput(*path).lexically_normal();
            const std::filesystem::path below = path->lexically_relative(folder);
            *path = below.empty() || *below.begin() == ".." ? *path : below;
        }
    }
    const std::string name = "config.toml";
    try {
        WriteWholeText(m_options.output / name, FormatConfig(options));
        m_report.files.push_back(name);
    } catch (const std::exception& e) {
        m_report.problems.push_back(CannotWrite(m_options.output / name, e.what()));
    }
}

/// The run for people, in a browser.
void Controller::SavePage()
{
    if (ReportTemplate().empty()) {
        Say(NO_PAGE);
        return;
    }
    const std::string page = "report.html";
    m_report.files.push_back(page);  // it lists itself
    try {
        WriteHtmlReport(
            CollectReport({m_report, *m_loop, *m_slices, *m_recordings, m_recording_plan, m_pid_params, m_plant,
                           m_injection ? std::int64_t{m_injection->GetNumSamples()} * m_options.inject.decimation : 0}),
            m_options.output / page);
    } catch (const std::exception& e) {
        m_report.files.pop_back();
        m_report.problems.emplace_back(e.what());
    }
}

int Controller::GetExitStatus() const
{
    if (m_report.interrupted) {
        return EXIT_INTERRUPTED;  // whatever else there was: its problems are told
    }
    return m_report.problems.empty() && m_report.DidHold() ? EXIT_OK : EXIT_FAILED;
}

}  // namespace lumo::ravelctl
