#include <lumo/mirrorsim/mirror.hpp>
#include <lumo/mirrorsim/sensorMatrix.hpp>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <memory>
#include <numbers>
#include <span>
#include <stdexcept>
#include <vector>

namespace lumo::mirrorsim {
namespace {

MirrorConfig Quiet()
{
    MirrorConfig config;
    config.wind_rms_um = 0.0;
    config.drift_um_per_s = 0.0;
    config.sensor_noise_um = 0.0;
    return config;
}

std::vector<double> Copy(std::span<const double> values)
{
    return {values.begin(), values.end()};
}

std::vector<float> ToFloat(std::span<const double> values)
{
    std::vector<float> floats;
    for (const double value : values) {
        floats.push_back(static_cast<float>(value));
    }
    return floats;
}

EsRecord EsMeasOf(const Mirror& mirror)
{
    EsRecord record{};
    mirror.FillEsMeas(1.5, 7, record);
    return record;
}

PactRecord PactMeasOf(const Mirror& mirror)
{
    PactRecord record{};
    mirror.FillPactMeas(1.5, 7, record);
    return record;
}

template <typename Record>
bool EqualBits(const Record& a, const Record& b)
{
    return std::memcmp(&a, &b, sizeof(Record)) == 0;
}

/// What the sensors would read without noise.
Eigen::VectorXd Readings(const Geometry& geometry, const Mirror& mirror)
{
    return SensorMatrix(geometry) * Eigen::Map<const Eigen::VectorXd>(mirror.GetSurface().data(), NUM_PACT);
}

TEST(MirrorTest, QuietMirrorThatIsCommandedToStayStaysBitForBit)
{
    Mirror sut(Geometry(), Quiet());
    const std::vector<double> positions = Copy(sut.GetActuatorPositions());
    const std::vector<float> command = ToFloat(positions);
    const EsRecord es_meas = EsMeasOf(sut);
    const PactRecord pact_meas = PactMeasOf(sut);
    for (int cycle = 0; cycle < 200; ++cycle) {
        sut.Step(command);
        ASSERT_EQ(Copy(sut.GetActuatorPositions()), positions);
        ASSERT_EQ(Copy(sut.GetSurface()), positions);
        ASSERT_TRUE(EqualBits(EsMeasOf(sut), es_meas));
        ASSERT_TRUE(EqualBits(PactMeasOf(sut), pact_meas));
    }
}

TEST(MirrorTest, InitialPositionsHaveTheConfiguredRmsAndNothingUnobservable)
{
    const Geometry geometry;
    const Mirror sut(geometry, Quiet());
    const Eigen::Map<const Eigen::VectorXd> positions(sut.GetActuatorPositions().data(), NUM_PACT);
    EXPECT_NEAR(positions.norm() / std::sqrt(NUM_PACT), 2.0, 1e-6);
    EXPECT_LT((UnobservableDirections(geometry).transpose() * positions).cwiseAbs().maxCoeff(), 1e-5);
    MirrorConfig flat = Quiet();
    flat.initial_rms_um = 0.0;
    EXPECT_EQ(Copy(Mirror(geometry, flat).GetSurface()), std::vector<double>(NUM_PACT, 0.0));
}

TEST(MirrorTest, SurfaceIsPositionsPlusDisturbance)
{
    Mirror sut(Geometry(), MirrorConfig{});
    const std::vector<float> command(NUM_PACT, 0.5F);
    for (int cycle = 0; cycle < 20; ++cycle) {
        for (std::size_t i = 0; i < NUM_PACT; ++i) {
            ASSERT_EQ(sut.GetSurface()[i], sut.GetActuatorPositions()[i] + sut.GetDisturbance()[i]);
            ASSERT_NE(sut.GetDisturbance()[i], 0.0);
        }
        sut.Step(command);
    }
}

TEST(MirrorTest, CommandMovesThePositionsTwoCyclesLater)
{
    Mirror sut(Geometry(), Quiet());
    const std::vector<double> start = Copy(sut.GetActuatorPositions());
    std::vector<float> command = ToFloat(start);
    command[100] += 1.0F;
    sut.Step(command);
    EXPECT_EQ(Copy(sut.GetActuatorPositions()), start) << "the delay of one cycle";
    sut.Step(command);
    for (std::size_t i = 0; i < NUM_PACT; ++i) {
        const double step = i == 100 ? sut.GetLagCoefficient() * (static_cast<double>(command[i]) - start[i]) : 0.0;
        ASSERT_EQ(sut.GetActuatorPositions()[i], start[i] + step);
    }
    EXPECT_EQ(sut.GetCycle(), 2);
}

TEST(MirrorTest, EdgeSensorRecordShowsTheSurfaceThroughTheSensors)
{
    const Geometry geometry;
    MirrorConfig config;
    config.sensor_noise_um = 0.0;
    Mirror sut(geometry, config);
    for (int cycle = 0; cycle < 5; ++cycle) {
        const Eigen::VectorXd expected = Readings(geometry, sut);
        const EsRecord record = EsMeasOf(sut);
        EXPECT_EQ(record.timestamp, 1.5);
        EXPECT_EQ(record.time, 1.5);
        EXPECT_EQ(record.tag, 7);
        for (std::size_t slot = 0; slot < NUM_ES; ++slot) {
            ASSERT_NEAR(record.block1[slot], expected[static_cast<Eigen::Index>(slot)], 1e-6);
            ASSERT_EQ(record.block2[slot], 0.0F);
            ASSERT_EQ(record.block3[slot], 0.0F);
        }
        sut.Step(std::vector<float>(NUM_PACT, 0.0F));
    }
}

TEST(MirrorTest, RecordsOverwriteWhateverStoodInTheBlocksAndStatusWords)
{
    const Mirror sut(Geometry(), MirrorConfig{});
    auto es_meas = std::make_unique<EsRecord>();
    auto pact_meas = std::make_unique<PactRecord>();
    std::memset(es_meas.get(), 0xff, sizeof(EsRecord));
    std::memset(pact_meas.get(), 0xff, sizeof(PactRecord));
    sut.FillEsMeas(1.5, 7, *es_meas);
    sut.FillPactMeas(1.5, 7, *pact_meas);
    es_meas->reserved = {};
    pact_meas->reserved = {};
    EXPECT_TRUE(EqualBits(*es_meas, EsMeasOf(sut)));
    EXPECT_TRUE(EqualBits(*pact_meas, PactMeasOf(sut)));
}

TEST(MirrorTest, ActuatorRecordHoldsPositionsAndTheReferencesThatActFromNowOn)
{
    MirrorConfig config = Quiet();
    config.stroke_limit_um = 20.0;
    Mirror sut(Geometry(), config);
    std::vector<float> command(NUM_PACT, 3.0F);
    command[0] = 1000.0F;
    sut.Step(command);
    sut.Step(std::vector<float>(NUM_PACT, -4.0F));
    const PactRecord record = PactMeasOf(sut);
    EXPECT_EQ(record.timestamp, 1.5);
    EXPECT_EQ(record.time, 1.5);
    EXPECT_EQ(record.tag, 7);
    for (std::size_t i = 0; i < NUM_PACT; ++i) {
        ASSERT_EQ(record.block1[i], static_cast<float>(sut.GetActuatorPositions()[i]));
        ASSERT_EQ(record.block2[i], -4.0F);
    }
    sut.Step(command);
    EXPECT_EQ(PactMeasOf(sut).block2[0], 20.0F) << "limited to the stroke";
}

TEST(MirrorTest, RecordOfOneCycleIsTheSameHoweverOftenItIsAskedFor)
{
    Mirror sut(Geometry(), MirrorConfig{});
    Mirror asked_once(Geometry(), MirrorConfig{});
    const std::vector<float> command(NUM_PACT, 0.0F);
    for (int cycle = 0; cycle < 3; ++cycle) {
        const EsRecord first = EsMeasOf(sut);
        ASSERT_TRUE(EqualBits(EsMeasOf(sut), first));
        ASSERT_TRUE(EqualBits(EsMeasOf(asked_once), first)) << "asking twice has moved the noise on";
        sut.Step(command);
        asked_once.Step(command);
    }
}

TEST(MirrorTest, SensorNoiseIsWhiteOfTheConfiguredRmsAndEmptySlotsReadExactlyZero)
{
    const Geometry geometry;
    MirrorConfig config = Quiet();
    config.initial_rms_um = 0.0;  // readings are noise alone
    config.sensor_noise_um = 0.003;
    Mirror sut(geometry, config);
    const std::vector<float> command(NUM_PACT, 0.0F);
    const int num_cycles = 200;
    double sum = 0.0;
    double squares = 0.0;
    double over_time = 0.0;   // product with the same sensor a cycle ago
    double over_slots = 0.0;  // product with the sensor before
    EsRecord previous{};
    for (int cycle = 0; cycle < num_cycles; ++cycle) {
        const EsRecord record = EsMeasOf(sut);
        double neighbour = 0.0;
        for (std::size_t slot = 0; slot < NUM_ES; ++slot) {
            const double value = static_cast<double>(record.block1[slot]) / 0.003;
            if (!geometry.HasSensor(static_cast<int>(slot))) {
                ASSERT_EQ(std::bit_cast<std::uint32_t>(record.block1[slot]), 0U) << "empty slot " << slot;
                continue;
            }
            sum += value;
            squares += value * value;
            over_time += value * static_cast<double>(previous.block1[slot]) / 0.003;
            over_slots += value * neighbour;
            neighbour = value;
        }
        previous = record;
        sut.Step(command);
    }
    // Standard deviations of these means over n independent values: 1, sqrt(2), 1 and 1 over sqrt(n).
    const double n = static_cast<double>(num_cycles) * NUM_SENSORS;
    EXPECT_NEAR(sum / n, 0.0, 5.0 / std::sqrt(n));
    EXPECT_NEAR(squares / n, 1.0, 5.0 * std::numbers::sqrt2 / std::sqrt(n));
    EXPECT_NEAR(over_time / n, 0.0, 5.0 / std::sqrt(n));
    EXPECT_NEAR(over_slots / n, 0.0, 5.0 / std::sqrt(n));
}

/// What a mirror shows over a few cycles under a fixed command.
struct Trace
{
    std::vector<double> positions;
    std::vector<double> disturbance;
    std::vector<float> readings;

