#include "initialPositions.hpp"
#include "randomStream.hpp"

#include <lumo/mirrorsim/mirror.hpp>
#include <lumo/mirrorsim/sensorMatrix.hpp>

#include <algorithm>
#include <atomic>

namespace lumo::mirrorsim {

namespace {

static_assert(EsRecord{}.block1.size() == NUM_ES);
static_assert(PactRecord{}.block1.size() == NUM_PACT);

/// The header of a record. The time stamp goes last: a reader that polls it finds the rest in place.
template <typename Record>
void FillHeader(double timestamp_s, int tag, Record& record)
{
    record.tag = tag;
    record.time = timestamp_s;
    static_assert(std::atomic_ref<double>::is_always_lock_free);
    std::atomic_ref<double>(record.timestamp).store(timestamp_s, std::memory_order_release);
}

}  // namespace

Mirror::Mirror(const Geometry& geometry, const MirrorConfig& config, std::span<const float> modes2pact, int num_modes)
    : m_config(config),
      m_sensor_matrix(SensorMatrix(geometry)),
      m_actuators(config, InitialPositions(geometry, config)),
      m_disturbance(geometry, config, modes2pact, num_modes),
      m_surface(NUM_PACT),
      m_noise(NUM_ES),
      m_noise_stream(RandomStream(config.seed, Purpose::NOISE))
{
    m_slots.reserve(NUM_SENSORS);
    for (const Sensor& sensor : geometry.GetSensors()) {
        m_slots.push_back(sensor.slot);
    }
    UpdateSurface();
    DrawNoise();
}

void Mirror::Step(std::span<const float> command_um)
{
    m_actuators.Step(command_um);  // may throw: first, so that nothing has changed then
    m_disturbance.Step();
    UpdateSurface();
    DrawNoise();
    ++m_cycle;
}

void Mirror::UpdateSurface()
{
    const std::span<const double> positions = m_actuators.GetPositions();
    const std::span<const double> disturbance = m_disturbance.GetHeights();
    for (std::size_t i = 0; i < m_surface.size(); ++i) {
        m_surface[i] = positions[i] + disturbance[i];
    }
}

void Mirror::DrawNoise()
{
    if (m_config.sensor_noise_um == 0.0) {
        return;
    }
    for (const int slot : m_slots) {
        m_noise[static_cast<std::size_t>(slot)] = m_config.sensor_noise_um * m_normal(m_noise_stream);
    }
}

void Mirror::FillEsMeas(double timestamp_s, int tag, EsRecord& record) const
{
    for (int slot = 0; slot < NUM_ES; ++slot) {
        double reading = 0.0;
        for (Eigen::SparseMatrix<double, Eigen::RowMajor>::InnerIterator element(m_sensor_matrix, slot); element;
             ++element) {
            reading += element.value() * m_surface[static_cast<std::size_t>(element.col())];
        }
        const auto index = static_cast<std::size_t>(slot);
        record.block1[index] = static_cast<float>(reading + m_noise[index]);
    }
    record.block2.fill(0.0F);
    record.block3.fill(0.0F);
    record.status1.fill(0);
    record.status2.fill(0);
    FillHeader(timestamp_s, tag, record);
}

void Mirror::FillPactMeas(double timestamp_s, int tag, PactRecord& record) const
{
    const auto to_float = [](double value) {
        return static_cast<float>(value);
    };
    std::ranges::transform(m_actuators.GetPositions(), record.block1.begin(), to_float);
    std::ranges::transform(m_actuators.GetReferences(), record.block2.begin(), to_float);
    record.status.fill(0);
    FillHeader(timestamp_s, tag, record);
}

}  // namespace lumo::mirrorsim
