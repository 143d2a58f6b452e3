#include "blas.hpp"

#include <lumo/ravelcore/exception.hpp>
#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/taskEdc.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace lumo::ravelcore {

namespace {

/// A matrix of the task with the token that names it in messages.
struct NamedMatrix
{
    const char* token;
    std::vector<float>& values;
};

/// The three matrix setters differ in the matrix only; `function` and `line` are those of the setter that the caller
/// sees.
void SetMatrix(const NamedMatrix& matrix, const std::vector<float>& given, const log4cplus::Logger& logger,
               const char* function, int line)
{
    const std::string token = matrix.token;
    if (matrix.values.empty()) {
        throw CreateExceptionObject(0, __FILE__, line, function, token + " matrix not allocated.");
    }
    if (given.size() != matrix.values.size()) {
        throw CreateExceptionObject(0, __FILE__, line, function,
                                    "Expected " + token + " of " + std::to_string(matrix.values.size()) +
                                        " but received one of " + std::to_string(given.size()) + " elements.");
    }
    if (&given != &matrix.values) {
        std::copy(given.begin(), given.end(), matrix.values.begin());
    }
    LOG4CPLUS_TRACE(logger, "Updated " << token << ' ' << given.size() << " values.");
}

/// Likewise for the element setters.
void SetValue(const NamedMatrix& matrix, int index, float value, const log4cplus::Logger& logger, const char* function,
              int line)
{
    const std::string token = matrix.token;
    if (matrix.values.empty()) {
        throw CreateExceptionObject(0, __FILE__, line, function, token + " matrix not allocated.");
    }
    if (index < 0 || static_cast<std::size_t>(index) >= matrix.values.size()) {
        throw CreateExceptionObject(0, __FILE__, line, function,
                                    token + " index " + std::to_string(index) + " out of range [0.." +
                                        std::to_string(matrix.values.size() - 1) + "].");
    }
    matrix.values[static_cast<std::size_t>(index)] = value;
    LOG4CPLUS_TRACE(logger, "Updated " << token << " value " << value << " in pos. " << index);
}

// The log's fixed probes. With DEBUG on they need more than 16 modes and more than 224 actuators, which is meant.
constexpr std::size_t PROBE_MODE = 16;
constexpr std::size_t PROBE_TRIPLE = 74;

/// Element access is checked everywhere but in std::vector<bool>; the owner may have put a shorter mask in place.
bool IsSet(const std::vector<bool>& mask, std::size_t mode)
{
    if (mode >= mask.size()) {
        std::fprintf(stderr, "Expected a mask that reaches to mode %zu but found one of %zu modes.\n", mode,
                     mask.size());
        std::abort();
    }
    return mask[mode];
}

}  // namespace

TaskEdc::TaskEdc(int id, int num_pact, int num_es, int num_modes, Recorder& rec_modes_in, Recorder& rec_modes_out,
                 int rec_num_samples)
    : Task("TaskEdc." + std::to_string(id)),
      m_id(id),
      m_num_pact(num_pact),
      m_num_es(num_es),
      m_num_modes(num_modes),
      m_pid_enabled(true),
      m_filter_enabled(true),
      m_feed_forward_enabled(false),
      m_es_meas(nullptr),
      m_rec_modes_in(rec_modes_in),
      m_rec_modes_out(rec_modes_out),
      m_rec_num_samples(rec_num_samples)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
}

TaskEdc::~TaskEdc()
{
    RAVELCORE_TRACE_ENTRY(m_logger);
}

void TaskEdc::Initialize()
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    blas::UseOneThread();
    for (const int num_cols : {m_num_es, m_num_pact}) {
        if (!blas::IsMatrixSize(m_num_modes, num_cols)) {
            RAVELCORE_THROW(blas::ImpossibleSizeText(m_num_modes, num_cols));
        }
    }
    const auto num_pact = static_cast<std::size_t>(m_num_pact);
    const auto num_modes = static_cast<std::size_t>(m_num_modes);
    const std::size_t p2edc_size = num_modes * static_cast<std::size_t>(m_num_es);
    const std::size_t pact_modes_size = num_modes * num_pact;
    m_pact_in.assign(num_pact, 0.0F);
    m_modes_rate_limited.assign(num_modes, 0.0F);
    m_modes_ref.assign(num_modes, 0.0F);
    m_modes_in.assign(num_modes, 0.0F);
    m_modes_out.assign(num_modes, 0.0F);
    m_modes_error.assign(num_modes, 0.0F);
    m_p2edc.assign(p2edc_size, 0.0F);
    m_pact2modes.assign(pact_modes_size, 0.0F);
    m_modes2pact.assign(pact_modes_size, 0.0F);
    m_pact_ref.assign(num_pact, 0.0F);
    m_pdc_mask.assign(num_modes, false);
    m_fdc_mask.assign(num_modes, false);
    m_pdc_values.assign(num_modes, 0.0F);
    m_fdc_values.assign(num_modes, 0.0F);
    m_pid_filters.assign(num_modes, PidFilterContext{});
    for (PidFilterContext& ctx : m_pid_filters) {
        PidFilterDefault(ctx);
    }
    m_rec_modes_in.Init(m_rec_num_samples, m_num_modes);
    m_rec_modes_out.Init(m_rec_num_samples, m_num_modes);
    m_blas_user.reset();
    m_blas_user = blas::WarmUp();
    LOG4CPLUS_DEBUG(m_logger, "Task initialized.");
}

