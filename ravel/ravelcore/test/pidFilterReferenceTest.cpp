#include "support/sameFloat.hpp"

#include <lumo/ravelcore/pidFilter.hpp>

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

// Compares every coefficient, output and state with data/pidFilterReference.txt, bit for bit. The values there were
// computed independently, by data/pidFilterReference.py, which describes the file.

namespace lumo::ravelcore {
namespace {

using test::IsSame;

struct Step
{
    bool first = false;
    std::array<float, 3> inputs = {};  // meas, setpoint, arw_input
    float filter_output = 0.0F;
    float output = 0.0F;
    std::array<float, 5> state = {};  // ui, ud, last_meas, internal1, internal2
};

struct Scenario
{
    std::string name;
    std::array<float, 12> parameters = {};
    std::array<float, 2> tangent = {};
    std::array<float, 10> derived = {};
    std::string flags;
    std::vector<Step> steps;
};

float ReadFloat(std::istream& words)
{
    std::string word;
    words >> word;
    if (word == "nan") {
        return std::numeric_limits<float>::quiet_NaN();
    }
    if (word.size() != 8) {
        throw std::runtime_error("Expected eight hexadecimal digits but found \"" + word + "\".");
    }
    return std::bit_cast<float>(static_cast<std::uint32_t>(std::stoul(word, nullptr, 16)));
}

template <std::size_t SIZE>
void ReadFloats(std::istream& words, std::array<float, SIZE>& values)
{
    for (float& value : values) {
        value = ReadFloat(words);
    }
}

Step ReadStep(std::istream& words)
{
    Step step;
    words >> step.first;
    ReadFloats(words, step.inputs);
    step.filter_output = ReadFloat(words);
    step.output = ReadFloat(words);
    ReadFloats(words, step.state);
    return step;
}

void ReadLine(const std::string& line, std::vector<Scenario>& scenarios)
{
    std::istringstream words(line);
    std::string kind;
    words >> kind;
    if (kind == "scenario") {
        scenarios.emplace_back();
        words >> scenarios.back().name;
    } else if (kind == "parameters") {
        ReadFloats(words, scenarios.back().parameters);
    } else if (kind == "tangent") {
        ReadFloats(words, scenarios.back().tangent);
    } else if (kind == "derived") {
        ReadFloats(words, scenarios.back().derived);
    } else if (kind == "flags") {
        words >> scenarios.back().flags;
    } else if (kind == "step") {
        scenarios.back().steps.push_back(ReadStep(words));
    } else if (kind != "#") {
        throw std::runtime_error("Expected a line of the reference but found \"" + line + "\".");
    }
}

std::vector<Scenario> ReadReference()
{
    std::ifstream file(RAVELCORE_PID_FILTER_REFERENCE);
    if (!file) {
        throw std::runtime_error("Cannot open " RAVELCORE_PID_FILTER_REFERENCE ".");
    }
    std::vector<Scenario> scenarios;
    for (std::string line; std::getline(file, line);) {
        ReadLine(line, scenarios);
    }
    return scenarios;
}

const std::vector<Scenario>& Reference()
{
    static const std::vector<Scenario> scenarios = ReadReference();
    return scenarios;
}

template <std::size_t SIZE>
void ExpectSame(const std::array<float, SIZE>& seen, const std::array<float, SIZE>& expected, const char* what)
{
    for (std::size_t index = 0; index < SIZE; ++index) {
        EXPECT_PRED2(IsSame, seen[index], expected[index]) << what << ", field " << index;
    }
}

PidFilterContext MakeChannel(const Scenario& scenario)
{
    const auto& [offset, period, kp, ki, kd, karw, bp, tt, n, ulow, uhigh, freq] = scenario.parameters;
    PidFilterContext ctx{};
    ctx.feed_forward_offset = offset;
    ctx.sampling_period = period;
    ctx.kp = kp;
    ctx.ki = ki;
    ctx.kd = kd;
    ctx.karw = karw;
    ctx.bp = bp;
    ctx.tt = tt;
    ctx.n = n;
    ctx.ulow = ulow;
    ctx.uhigh = uhigh;
    ctx.freq = freq;
    PidFilterInit(ctx);
    return ctx;
}

void ExpectParametersOf(const Scenario& scenario, const PidFilterContext& ctx)
{
    const std::array<float, 12> seen = {ctx.feed_forward_offset,
                                        ctx.sampling_period,
                                        ctx.kp,
                                        ctx.ki,
                                        ctx.kd,
                                        ctx.karw,
                                        ctx.bp,
                                        ctx.tt,
                                        ctx.n,
                                        ctx.ulow,
                                        ctx.uhigh,
                                        ctx.freq};
    ExpectSame(seen, scenario.parameters, "parameters");
}

void ExpectDerivedOf(const Scenario& scenario, const PidFilterContext& ctx)
{
    const std::array<float, 10> seen = {ctx.a0,   ctx.bi, ctx.ci, ctx.ad, ctx.bd,
                                        ctx.gain, ctx.n1, ctx.d1, ctx.n2, ctx.d2};
    ExpectSame(seen, scenario.derived, "derived");
}

void RunStep(const Scenario& scenario, const Step& step, PidFilterContext& ctx)
{
    const auto& [meas, setpoint, arw_input] = step.inputs;
    float output = 0.0F;
    if (scenario.flags == "-") {
        const float filtered = FilterCompute(ctx, meas, setpoint, step.first);
        EXPECT_PRED2(IsSame, filtered, step.filter_output) << "filter output";
        output = PidCompute(ctx, meas, filtered, arw_input, step.first);
    } else {
        output = PidFilterCompute(ctx, meas, setpoint, arw_input, scenario.flags.at(0) == '1',
                                  scenario.flags.at(1) == '1', scenario.flags.at(2) == '1', step.first);
    }
    EXPECT_PRED2(IsSame, output, step.output) << "output";
    ExpectSame({ctx.ui, ctx.ud, ctx.last_meas, ctx.internal1, ctx.internal2}, step.state, "state");
}

TEST(PidFilterReferenceTest, TangentOfThisCLibraryIsTheOneOfTheReference)
{
    // Should this fail on another system while nothing else is wrong, its C library rounds differently: make the
    // reference again there and look at what has changed.
    for (const Scenario& scenario : Reference()) {
        const auto& [argument, result] = scenario.tangent;
        EXPECT_PRED2(IsSame, std::tan(argument), result) << "tan(" << argument << ") of " << scenario.name;
    }
}

TEST(PidFilterReferenceTest, CoefficientsAreThoseOfTheReferenceBitForBit)
{
    for (const Scenario& scenario : Reference()) {
        SCOPED_TRACE(scenario.name);
        const PidFilterContext ctx = MakeChannel(scenario);
        ExpectDerivedOf(scenario, ctx);
        ExpectParametersOf(scenario, ctx);
    }
}

TEST(PidFilterReferenceTest, OutputsAndStatesAreThoseOfTheReferenceBitForBit)
{
    for (const Scenario& scenario : Reference()) {
        PidFilterContext sut = MakeChannel(scenario);
        for (std::size_t index = 0; index < scenario.steps.size(); ++index) {
            SCOPED_TRACE(scenario.name + ", step " + std::to_string(index));
            RunStep(scenario, scenario.steps[index], sut);
        }
        SCOPED_TRACE(scenario.name);
        ExpectParametersOf(scenario, sut);  // no step changes them
        ExpectDerivedOf(scenario, sut);
    }
}

TEST(PidFilterReferenceTest, ReferenceHoldsWhatItIsMeantToHold)
{
    std::size_t steps = 0;
    std::size_t at_limit = 0;
    std::size_t not_a_number = 0;
    std::size_t combined = 0;
    for (const Scenario& scenario : Reference()) {
        steps += scenario.steps.size();
        combined += scenario.flags == "-" ? 0U : 1U;
        for (const Step& step : scenario.steps) {
            const bool limited = step.output == scenario.parameters[9] || step.output == scenario.parameters[10];
            at_limit += limited ? 1U : 0U;
            not_a_number += std::isnan(step.output) ? 1U : 0U;
        }
    }
    EXPECT_EQ(combined, 8U) << "one scenario for each setting of the three flags";
    EXPECT_GT(steps, 3000U);
    EXPECT_GT(at_limit, 100U);
    EXPECT_GT(not_a_number, 20U);
}

}  // namespace
}  // namespace lumo::ravelcore
