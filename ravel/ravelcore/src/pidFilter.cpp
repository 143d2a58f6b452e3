#include <lumo/ravelcore/pidFilter.hpp>

#include <array>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <utility>

// The order and the width of every floating-point operation below is behaviour: recordings are compared bit for bit
// with what these functions compute again. Parentheses that look needless are not.

#ifdef __FAST_MATH__
#error "-ffast-math changes what the channels compute"
#endif

namespace lumo::ravelcore {

static_assert(FLT_EVAL_METHOD == 0, "every operation rounds to its own type");

namespace {

/// Second-order low-pass from the analogue prototype s² + √3 s + 1 (a Bessel-type response) by the bilinear transform
/// with frequency pre-warping. Single precision but for the three sums, which are made in double.
void DeriveSetpointFilter(PidFilterContext& ctx)
{
    constexpr float PI = 3.1415927F;
    constexpr double SQRT_3 = 1.7320508075688772;
    const float x = (PI * ctx.freq) * ctx.sampling_period;
    const float c = 1.0F / std::tan(x);
    const float c_squared = c * c;
    const double c2 = c_squared;
    const double r = static_cast<double>(c) * SQRT_3;
    const auto den = static_cast<float>((c2 + r) + 1.0);
    ctx.gain = 1.0F / den;
    ctx.d1 = static_cast<float>((c2 - 1.0) * -2.0) / den;
    ctx.d2 = static_cast<float>((c2 - r) + 1.0) / den;
    ctx.n1 = 2.0F;
    ctx.n2 = 1.0F;
}

}  // namespace

void PidFilterReset(PidFilterContext& ctx) noexcept
{
    ctx.ui = 0.0F;
    ctx.ud = 0.0F;
    ctx.last_meas = 0.0F;
    ctx.internal1 = 0.0F;
    ctx.internal2 = 0.0F;
}

void PidFilterInit(PidFilterContext& ctx) noexcept
{
    PidFilterReset(ctx);
    ctx.a0 = 0.0F;
    ctx.bi = 0.0F;
    ctx.ci = 0.0F;
    if (ctx.tt != 0.0F) {  // NaN counts as non-zero, here and below
        ctx.a0 = ctx.sampling_period / ctx.tt;
    }
    if (ctx.ki != 0.0F) {
        ctx.bi = (ctx.sampling_period * ctx.kp) * ctx.ki;
    }
    if (ctx.karw != 0.0F) {
        ctx.ci = ctx.karw * ctx.sampling_period;
    }
    const float d = ctx.n * ctx.sampling_period + ctx.kd;
    // Meant: no guard against d = 0.
    ctx.ad = ctx.kd / d;
    ctx.bd = ((ctx.n * ctx.kp) * ctx.kd) / d;
    DeriveSetpointFilter(ctx);
}

void PidFilterDefault(PidFilterContext& ctx) noexcept
{
    ctx.feed_forward_offset = 0.0F;
    ctx.sampling_period = 0.002F;
    ctx.kp = 0.001F;
    ctx.ki = 200.0F;
    ctx.kd = 0.0F;
    ctx.karw = 0.0F;
    ctx.ulow = -200.0F;
    ctx.uhigh = 200.0F;
    ctx.n = 10.0F;
    ctx.tt = 0.1F;
    ctx.bp = 1.0F;
    ctx.freq = 30.0F;
    PidFilterInit(ctx);
}

void PidFilterUnpack(const float* params, PidFilterContext& ctx) noexcept
{
    ctx.kp = params[0];
    ctx.ki = params[1];
    ctx.kd = params[2];
    ctx.karw = params[3];
    ctx.bp = params[4];
    ctx.tt = params[5];
    ctx.n = params[6];
    ctx.ulow = params[7];
    ctx.uhigh = params[8];
    ctx.freq = params[9];
}

bool PidFilterCopy(float sampling_period, float feed_forward_offset, const std::vector<float>& params,
                   std::vector<PidFilterContext>& contexts)
{
    if (params.size() % NUM_PID_FILTER_PARAMS != 0 || sampling_period == 0.0F) {
        return false;
    }
    contexts.clear();
    contexts.resize(params.size() / NUM_PID_FILTER_PARAMS);
    for (std::size_t channel = 0; channel < contexts.size(); ++channel) {
        PidFilterContext& ctx = contexts[channel];
        ctx.feed_forward_offset = feed_forward_offset;
        ctx.sampling_period = sampling_period;
        PidFilterUnpack(params.data() + channel * NUM_PID_FILTER_PARAMS, ctx);
        PidFilterInit(ctx);
    }
    return true;
}

float FilterCompute(PidFilterContext& ctx, float init_value, float input, bool first) noexcept
{
    float w1 = ctx.internal1;
    float w2 = ctx.internal2;
    if (first) {
        const float start = ((1.0F - ctx.gain) * init_value) / ((((ctx.n1 + ctx.n2) - ctx.d1) - ctx.d2) * ctx.gain);
        w1 = start;
        w2 = start;
    }
    const float w = (input - ctx.d1 * w1) - ctx.d2 * w2;
    ctx.internal1 = w;
    ctx.internal2 = w1;
    return ((ctx.n1 * w1 + w) + ctx.n2 * w2) * ctx.gain;
}

float PidCompute(PidFilterContext& ctx, float meas, float setpoint, float arw_input, bool first) noexcept
{
    const float integral = first ? meas : ctx.ui;  // meant: the integral starts at the measurement itself
    const float proportional = (ctx.bp * setpoint - meas) * ctx.kp;
    // Meant: last_meas is 0 on the first step after a reset, so the first derivative kick is not suppressed.
    const float derivative = ctx.ad * ctx.ud - (meas - ctx.last_meas) * ctx.bd;
    ctx.ud = derivative;
    const float v = (proportional + integral) + derivative;
    float u = v;  // NaN passes through
    if (v > ctx.uhigh) {
        u = ctx.uhigh;
    } else if (ctx.ulow > v) {
        u = ctx.ulow;
    }
    ctx.last_meas = meas;
    // The integral acts on the unweighted error; the last two paths are the two anti-windup inputs.
    ctx.ui = (ctx.ci * arw_input + ((setpoint - meas) * ctx.bi + integral)) + (u - v) * ctx.a0;
    return u;
}

float PidFilterCompute(PidFilterContext& ctx, float meas, float setpoint, float arw_input, bool pid_enabled,
                       bool filter_enabled, bool add_setpoint, bool first) noexcept
{
    float f = meas == setpoint ? 0.0F : setpoint;  // NaN counts as unequal
    if (filter_enabled) {
        f = FilterCompute(ctx, meas, setpoint, first);
    }
    float out = 0.0F;
    if (pid_enabled) {
        out = PidCompute(ctx, meas, f, arw_input, first);
    } else {
        out = meas == setpoint ? meas : meas + f;  // meant: the raw set-point decides, also with the filter on
    }
    if (add_setpoint) {
        out = out + f;
    }
    return out;
}

std::string PidFilterPrint(const PidFilterContext& ctx)
{
    const std::array<std::pair<std::string_view, float>, 27> fields = {{
        {"feed_forward_offset", ctx.feed_forward_offset},
        {"sampling_period", ctx.sampling_period},
        {"kp", ctx.kp},
        {"ki", ctx.ki},
        {"kd", ctx.kd},
        {"karw", ctx.karw},
        {"bp", ctx.bp},
        {"tt", ctx.tt},
        {"n", ctx.n},
        {"ulow", ctx.ulow},
        {"uhigh", ctx.uhigh},
        {"freq", ctx.freq},
        {"a0", ctx.a0},
        {"bi", ctx.bi},
        {"ci", ctx.ci},
        {"ad", ctx.ad},
        {"bd", ctx.bd},
        {"ui", ctx.ui},
        {"ud", ctx.ud},
        {"last_meas", ctx.last_meas},
        {"gain", ctx.gain},
        {"n1", ctx.n1},
        {"d1", ctx.d1},
        {"n2", ctx.n2},
        {"d2", ctx.d2},
        {"internal1", ctx.internal1},
        {"internal2", ctx.internal2},
    }};
    constexpr std::size_t NAME_WIDTH = 20;
    std::string text;
    for (const auto& [name, value] : fields) {
        if (!text.empty()) {
            text += '\n';
        }
        text += name;
        text.append(NAME_WIDTH - name.size(), ' ');
        text += "= " + std::to_string(value);
    }
    return text;
}

}  // namespace lumo::ravelcore
