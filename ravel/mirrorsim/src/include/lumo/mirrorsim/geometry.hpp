#pragma once

#include <array>
#include <map>
#include <utility>
#include <vector>

namespace lumo::mirrorsim {

inline constexpr int NUM_SEGMENTS = 798;
inline constexpr int NUM_PACT_PER_SEGMENT = 3;
inline constexpr int NUM_PACT = NUM_PACT_PER_SEGMENT * NUM_SEGMENTS;  ///< position actuators, index 3 s + j
inline constexpr int NUM_EDGES_PER_SEGMENT = 3;                       ///< edges that a segment owns, at most
inline constexpr int NUM_ES_PER_EDGE = 2;
inline constexpr int NUM_ES_PER_SEGMENT = NUM_EDGES_PER_SEGMENT * NUM_ES_PER_EDGE;
inline constexpr int NUM_ES = NUM_ES_PER_SEGMENT * NUM_SEGMENTS;  ///< edge-sensor slots, index 6 s + 2 k + j
inline constexpr int NUM_EDGES = 2262;
inline constexpr int NUM_SENSORS = NUM_ES_PER_EDGE * NUM_EDGES;  ///< slots that hold a sensor

/// Distance between the centres of neighbouring segments, which is also a segment's width across flats.
inline constexpr double PITCH_M = 1.25;
/// Length of a hexagon's side, which is also the distance from its centre to its corners.
inline constexpr double SIDE_M = PITCH_M / 1.7320508075688772;
/// Radius of the circle about a segment's centre on which its actuators stand.
inline constexpr double ACTUATOR_RADIUS_M = 0.35 * PITCH_M;
/// Distance of a sensor from the midpoint of its edge, along the edge.
inline constexpr double SENSOR_OFFSET_M = 0.3 * SIDE_M;

struct Point
{
    double x_m;
    double y_m;
};

/// One hexagon, by its axial coordinates and its centre: x = pitch (q + r / 2), y = pitch sqrt(3) / 2 r.
/// Its corners stand at SIDE_M from the centre, at 30, 90, 150, ... degrees from the x axis.
struct Segment
{
    int q;
    int r;
    double x_m;
    double y_m;
};

/// The edge between two segments; it belongs to `owner`, which stands at (-1, 0), (0, -1) or (-1, +1) from `neighbour`.
struct Edge
{
    int owner;      ///< segment index
    int neighbour;  ///< segment index
    int direction;  ///< k: 0, 1, 2 for the neighbour at (+1, 0), (0, +1), (+1, -1)
};

/// One edge sensor. It reads the owner's height minus the neighbour's at its position.
struct Sensor
{
    int slot;  ///< 6 owner + 2 direction + j; j = 0 stands clockwise of the midpoint, seen from the owner, j = 1 the
               ///< other
    int owner;
    int neighbour;
    Point position;
};

/// Where everything stands on the mirror: hexagons of pitch 1.25 m on an axial grid (q, r), wherever
/// max(|q|, |r|, |q + r|) > 4 and q^2 + q r + r^2 <= 237. Segments are numbered in ascending q, then ascending r.
/// Constant after construction.
/// Thread:    any.
/// Real time: the construction is not; the look-ups neither allocate nor block.
/// Data:      lengths in metres; references are valid as long as the object.
class Geometry
{
public:
    Geometry();

    /// The NUM_SEGMENTS segments by index.
    const std::vector<Segment>& GetSegments() const { return m_segments; }

    /// The NUM_EDGES shared edges, ascending by owner, then direction.
    const std::vector<Edge>& GetEdges() const { return m_edges; }

    /// The NUM_SENSORS sensors, ascending by slot.
    const std::vector<Sensor>& GetSensors() const { return m_sensors; }

    /// The NUM_PACT actuator positions: actuator 3 s + j stands on segment s at 90 + 120 j degrees from the x axis.
    const std::vector<Point>& GetActuators() const { return m_actuators; }

    /// Index of the segment at (q, r), or -1 where none stands.
    int FindSegment(int q, int r) const;

    /// Index of the segment next to `segment` in direction k (see Edge), or -1 where the mirror ends.
    /// Failure: std::out_of_range for a segment or direction that does not exist.
    int FindNeighbour(int segment, int direction) const;

    /// Whether a sensor stands in this slot. Failure: std::out_of_range for a slot outside 0..NUM_ES-1.
    bool HasSensor(int slot) const;

private:
    void PlaceSegments();
    void PlaceActuators();
    void PlaceSensors();

    std::vector<Segment> m_segments;
    std::map<std::pair<int, int>, int> m_index;  // (q, r) -> segment
    std::vector<Edge> m_edges;
    std::vector<Sensor> m_sensors;
    std::vector<Point> m_actuators;
    std::vector<bool> m_has_sensor;
};

/// The height of a segment's plane at `offset` from its centre is the sum of these weights times the heights of its
/// three actuators. The weights add up to 1.
std::array<double, NUM_PACT_PER_SEGMENT> ActuatorWeights(Point offset);

}  // namespace lumo::mirrorsim
