#include <lumo/mirrorsim/sensorMatrix.hpp>

#include <vector>

namespace lumo::mirrorsim {

namespace {

using Triplets = std::vector<Eigen::Triplet<double>>;

/// The height of `segment` at the sensor, times `sign`, into the sensor's row.
void AddSegment(const Geometry& geometry, const Sensor& sensor, int segment, double sign, Triplets& elements)
{
    const Segment& at = geometry.GetSegments().at(static_cast<std::size_t>(segment));
    const auto weights = ActuatorWeights({sensor.position.x_m - at.x_m, sensor.position.y_m - at.y_m});
    int actuator = NUM_PACT_PER_SEGMENT * segment;
    for (const double weight : weights) {
        elements.emplace_back(sensor.slot, actuator++, sign * weight);
    }
}

}  // namespace

Eigen::SparseMatrix<double, Eigen::RowMajor> SensorMatrix(const Geometry& geometry)
{
    Triplets elements;
    elements.reserve(static_cast<std::size_t>(NUM_SENSORS) * 2 * NUM_PACT_PER_SEGMENT);
    for (const Sensor& sensor : geometry.GetSensors()) {
        AddSegment(geometry, sensor, sensor.owner, 1.0, elements);
        AddSegment(geometry, sensor, sensor.neighbour, -1.0, elements);
    }
    Eigen::SparseMatrix<double, Eigen::RowMajor> matrix(NUM_ES, NUM_PACT);
    matrix.setFromTriplets(elements.begin(), elements.end());
    return matrix;
}

Eigen::MatrixXd UnobservableDirections(const Geometry& geometry)
{
    Eigen::MatrixXd directions(NUM_PACT, NUM_UNOBSERVABLE);
    for (int actuator = 0; actuator < NUM_PACT; ++actuator) {
        const Point& at = geometry.GetActuators().at(static_cast<std::size_t>(actuator));
        const Segment& segment = geometry.GetSegments().at(static_cast<std::size_t>(actuator / NUM_PACT_PER_SEGMENT));
        // Focus-like: each segment lies in the tangent plane of the paraboloid |x|^2 at its centre c, 2 c x - c^2.
        // Two such planes meet where x is as far from one centre as from the other: along the edge, on the sensors.
        const double focus = 2.0 * (segment.x_m * at.x_m + segment.y_m * at.y_m) -
                             (segment.x_m * segment.x_m + segment.y_m * segment.y_m);
        directions.row(actuator) << 1.0, at.x_m, at.y_m, focus;
    }
    const Eigen::HouseholderQR<Eigen::MatrixXd> qr(directions);
    return qr.householderQ() * Eigen::MatrixXd::Identity(NUM_PACT, NUM_UNOBSERVABLE);
}

void RemoveUnobservable(const Eigen::MatrixXd& directions, Eigen::Ref<Eigen::MatrixXd> shapes)
{
    const Eigen::MatrixXd parts = directions.transpose() * shapes;
    shapes.noalias() -= directions * parts;
}

}  // namespace lumo::mirrorsim
