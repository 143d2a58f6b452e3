#include <lumo/mirrorsim/geometry.hpp>

#include <algorithm>
#include <cstdlib>
#include <numbers>
#include <stdexcept>
#include <string>

namespace lumo::mirrorsim {

namespace {

constexpr int INNER_HEXAGON = 4;           // segments stand beyond this hexagonal distance from the middle
constexpr int OUTER_RADIUS_SQUARED = 237;  // and within this squared distance, in units of the pitch
constexpr int MAX_COORDINATE = 17;         // q^2 + q r + r^2 >= 3/4 q^2, so |q| <= sqrt(4/3 237)

constexpr std::array<std::pair<int, int>, NUM_EDGES_PER_SEGMENT> DIRECTIONS{{{1, 0}, {0, 1}, {1, -1}}};

bool StandsAt(int q, int r)
{
    const int hexagon = std::max({std::abs(q), std::abs(r), std::abs(q + r)});
    return hexagon > INNER_HEXAGON && q * q + q * r + r * r <= OUTER_RADIUS_SQUARED;
}

/// The actuators' offsets from the centre of their segment.
std::array<Point, NUM_PACT_PER_SEGMENT> ActuatorOffsets()
{
    const double half_chord = ACTUATOR_RADIUS_M * std::numbers::sqrt3 / 2.0;
    return {
        {{0.0, ACTUATOR_RADIUS_M}, {-half_chord, -ACTUATOR_RADIUS_M / 2.0}, {half_chord, -ACTUATOR_RADIUS_M / 2.0}}};
}

std::out_of_range OutOfRange(const std::string& what, int found, int end)
{
    return std::out_of_range("Expected a " + what + " of 0 to " + std::to_string(end - 1) + " but received " +
                             std::to_string(found) + ".");
}

}  // namespace

Geometry::Geometry()
{
    PlaceSegments();
    PlaceActuators();
    PlaceSensors();
}

void Geometry::PlaceSegments()
{
    m_segments.reserve(NUM_SEGMENTS);
    for (int q = -MAX_COORDINATE; q <= MAX_COORDINATE; ++q) {
        for (int r = -MAX_COORDINATE; r <= MAX_COORDINATE; ++r) {
            if (StandsAt(q, r)) {
                m_index[{q, r}] = static_cast<int>(m_segments.size());
                m_segments.push_back({q, r, PITCH_M * (q + r / 2.0), PITCH_M * std::numbers::sqrt3 / 2.0 * r});
            }
        }
    }
}

void Geometry::PlaceActuators()
{
    m_actuators.reserve(NUM_PACT);
    for (const Segment& segment : m_segments) {
        for (const Point& offset : ActuatorOffsets()) {
            m_actuators.push_back({segment.x_m + offset.x_m, segment.y_m + offset.y_m});
        }
    }
}

void Geometry::PlaceSensors()
{
    m_edges.reserve(NUM_EDGES);
    m_sensors.reserve(NUM_SENSORS);
    m_has_sensor.assign(NUM_ES, false);
    for (int owner = 0; owner < NUM_SEGMENTS; ++owner) {
        for (int direction = 0; direction < NUM_EDGES_PER_SEGMENT; ++direction) {
            const int neighbour = FindNeighbour(owner, direction);
            if (neighbour < 0) {
                continue;
            }
            m_edges.push_back({owner, neighbour, direction});
            const Segment& from = m_segments.at(static_cast<std::size_t>(owner));
            const Segment& to = m_segments.at(static_cast<std::size_t>(neighbour));
            // Along the edge, a quarter turn to the left of the way from the owner to the neighbour.
            const Point along{-(to.y_m - from.y_m) / PITCH_M, (to.x_m - from.x_m) / PITCH_M};
            for (int j = 0; j < NUM_ES_PER_EDGE; ++j) {
                const int slot = NUM_ES_PER_SEGMENT * owner + NUM_ES_PER_EDGE * direction + j;
                const double offset = j == 0 ? -SENSOR_OFFSET_M : SENSOR_OFFSET_M;
                m_has_sensor.at(static_cast<std::size_t>(slot)) = true;
                m_sensors.push_back(
                    {slot,
                     owner,
                     neighbour,
                     {(from.x_m + to.x_m) / 2.0 + offset * along.x_m, (from.y_m + to.y_m) / 2.0 + offset * along.y_m}});
            }
        }
    }
}

int Geometry::FindSegment(int q, int r) const
{
    const auto found = m_index.find({q, r});
    return found == m_index.end() ? -1 : found->second;
}

int Geometry::FindNeighbour(int segment, int direction) const
{
    if (segment < 0 || segment >= NUM_SEGMENTS) {
        throw OutOfRange("segment", segment, NUM_SEGMENTS);
    }
    if (direction < 0 || direction >= NUM_EDGES_PER_SEGMENT) {
        throw OutOfRange("direction", direction, NUM_EDGES_PER_SEGMENT);
    }
    const Segment& from = m_segments[static_cast<std::size_t>(segment)];
    const auto [q, r] = DIRECTIONS[static_cast<std::size_t>(direction)];
    return FindSegment(from.q + q, from.r + r);
}

bool Geometry::HasSensor(int slot) const
{
    if (slot < 0 || slot >= NUM_ES) {
        throw OutOfRange("sensor slot", slot, NUM_ES);
    }
    return m_has_sensor[static_cast<std::size_t>(slot)];
}

std::array<double, NUM_PACT_PER_SEGMENT> ActuatorWeights(Point offset)
{
    std::array<double, NUM_PACT_PER_SEGMENT> weights{};
    const auto actuators = ActuatorOffsets();
    for (std::size_t j = 0; j < weights.size(); ++j) {
        const double projection = actuators[j].x_m * offset.x_m + actuators[j].y_m * offset.y_m;
        weights[j] = 1.0 / 3.0 + 2.0 / 3.0 * projection / (ACTUATOR_RADIUS_M * ACTUATOR_RADIUS_M);
    }
    return weights;
}

}  // namespace lumo::mirrorsim
