#pragma once

#include <cstddef>
#include <vector>

namespace lumo::ravelcore::test {

/// One control channel, written from the definition of filter and controller and not from the library's source.
/// Every operation is in single precision, in the defined order; the three filter sums are in double.
struct ReferenceChannel
{
    /// The default parameters: kp, ki, kd, karw, bp, tt, n, ulow, uhigh, freq.
    ReferenceChannel();
    explicit ReferenceChannel(const float* params);

    float Filter(float init_value, float input, bool first);
    float Pid(float meas, float setpoint, float arw_input, bool first);

    float kp, ki, kd, karw, bp, tt, n, ulow, uhigh, freq;
    float h = 0.002F;
    float a0 = 0.0F, bi = 0.0F, ci = 0.0F, ad = 0.0F, bd = 0.0F;
    float gain = 0.0F, d1 = 0.0F, d2 = 0.0F;
    float ui = 0.0F, ud = 0.0F, last_meas = 0.0F, w1 = 0.0F, w2 = 0.0F;

private:
    void Derive();
};

/// The whole cycle, likewise. The products are double loops in double precision, narrowed to float once: exact for
/// matrices and vectors of small integers, and otherwise closer to the true product than any product in float.
struct EdcReference
{
    EdcReference(int num_pact, int num_es, int num_modes);

    /// 10 floats a mode, as TaskEdc::SetPidFilters takes them.
    void SetPidFilters(const std::vector<float>& params);
    void Run(const float* es_meas, const std::vector<float>& pact_in, bool first);

    std::size_t pact, es, modes;
    bool pid_enabled = true;
    bool filter_enabled = true;
    bool feed_forward_enabled = false;
    std::vector<float> p2edc, pact2modes, modes2pact;
    std::vector<bool> pdc_mask, fdc_mask;
    std::vector<float> pdc_values, fdc_values;
    std::vector<float> modes_in, rate_limited, modes_ref, modes_out, modes_error, pact_ref;
    std::vector<ReferenceChannel> channels;
};

/// A x with A of y.size() x cols, row-major, in double.
std::vector<double> MultiplyInDouble(const std::vector<float>& a, std::size_t rows, std::size_t cols, const float* x);

}  // namespace lumo::ravelcore::test