    explicit Trace(const MirrorConfig& config)
    {
        const Geometry geometry;
        Mirror mirror(geometry, config);
        const std::vector<float> command(NUM_PACT, 0.25F);
        for (int cycle = 0; cycle < 20; ++cycle) {
            positions.insert(positions.end(), mirror.GetActuatorPositions().begin(),
                             mirror.GetActuatorPositions().end());
            disturbance.insert(disturbance.end(), mirror.GetDisturbance().begin(), mirror.GetDisturbance().end());
            const EsRecord record = EsMeasOf(mirror);
            readings.insert(readings.end(), record.block1.begin(), record.block1.end());
            mirror.Step(command);
        }
    }
};

TEST(MirrorTest, SameSeedGivesTheSameBits)
{
    MirrorConfig config;
    config.seed = 0x123456789abcdef0U;
    const Trace first(config);
    const Trace second(config);
    EXPECT_EQ(first.positions, second.positions);
    EXPECT_EQ(first.disturbance, second.disturbance);
    EXPECT_EQ(first.readings, second.readings);
}

TEST(MirrorTest, AnotherSeedGivesAnotherWindStartAndNoise)
{
    MirrorConfig config;
    config.seed = 1;
    const Trace first(config);
    // Also a seed that differs in its upper half alone.
    for (const std::uint64_t seed : {std::uint64_t{2}, (std::uint64_t{1} << 32U) + 1}) {
        config.seed = seed;
        const Trace other(config);
        for (std::size_t i = 0; i < NUM_PACT; ++i) {
            ASSERT_NE(first.positions[i], other.positions[i]);
            ASSERT_NE(first.disturbance[i], other.disturbance[i]);
        }
    }
    MirrorConfig noise_alone = Quiet();
    noise_alone.initial_rms_um = 0.0;
    noise_alone.sensor_noise_um = 0.001;
    const Trace noise(noise_alone);
    noise_alone.seed = 2;
    EXPECT_NE(noise.readings, Trace(noise_alone).readings);
}

TEST(MirrorTest, SwitchingOneStreamOffLeavesTheOthersAsTheyWere)
{
    const Trace all{MirrorConfig{}};

    MirrorConfig without_noise;
    without_noise.sensor_noise_um = 0.0;
    EXPECT_EQ(Trace(without_noise).disturbance, all.disturbance);
    EXPECT_EQ(Trace(without_noise).positions, all.positions);

    MirrorConfig without_start;
    without_start.initial_rms_um = 0.0;
    EXPECT_EQ(Trace(without_start).disturbance, all.disturbance);

    MirrorConfig without_wind;
    without_wind.wind_rms_um = 0.0;
    EXPECT_EQ(Trace(without_wind).positions, all.positions);

    // The noise: readings of a mirror that shows nothing else.
    MirrorConfig noise_alone = Quiet();
    noise_alone.sensor_noise_um = 0.001;
    noise_alone.initial_rms_um = 0.0;
    const Trace noise(noise_alone);
    const Trace surface(without_noise);
    for (std::size_t i = 0; i < noise.readings.size(); ++i) {
        ASSERT_NEAR(all.readings[i] - surface.readings[i], noise.readings[i], 2e-6);
    }
}

TEST(MirrorTest, CommandOfAnotherSizeIsRefusedAndChangesNothing)
{
    Mirror sut(Geometry(), MirrorConfig{});
    const EsRecord before = EsMeasOf(sut);
    EXPECT_THROW(sut.Step(std::vector<float>(NUM_PACT - 1)), std::invalid_argument);
    EXPECT_EQ(sut.GetCycle(), 0);
    EXPECT_TRUE(EqualBits(EsMeasOf(sut), before));
}

TEST(MirrorTest, ConfigurationThatMakesNoSenseIsRefused)
{
    MirrorConfig config;
    config.wind_rms_um = -1.0;
    EXPECT_THROW(Mirror(Geometry(), config), std::invalid_argument);
    config = MirrorConfig{};
    config.tones = {{0, 1.0, 1.0}};
    EXPECT_THROW(Mirror(Geometry(), config), std::invalid_argument) << "a tone without its mode's shape";
}

/// The loop on one mode, integrator c[k] = c[k-1] - gain m[k] of the modal coordinate m of the true surface.
TEST(MirrorTest, ClosedLoopRejectsAToneAsTheTransferFunctionsSay)
{
    const double gain = 0.2;
    const double frequency_hz = 12.5;  // 40 cycles
    std::vector<float> shape(NUM_PACT);
    for (std::size_t i = 0; i < NUM_PACT; ++i) {
        shape[i] = static_cast<float>((i % 2 == 0 ? 1.0 : -1.0) / std::sqrt(NUM_PACT));
    }
    MirrorConfig config = Quiet();
    config.initial_rms_um = 0.0;
    config.tones = {{0, frequency_hz, 5.0}};
    Mirror sut(Geometry(), config, shape, 1);

    const std::complex<double> z = std::exp(std::complex<double>(0.0, 2.0 * std::numbers::pi * frequency_hz * 0.002));
    const double a = sut.GetLagCoefficient();
    const std::complex<double> plant = a / (z * z) / (1.0 - (1.0 - a) / z);
    const std::complex<double> controller = gain / (1.0 - 1.0 / z);
    const std::complex<double> rejection = 1.0 / (1.0 + plant * controller);

    double coordinate = 0.0;
    std::complex<double> response = 0.0;  // of the modal coordinate at the tone's frequency
    std::vector<float> command(NUM_PACT);
    for (int cycle = 0; cycle < 800; ++cycle) {
        double error = 0.0;
        for (std::size_t i = 0; i < NUM_PACT; ++i) {
            error += static_cast<double>(shape[i]) * sut.GetSurface()[i];
        }
        if (cycle >= 400) {  // settled; ten turns to measure over
            response += error * std::pow(z, -cycle) / 200.0;
        }
        coordinate -= gain * error;
        for (std::size_t i = 0; i < NUM_PACT; ++i) {
            command[i] = static_cast<float>(coordinate * static_cast<double>(shape[i]));
        }
        sut.Step(command);
    }
    // A sine of amplitude A and phase 0 measures as -i A.
    const std::complex<double> expected = std::complex<double>(0.0, -5.0) * rejection;
    EXPECT_NEAR(std::abs(response - expected), 0.0, 1e-5);
    EXPECT_GT(std::abs(rejection - 1.0), 0.3) << "a loop that does nothing would pass";
}

}  // namespace
}  // namespace lumo::mirrorsim