void TaskEdc::Configure(const std::map<std::string, std::string>& /*cfg*/)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    LOG4CPLUS_DEBUG(m_logger, "Task configured.");
}

void TaskEdc::SetPact2ModesMatrix(const std::vector<float>& matrix)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    SetMatrix({"PACT2MODES", m_pact2modes}, matrix, m_logger, __func__, __LINE__);
}

void TaskEdc::SetPact2ModesValue(int index, float value)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    SetValue({"PACT2MODES", m_pact2modes}, index, value, m_logger, __func__, __LINE__);
}

void TaskEdc::SetP2EdcMatrix(const std::vector<float>& matrix)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    SetMatrix({"P2EDC", m_p2edc}, matrix, m_logger, __func__, __LINE__);
}

void TaskEdc::SetP2EdcValue(int index, float value)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    SetValue({"P2EDC", m_p2edc}, index, value, m_logger, __func__, __LINE__);
}

void TaskEdc::SetModes2PactMatrix(const std::vector<float>& matrix)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    SetMatrix({"MODES2PACT", m_modes2pact}, matrix, m_logger, __func__, __LINE__);
}

void TaskEdc::SetModes2PactValue(int index, float value)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    SetValue({"MODES2PACT", m_modes2pact}, index, value, m_logger, __func__, __LINE__);
}

void TaskEdc::SetPidFilters(const std::vector<float>& params)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    if (m_pid_filters.empty()) {
        RAVELCORE_THROW("PidFilters not allocated.");
    }
    const std::size_t num_modes = m_pid_filters.size();
    if (params.size() != NUM_PID_FILTER_PARAMS * num_modes) {
        // Meant: the message says 9 per mode, although 10 are taken.
        RAVELCORE_THROW("Expected " + std::to_string(9 * num_modes) + " but received " + std::to_string(params.size()) +
                        " elements.");
    }
    for (std::size_t mode = 0; mode < num_modes; ++mode) {
        PidFilterUnpack(params.data() + mode * NUM_PID_FILTER_PARAMS, m_pid_filters[mode]);
        PidFilterInit(m_pid_filters[mode]);
    }
    LOG4CPLUS_TRACE(m_logger, "Updated PID and Filters " << params.size() << " parameters.");
}

void TaskEdc::SetPidFiltersParam(int mode, int param, float value)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    // In the packed order; deliberately nothing is derived again.
    constexpr float PidFilterContext::*FIELDS[NUM_PID_FILTER_PARAMS] = {
        &PidFilterContext::kp,    &PidFilterContext::ki,  &PidFilterContext::kd, &PidFilterContext::karw,
        &PidFilterContext::bp,    &PidFilterContext::tt,  &PidFilterContext::n,  &PidFilterContext::ulow,
        &PidFilterContext::uhigh, &PidFilterContext::freq};
    if (m_pid_filters.empty()) {
        RAVELCORE_THROW("PidFilters not allocated.");
    }
    if (param < 1 || param > NUM_PID_FILTER_PARAMS) {
        RAVELCORE_THROW("PidFilters parameter number " + std::to_string(param) + " out of range [1.." +
                        std::to_string(NUM_PID_FILTER_PARAMS) + "].");
    }
    if (mode < 0 || mode >= m_num_modes) {
        RAVELCORE_THROW("PidFilters mode " + std::to_string(mode) + " out of range [0.." +
                        std::to_string(m_num_modes - 1) + "].");
    }
    m_pid_filters[static_cast<std::size_t>(mode)].*FIELDS[param - 1] = value;
}

// The cycle. From here on everything is real-time: no allocation, no lock, no file; text only with DEBUG on.

void TaskEdc::Execute(double time_stamp, bool is_first_execution)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    const auto start = std::chrono::steady_clock::now();
    if (m_es_meas == nullptr) {
        RAVELCORE_THROW("No ES Piston measurements available.");
    }
    blas::Multiply(m_p2edc.data(), m_num_modes, m_num_es, m_es_meas, m_modes_in.data());
    blas::Multiply(m_pact2modes.data(), m_num_modes, m_num_pact, m_pact_in.data(), m_modes_rate_limited.data());
    ReplaceModes();
    if (is_first_execution) {
        TakeReferences();
    }
    LogBeforeChannels(is_first_execution);
    RunChannels(is_first_execution);
    m_rec_modes_in.AddSample(time_stamp, m_modes_in.data());
    m_rec_modes_out.AddSample(time_stamp, m_modes_out.data());
    blas::Multiply(m_modes2pact.data(), m_num_pact, m_num_modes, m_modes_out.data(), m_pact_ref.data());
    LogAfterCycle(is_first_execution);
    UpdateExecTime(start);
}

