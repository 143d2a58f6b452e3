#include <lumo/mirrorsim/mirrorConfig.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace lumo::mirrorsim {
namespace {

std::string MessageOf(const MirrorConfig& sut)
{
    try {
        CheckMirrorConfig(sut);
    } catch (const std::invalid_argument& e) {
        return e.what();
    }
    return "";
}

TEST(MirrorConfigTest, DefaultsAreAccepted)
{
    EXPECT_EQ(MessageOf(MirrorConfig{}), "");
}

TEST(MirrorConfigTest, EveryFieldThatMakesNoSenseIsNamed)
{
    struct Case
    {
        double MirrorConfig::*field;
        const char* name;
        bool zero_is_fine;
    };
    const Case cases[] = {{&MirrorConfig::period_s, "period_s", false},
                          {&MirrorConfig::actuator_time_constant_s, "actuator_time_constant_s", true},
                          {&MirrorConfig::stroke_limit_um, "stroke_limit_um", false},
                          {&MirrorConfig::rate_limit_um_per_s, "rate_limit_um_per_s", false},
                          {&MirrorConfig::wind_rms_um, "wind_rms_um", true},
                          {&MirrorConfig::wind_corner_hz, "wind_corner_hz", false},
                          {&MirrorConfig::drift_um_per_s, "drift_um_per_s", true},
                          {&MirrorConfig::sensor_noise_um, "sensor_noise_um", true},
                          {&MirrorConfig::initial_rms_um, "initial_rms_um", true}};
    for (const Case& c : cases) {
        for (const double value : {-1.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
            MirrorConfig sut;
            sut.*c.field = value;
            EXPECT_NE(MessageOf(sut).find(std::string("MirrorConfig::") + c.name + " "), std::string::npos)
                << c.name << " = " << value << ": " << MessageOf(sut);
        }
        MirrorConfig sut;
        sut.*c.field = 0.0;
        EXPECT_EQ(MessageOf(sut).empty(), c.zero_is_fine) << c.name;
    }
}

TEST(MirrorConfigTest, FrequenciesAboveHalfTheCycleRateAreRefusedWithBothNumbers)
{
    MirrorConfig sut;
    sut.wind_corner_hz = 250.0;
    EXPECT_EQ(MessageOf(sut),
              "Expected MirrorConfig::wind_corner_hz to be below half the cycle rate of 250 Hz but it is "
              "250.");
    sut = MirrorConfig{};
    sut.tones = {{0, 1.0, 1.0}, {0, 251.0, 1.0}};
    EXPECT_EQ(MessageOf(sut),
              "Expected MirrorConfig::tones[1].frequency_hz to be not above half the cycle rate of 250 Hz but "
              "it is 251.");
}

TEST(MirrorConfigTest, ASmallNumberIsRefusedAsItIs)
{
    MirrorConfig sut;
    sut.drift_um_per_s = -2.5e-9;
    EXPECT_EQ(MessageOf(sut), "Expected MirrorConfig::drift_um_per_s to be 0 or greater but it is -2.5e-09.");
}

TEST(MirrorConfigTest, TonesThatMakeNoSenseAreRefused)
{
    for (const Tone& tone :
         {Tone{-1, 1.0, 1.0}, Tone{0, -1.0, 1.0}, Tone{0, std::nan(""), 1.0}, Tone{0, 1.0, std::nan("")}}) {
        MirrorConfig sut;
        sut.tones = {tone};
        EXPECT_NE(MessageOf(sut).find("tones[0]."), std::string::npos) << MessageOf(sut);
    }
}

}  // namespace
}  // namespace lumo::mirrorsim
