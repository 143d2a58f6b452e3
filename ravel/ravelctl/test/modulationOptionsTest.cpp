#include "error.hpp"
#include "modulationOptions.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace lumo::ravelctl {
namespace {

using test::ThrownLine;
using testing::ElementsAre;

constexpr double NAN_VALUE = std::numeric_limits<double>::quiet_NaN();

std::string Refusal(const ModulationOptions& options)
{
    return ThrownLine<InputError>([&] { PlanModulation(options); });
}

ModulationOptions With(ModulationShape shape)
{
    ModulationOptions options;
    options.shape = shape;
    return options;
}

TEST(ModulationOptionsTest, TheDefaultsAreTenSecondsOnTheFirstOfSixHundredModes)
{
    const ModulationPlan plan = PlanModulation(ModulationOptions{});
    EXPECT_EQ(plan.samples, 5000);
    EXPECT_EQ(plan.first_sample, 0);
    EXPECT_THAT(plan.on, ElementsAre(0));
    EXPECT_EQ(plan.frequency_hz, 1.0);
    EXPECT_EQ(plan.to_hz, 100.0);
    EXPECT_EQ(plan.seed, 1U);
}

TEST(ModulationOptionsTest, WhatIsGivenComesBeforeTheDefaults)
{
    ModulationOptions chirp = With(ModulationShape::Chirp);
    chirp.on = "7,5";
    chirp.rate_hz = 100.0;
    chirp.duration_s = 0.07;  // times 100 a little more than 7
    chirp.start_s = 0.029;    // 2.9 cycles
    EXPECT_EQ(PlanModulation(chirp).to_hz, 20.0) << "a fifth of the rate";
    chirp.frequency_hz = 50.0;
    chirp.to_hz = 0.0;
    const ModulationPlan plan = PlanModulation(chirp);
    EXPECT_EQ(plan.samples, 7);
    EXPECT_EQ(plan.first_sample, 3);
    EXPECT_THAT(plan.on, ElementsAre(5, 7));
    EXPECT_EQ(plan.frequency_hz, 50.0);
    EXPECT_EQ(plan.to_hz, 0.0);

    ModulationOptions noise = With(ModulationShape::Noise);
    noise.seed = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(PlanModulation(noise).seed, std::numeric_limits<std::uint64_t>::max());
}

TEST(ModulationOptionsTest, EveryShapeHasItsName)
{
    for (const ModulationShape shape :
         {ModulationShape::Sine, ModulationShape::Step, ModulationShape::Chirp, ModulationShape::Noise}) {
        EXPECT_EQ(ParseModulationShape(GetName(shape)), shape);
    }
    EXPECT_STREQ(GetName(ModulationShape::Sine), "sine");
    EXPECT_STREQ(GetName(ModulationShape::Step), "step");
    EXPECT_STREQ(GetName(ModulationShape::Chirp), "chirp");
    EXPECT_STREQ(GetName(ModulationShape::Noise), "noise");
    EXPECT_EQ(ThrownLine<InputError>([] { ParseModulationShape("Sine"); }),
              "SHAPE: expected sine, step, chirp or noise but got Sine");
}

TEST(ModulationOptionsTest, OptionsThatTheShapeDoesNotTakeAreRefused)
{
    for (const ModulationShape shape : {ModulationShape::Step, ModulationShape::Noise}) {
        ModulationOptions options = With(shape);
        options.frequency_hz = 1.0;
        EXPECT_EQ(Refusal(options),
                  std::string("--frequency: expected with sine and chirp only but the shape is ") + GetName(shape));
    }
    for (const ModulationShape shape : {ModulationShape::Sine, ModulationShape::Step, ModulationShape::Noise}) {
        ModulationOptions options = With(shape);
        options.to_hz = 1.0;
        EXPECT_EQ(Refusal(options), std::string("--to: expected with chirp only but the shape is ") + GetName(shape));
    }
    for (const ModulationShape shape : {ModulationShape::Sine, ModulationShape::Step, ModulationShape::Chirp}) {
        ModulationOptions options = With(shape);
        options.seed = 1;
        EXPECT_EQ(Refusal(options), std::string("--seed: expected with noise only but the shape is ") + GetName(shape));
    }
}

TEST(ModulationOptionsTest, FrequenciesAboveHalfTheRateAreRefused)
{
    for (const ModulationShape shape : {ModulationShape::Sine, ModulationShape::Chirp}) {
        ModulationOptions options = With(shape);
        options.frequency_hz = 250.5;
        EXPECT_EQ(Refusal(options), "--frequency: expected 0 to 250 Hz but got 250.5");
        options.frequency_hz = -1.0;
        EXPECT_EQ(Refusal(options), "--frequency: expected 0 to 250 Hz but got -1");
        options.frequency_hz = NAN_VALUE;
        EXPECT_EQ(Refusal(options), "--frequency: expected 0 to 250 Hz but got nan");
        options.frequency_hz = 250.0;
        EXPECT_NO_THROW(PlanModulation(options));
    }
    ModulationOptions options = With(ModulationShape::Chirp);
    options.to_hz = 250.5;
    EXPECT_EQ(Refusal(options), "--to: expected 0 to 250 Hz but got 250.5");
    options.to_hz = 250.0;
    EXPECT_NO_THROW(PlanModulation(options));
}

TEST(ModulationOptionsTest, TheDefaultFrequencyStandsInTheWayOfNoOtherShapeAtALowRate)
{
    ModulationOptions options = With(ModulationShape::Sine);
    options.rate_hz = 1.0;
    EXPECT_EQ(Refusal(options), "--frequency: expected 0 to 0.5 Hz but got 1");
    options.shape = ModulationShape::Step;
    EXPECT_NO_THROW(PlanModulation(options));
}

TEST(ModulationOptionsTest, NumbersOutOfRangeAreRefusedWithTheRangeAndTheValue)
{
    ModulationOptions options;
    options.modes = 2391;
    EXPECT_EQ(Refusal(options), "--modes: expected 1 to 2390 but got 2391");
    options.modes = 0;
    EXPECT_EQ(Refusal(options), "--modes: expected 1 to 2390 but got 0");
    options = {};
    options.rate_hz = 0.5;
    EXPECT_EQ(Refusal(options), "--rate: expected 1 to 5000 Hz but got 0.5");
    options = {};
    options.amplitude_um = -1001.0;
    EXPECT_EQ(Refusal(options), "--amplitude: expected -1000 to 1000 um but got -1001");
    options.amplitude_um = -1000.0;
    EXPECT_NO_THROW(PlanModulation(options));
    options.shape = ModulationShape::Noise;
    EXPECT_EQ(Refusal(options), "--amplitude: expected 0 to 1000 um but got -1000");
    options = {};
    options.duration_s = NAN_VALUE;
    EXPECT_EQ(Refusal(options), "--duration: expected 0 to 1000000 s but got nan");
    options = {};
    options.start_s = -0.5;
    EXPECT_EQ(Refusal(options), "--start: expected 0 to 10 s but got -0.5");
}

TEST(ModulationOptionsTest, AFileWithoutASampleIsRefused)
{
    ModulationOptions options;
    options.duration_s = 0.0009;
    EXPECT_EQ(Refusal(options), "--duration: expected 1 sample or more but 0.0009 s at 500 Hz are 0");
    options.duration_s = 0.002;
    EXPECT_EQ(PlanModulation(options).samples, 1);
}

TEST(ModulationOptionsTest, AStartThatLeavesNothingOfTheShapeIsRefused)
{
    ModulationOptions options = With(ModulationShape::Step);
    options.start_s = 10.0;
    EXPECT_EQ(Refusal(options), "--start: expected a sample or more after it but got 10 of 10 s");
    options.start_s = 9.998;
    EXPECT_EQ(PlanModulation(options).first_sample, 4999);
}

TEST(ModulationOptionsTest, MoreValuesThanPlaybackCanCountAreRefused)
{
    ModulationOptions options;
    options.modes = 1;
    options.rate_hz = 5000.0;
    options.duration_s = 429496.7296;  // 2^31 samples
    EXPECT_EQ(Refusal(options),
              "--duration: expected at most 2147483647 values but 2147483648 samples of 1 modes are 2147483648");
    options.duration_s = 429496.7294;  // one less
    EXPECT_EQ(PlanModulation(options).samples, 2147483647);
    options.modes = 2;
    EXPECT_EQ(Refusal(options),
              "--duration: expected at most 2147483647 values but 2147483647 samples of 2 modes are 4294967294");
}

TEST(ModulationOptionsTest, ListsThatDoNotFitTheModesAreRefused)
{
    ModulationOptions options;
    options.modes = 20;
    options.on = "3,20";
    EXPECT_EQ(Refusal(options), "--on: expected modes 0 to 19 but got 20");
    options.on = "";
    EXPECT_EQ(Refusal(options), "--on: expected a list of modes, such as 5 or 0,3,10-19, but got ");
}

}  // namespace
}  // namespace lumo::ravelctl