void TaskEdc::CombinePactRef(std::vector<float>& pact)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    blas::Add(m_num_pact, m_pact_ref.data(), pact.data());
}

/// The measured modes become the references. One by one: element access is checked, and the references are the owner's.
void TaskEdc::TakeReferences()
{
    const auto num_modes = static_cast<std::size_t>(m_num_modes);
    for (std::size_t mode = 0; mode < num_modes; ++mode) {
        m_modes_ref[mode] = m_modes_in[mode];
    }
}

void TaskEdc::ReplaceModes()
{
    const auto num_modes = static_cast<std::size_t>(m_num_modes);
    for (std::size_t mode = 0; mode < num_modes; ++mode) {
        if (IsSet(m_pdc_mask, mode)) {
            if (mode == PROBE_MODE) {
                LOG4CPLUS_DEBUG(m_logger, "Replacing m_modes_in[" << mode << "] = " << m_modes_in[mode] << " with PDC "
                                                                  << m_pdc_values[mode]);
            }
            m_modes_in[mode] = m_pdc_values[mode];
        }
        if (IsSet(m_fdc_mask, mode)) {  // FDC wins when both are set
            if (mode == PROBE_MODE) {
                LOG4CPLUS_DEBUG(m_logger, "Replacing m_modes_in[" << mode << "] = " << m_modes_in[mode] << " with FDC "
                                                                  << m_fdc_values[mode]);
            }
            m_modes_in[mode] = m_fdc_values[mode];
        }
    }
}

void TaskEdc::RunChannels(bool is_first_execution)
{
    const auto num_modes = static_cast<std::size_t>(m_num_modes);
    for (std::size_t mode = 0; mode < num_modes; ++mode) {
        const float in = m_modes_in[mode];
        const float ref = m_modes_ref[mode];
        PidFilterContext& ctx = m_pid_filters[mode];
        float f = in == ref ? 0.0F : ref;  // NaN counts as different
        if (m_filter_enabled) {
            f = FilterCompute(ctx, in, ref, is_first_execution);
        }
        float out = in == ref ? in : in + f;
        if (m_pid_enabled) {
            out = PidCompute(ctx, in, f, m_modes_rate_limited[mode], is_first_execution);
        }
        if (m_feed_forward_enabled) {
            // Meant: with the filter off the raw reference is added, also where in == ref; PidFilterCompute adds f.
            out = out + (m_filter_enabled ? f : ref);
        }
        m_modes_out[mode] = out;
        m_modes_error[mode] = ref - in;
    }
}

void TaskEdc::LogBeforeChannels(bool is_first_execution) const
{
    LOG4CPLUS_DEBUG(
        m_logger, "m_modes_in[" << PROBE_MODE << "] = " << m_modes_in[PROBE_MODE] << ", m_modes_ref[" << PROBE_MODE
                                << "] = " << m_modes_ref[PROBE_MODE]
                                << ", m_feed_forward_enabled = " << m_feed_forward_enabled << ", m_modes_rate_limited["
                                << PROBE_MODE << "] = " << m_modes_rate_limited[PROBE_MODE] << ", m_pid_filters["
                                << PROBE_MODE << "].ui = " << m_pid_filters[PROBE_MODE].ui
                                << ", m_pid_enabled = " << m_pid_enabled << ", m_filter_enabled = " << m_filter_enabled
                                << ", is_first_execution = " << is_first_execution);
}

void TaskEdc::LogAfterCycle(bool is_first_execution) const
{
    LOG4CPLUS_DEBUG(
        m_logger, "m_modes_in[" << PROBE_MODE << "] = " << m_modes_in[PROBE_MODE] << " m_modes_ref[" << PROBE_MODE
                                << "] = " << m_modes_ref[PROBE_MODE] << " m_modes_out[" << PROBE_MODE
                                << "] = " << m_modes_out[PROBE_MODE] << " m_pid_filters[" << PROBE_MODE << "].ui = "
                                << m_pid_filters[PROBE_MODE].ui << " m_pact_ref[" << PROBE_TRIPLE << "] = ("
                                << m_pact_ref[3 * PROBE_TRIPLE] << ", " << m_pact_ref[3 * PROBE_TRIPLE + 1] << ", "
                                << m_pact_ref[3 * PROBE_TRIPLE + 2] << ") is_first_execution = " << is_first_execution);
}

}  // namespace lumo::ravelcore
