#include "unobservableCheck.hpp"

#include "numberText.hpp"

#include <lumo/mirrorsim/sensorMatrix.hpp>

#include <stdexcept>
#include <string>

namespace lumo::mirrorsim {

namespace {

// Relative to the largest eigenvalue, 16.3: rounding leaves 1e-16 of an unobservable direction, the least observable
// mode has 2e-7.
constexpr double UNOBSERVABLE_BELOW = 1e-10;
constexpr double OBSERVABLE_ABOVE = 1e-8;

}  // namespace

void CheckUnobservable(const Eigen::VectorXd& eigenvalues)
{
    const double largest = eigenvalues[eigenvalues.size() - 1];
    const double last_unobservable = eigenvalues[NUM_UNOBSERVABLE - 1] / largest;
    const double first_mode = eigenvalues[NUM_UNOBSERVABLE] / largest;
    if (last_unobservable > UNOBSERVABLE_BELOW || first_mode < OBSERVABLE_ABOVE) {
        throw std::runtime_error("Expected exactly " + std::to_string(NUM_UNOBSERVABLE) +
                                 " unobservable directions, but relative to the largest eigenvalue number " +
                                 std::to_string(NUM_UNOBSERVABLE) + " is " + ToText(last_unobservable) +
                                 " and the next " + ToText(first_mode) + ".");
    }
}

}  // namespace lumo::mirrorsim
