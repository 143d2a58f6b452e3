#pragma once

#include <lumo/ravelcore/export.hpp>
#include <lumo/ravelcore/pidFilter.hpp>
#include <lumo/ravelcore/recorder.hpp>
#include <lumo/ravelcore/task.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace lumo::ravelcore {

/// The closed-loop segment-control task: edge-sensor measurements to control modes, one set-point filter and PID
/// channel per mode, mode commands to actuator references, once per cycle.
///
/// P position actuators, E edge-sensor slots, M control modes, fixed at construction. Matrices are row-major without
/// padding. Lengths are in µm here; the task only needs them to agree.
///
/// Calling order: construct, Initialize, setters, Execute once per cycle. The setters write straight into what Execute
/// reads, without a lock or a second copy: the owner calls them, and writes the public members, between cycles.
class RAVELCORE_API TaskEdc : public Task
{
public:
    /// Stores the arguments; allocates nothing and does not touch the recorders, which the owner keeps alive.
    /// The task's name is "TaskEdc." + `id`. `rec_num_samples` is the capacity that Initialize gives both recorders.
    TaskEdc(int id, int num_pact, int num_es, int num_modes, Recorder& rec_modes_in, Recorder& rec_modes_out,
            int rec_num_samples);
    ~TaskEdc() override;

    /// Sizes and zeroes all storage, matrices included, gives every channel its defaults and initialises the recorders.
    /// Thread:    the worker's before its first cycle, or the owner's while no cycle runs.
    /// Real time: no.
    /// Failure:   brisk::Exception for impossible sizes, also from Recorder::Init.
    void Initialize() override;

    /// Reads no key: the sizes come from the constructor.
    void Configure(const std::map<std::string, std::string>& cfg) override;

    /// One control cycle.
    /// Thread:    the worker's.
    /// Real time: yes; three matrix-vector products, M channels, two copies into recorders.
    /// Data:      `time_stamp` in seconds goes to the recorders only. When `is_first_execution`, the measured modes
    ///            become the references and every channel starts bumplessly. One measurement that is NaN
    ///            makes every mode NaN that is not replaced; a channel that has measured NaN gives NaN, first cycles
    ///            included, until PidFilterReset or SetPidFilters.
    /// Failure:   brisk::Exception when m_es_meas is null; nothing has changed then. A mask or m_modes_ref shorter than
    ///            M ends the process, and so does a replacement value that is wanted and not there. So do M <= 16 or
    ///            P <= 224 with DEBUG on, which it is while log4cplus is not configured: mode 16 and actuator triple 74
    ///            are fixed probes of the log.
    void Execute(double time_stamp, bool is_first_execution) override;

    /// pact[i] += m_pact_ref[i] for all P actuators.
    /// Thread:    the owner's, between cycles.
    /// Real time: yes.
    /// Data:      `pact` holds at least P elements; its size is not tested.
    void CombinePactRef(std::vector<float>& pact);

    /// PACT2MODES, M x P: modes from actuator values. Replaces the matrix, or one element at a flat row-major index.
    /// Thread:    the owner's, between cycles.
    /// Real time: allocation-free.
    /// Data:      copied.
    /// Failure:   brisk::Exception before Initialize, for another number of elements, or for an index out of range; the
    ///            task is unchanged.
    void SetPact2ModesMatrix(const std::vector<float>& matrix);
    void SetPact2ModesValue(int index, float value);

    /// P2EDC, M x E: modes from edge-sensor measurements. Otherwise as PACT2MODES.
    void SetP2EdcMatrix(const std::vector<float>& matrix);
    void SetP2EdcValue(int index, float value);

    /// MODES2PACT, P x M: actuator references from mode commands. Otherwise as PACT2MODES.
    void SetModes2PactMatrix(const std::vector<float>& matrix);
    void SetModes2PactValue(int index, float value);

    /// Writes all channels' parameters and initialises the channels, which clears their state.
    /// Thread:    the owner's, between cycles.
    /// Real time: allocation-free.
    /// Data:      10 floats per mode, mode after mode: kp, ki, kd, karw, bp, tt, n, ulow, uhigh, freq.
    /// Failure:   brisk::Exception before Initialize or for another number of floats; the task is unchanged.
    void SetPidFilters(const std::vector<float>& params);

    /// Writes one parameter, numbered from 1 in the order of SetPidFilters, of one mode, numbered from 0. Nothing is
    /// derived again and the state is kept: kp, bp, ulow and uhigh act at the next cycle, the others when the channel
    /// is next initialised.
    /// Thread:    the owner's, between cycles.
    /// Real time: allocation-free.
    /// Failure:   brisk::Exception before Initialize, for a parameter out of 1..10 or a mode out of 0..M-1; the task is
    ///            unchanged.
    void SetPidFiltersParam(int mode, int param, float value);

    // What the owner reads and writes directly, between cycles. The sizes are those after Initialize; the cycle trusts
    // them.

    int m_id;
    int m_num_pact;                // P
    int m_num_es;                  // E
    int m_num_modes;               // M
    bool m_pid_enabled;            // run the PID controller
    bool m_filter_enabled;         // run the set-point filter
    bool m_feed_forward_enabled;   // add the (filtered) reference to the output
    const float* m_es_meas;        // E edge-sensor piston measurements of this cycle, not owned; set before Execute
    std::vector<float> m_pact_in;  // P: actuator values of this cycle, set before Execute
    std::vector<float> m_modes_rate_limited;      // M: PACT2MODES x m_pact_in
    std::vector<float> m_modes_ref;               // M: references (set-points)
    std::vector<float> m_modes_in;                // M: P2EDC x measurements, after PDC and FDC replacement
    std::vector<float> m_modes_out;               // M: mode commands
    std::vector<float> m_modes_error;             // M: m_modes_ref - m_modes_in of the last cycle
    std::vector<float> m_p2edc;                   // M x E
    std::vector<float> m_pact2modes;              // M x P
    std::vector<float> m_modes2pact;              // P x M
    std::vector<float> m_pact_ref;                // P: actuator references, the output of the cycle
    std::vector<bool> m_pdc_mask;                 // M: replace the measured mode by the PDC value
    std::vector<bool> m_fdc_mask;                 // M: replace the measured mode by the FDC value; wins over PDC
    std::vector<float> m_pdc_values;              // M
    std::vector<float> m_fdc_values;              // M
    std::vector<PidFilterContext> m_pid_filters;  // M channels
    Recorder& m_rec_modes_in;                     // records m_modes_in each cycle, not owned
    Recorder& m_rec_modes_out;                    // records m_modes_out each cycle, not owned
    int m_rec_num_samples;                        // capacity of both recorders, samples

private:
    void TakeReferences();
    void ReplaceModes();
    void RunChannels(bool is_first_execution);
    void LogBeforeChannels(bool is_first_execution) const;
    void LogAfterCycle(bool is_first_execution) const;

    std::shared_ptr<void> m_blas_user;  // since Initialize: keeps a work buffer of the BLAS ready for this task
};

}  // namespace lumo::ravelcore
