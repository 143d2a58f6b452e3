#include "symmetricEigen.hpp"
#include "unobservableCheck.hpp"

#include <lumo/mirrorsim/controlModes.hpp>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace lumo::mirrorsim {

namespace {

// Relative to the largest eigenvalue, 16.3: the pairs that the symmetry of the mirror makes agree to 2e-15, all others
// are at least 1.8e-9 apart.
constexpr double EQUAL_WITHIN = 1e-11;

void CheckNumModes(int num_modes, int available)
{
    if (num_modes < 1 || num_modes > available) {
        throw std::invalid_argument("Expected a number of control modes of 1 to " + std::to_string(available) +
                                    " but received " + std::to_string(num_modes) + ".");
    }
}

void CheckSize(const std::string& name, std::size_t expected, std::size_t found)
{
    if (found != expected) {
        throw std::invalid_argument("Expected " + name + " of " + std::to_string(expected) + " elements but received " +
                                    std::to_string(found) + ".");
    }
}

std::size_t Size(int rows, int cols)
{
    return static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
}

}  // namespace

ControlModes ComputeControlModes(const Geometry& geometry, int num_modes)
{
    CheckNumModes(num_modes, NUM_MODES);
    const Eigen::SparseMatrix<double, Eigen::RowMajor> sensors = SensorMatrix(geometry);
    const Eigen::SparseMatrix<double, Eigen::RowMajor> normal = sensors.transpose() * sensors;
    SymmetricEigen eigen = SolveSymmetricEigen(Eigen::MatrixXd(normal));
    CheckUnobservable(eigen.values);
    FixOrientation(eigen, EQUAL_WITHIN * eigen.values[NUM_PACT - 1]);

    ControlModes modes;
    modes.num_modes = num_modes;
    modes.eigenvalues.reserve(static_cast<std::size_t>(num_modes));
    modes.p2edc.reserve(Size(num_modes, NUM_ES));
    modes.pact2modes.reserve(Size(num_modes, NUM_PACT));
    modes.modes2pact.reserve(Size(NUM_PACT, num_modes));
    Eigen::VectorXd readings(NUM_ES);
    for (int mode = 0; mode < num_modes; ++mode) {
        const auto shape = eigen.vectors.col(NUM_UNOBSERVABLE + mode);
        const double eigenvalue = eigen.values[NUM_UNOBSERVABLE + mode];
        modes.eigenvalues.push_back(eigenvalue);
        readings.noalias() = sensors * shape;
        for (const double reading : readings) {
            modes.p2edc.push_back(static_cast<float>(reading / eigenvalue));
        }
        for (const double height : shape) {
            modes.pact2modes.push_back(static_cast<float>(height));
        }
    }
    for (int actuator = 0; actuator < NUM_PACT; ++actuator) {
        for (int mode = 0; mode < num_modes; ++mode) {
            modes.modes2pact.push_back(static_cast<float>(eigen.vectors(actuator, NUM_UNOBSERVABLE + mode)));
        }
    }
    return modes;
}

ControlModes SelectModes(const ControlModes& all, int num_modes)
{
    CheckNumModes(num_modes, all.num_modes);
    CheckSize("eigenvalues", Size(1, all.num_modes), all.eigenvalues.size());
    CheckSize("P2EDC", Size(all.num_modes, NUM_ES), all.p2edc.size());
    CheckSize("PACT2MODES", Size(all.num_modes, NUM_PACT), all.pact2modes.size());
    CheckSize("MODES2PACT", Size(NUM_PACT, all.num_modes), all.modes2pact.size());

    ControlModes modes;
    modes.num_modes = num_modes;
    modes.eigenvalues.assign(all.eigenvalues.begin(), all.eigenvalues.begin() + num_modes);
    modes.p2edc.assign(all.p2edc.begin(), all.p2edc.begin() + std::ptrdiff_t{num_modes} * NUM_ES);
    modes.pact2modes.assign(all.pact2modes.begin(), all.pact2modes.begin() + std::ptrdiff_t{num_modes} * NUM_PACT);
    modes.modes2pact.reserve(Size(NUM_PACT, num_modes));
    for (int actuator = 0; actuator < NUM_PACT; ++actuator) {
        const auto row = all.modes2pact.begin() + std::ptrdiff_t{actuator} * all.num_modes;
        modes.modes2pact.insert(modes.modes2pact.end(), row, row + num_modes);
    }
    return modes;
}

}  // namespace lumo::mirrorsim
