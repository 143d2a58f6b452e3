#include "edcReference.hpp"

#include <cmath>

namespace lumo::ravelcore::test {

namespace {

constexpr float DEFAULT_PARAMS[] = {0.001F, 200.0F, 0.0F, 0.0F, 1.0F, 0.1F, 10.0F, -200.0F, 200.0F, 30.0F};

std::vector<float> Narrowed(const std::vector<double>& values)
{
    std::vector<float> narrowed;
    for (const double value : values) {
        narrowed.push_back(static_cast<float>(value));
    }
    return narrowed;
}

}  // namespace

ReferenceChannel::ReferenceChannel() : ReferenceChannel(DEFAULT_PARAMS)
{
}

ReferenceChannel::ReferenceChannel(const float* params)
    : kp(params[0]),
      ki(params[1]),
      kd(params[2]),
      karw(params[3]),
      bp(params[4]),
      tt(params[5]),
      n(params[6]),
      ulow(params[7]),
      uhigh(params[8]),
      freq(params[9])
{
    Derive();
}

void ReferenceChannel::Derive()
{
    a0 = tt != 0.0F ? h / tt : 0.0F;
    bi = ki != 0.0F ? (h * kp) * ki : 0.0F;
    ci = karw != 0.0F ? karw * h : 0.0F;
    const float denominator = (n * h) + kd;
    ad = kd / denominator;
    bd = ((n * kp) * kd) / denominator;

    const float c = 1.0F / tanf((3.1415927F * freq) * h);
    const float c_squared = c * c;
    const double c2 = c_squared;
    const double r = double{c} * 1.7320508075688772;
    const auto den = static_cast<float>((c2 + r) + 1.0);
    gain = 1.0F / den;
    d1 = static_cast<float>((c2 - 1.0) * -2.0) / den;
    d2 = static_cast<float>((c2 - r) + 1.0) / den;
}

float ReferenceChannel::Filter(float init_value, float input, bool first)
{
    if (first) {
        const float start = ((1.0F - gain) * init_value) / ((((2.0F + 1.0F) - d1) - d2) * gain);
        w1 = start;
        w2 = start;
    }
    const float w0 = (input - d1 * w1) - d2 * w2;
    const float output = ((2.0F * w1 + w0) + 1.0F * w2) * gain;
    w2 = w1;
    w1 = w0;
    return output;
}

float ReferenceChannel::Pid(float meas, float setpoint, float arw_input, bool first)
{
    const float integral = first ? meas : ui;
    const float p = (bp * setpoint - meas) * kp;
    ud = ad * ud - (meas - last_meas) * bd;
    const float v = (p + integral) + ud;
    const float u = v > uhigh ? uhigh : (ulow > v ? ulow : v);
    last_meas = meas;
    ui = (ci * arw_input + ((setpoint - meas) * bi + integral)) + (u - v) * a0;
    return u;
}

EdcReference::EdcReference(int num_pact, int num_es, int num_modes)
    : pact(static_cast<std::size_t>(num_pact)),
      es(static_cast<std::size_t>(num_es)),
      modes(static_cast<std::size_t>(num_modes)),
      p2edc(modes * es),
      pact2modes(modes * pact),
      modes2pact(pact * modes),
      pdc_mask(modes),
      fdc_mask(modes),
      pdc_values(modes),
      fdc_values(modes),
      modes_ref(modes),
      modes_out(modes),
      modes_error(modes),
      channels(modes)
{
}

void EdcReference::SetPidFilters(const std::vector<float>& params)
{
    for (std::size_t mode = 0; mode < modes; ++mode) {
        channels.at(mode) = ReferenceChannel(&params.at(10 * mode));
    }
}

void EdcReference::Run(const float* es_meas, const std::vector<float>& pact_in, bool first)
{
    modes_in = Narrowed(MultiplyInDouble(p2edc, modes, es, es_meas));
    rate_limited = Narrowed(MultiplyInDouble(pact2modes, modes, pact, pact_in.data()));
    for (std::size_t mode = 0; mode < modes; ++mode) {
        float& in = modes_in[mode];
        in = fdc_mask[mode] ? fdc_values[mode] : (pdc_mask[mode] ? pdc_values[mode] : in);
        float& ref = modes_ref[mode];
        ref = first ? in : ref;

        ReferenceChannel& channel = channels[mode];
        const bool equal = in == ref;
        float f = equal ? 0.0F : ref;
        if (filter_enabled) {
            f = channel.Filter(in, ref, first);
        }
        float out = equal ? in : in + f;
        if (pid_enabled) {
            out = channel.Pid(in, f, rate_limited[mode], first);
        }
        if (feed_forward_enabled && filter_enabled) {
            out = out + f;
        } else if (feed_forward_enabled) {
            out = out + ref;
        }
        modes_out[mode] = out;
        modes_error[mode] = ref - in;
    }
    pact_ref = Narrowed(MultiplyInDouble(modes2pact, pact, modes, modes_out.data()));
}

std::vector<double> MultiplyInDouble(const std::vector<float>& a, std::size_t rows, std::size_t cols, const float* x)
{
    std::vector<double> y(rows, 0.0);
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t col = 0; col < cols; ++col) {
            y[row] += double{a.at(row * cols + col)} * double{x[col]};
        }
    }
    return y;
}

}  // namespace lumo::ravelcore::test
