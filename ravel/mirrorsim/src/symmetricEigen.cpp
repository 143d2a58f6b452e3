#include "symmetricEigen.hpp"

#include <cmath>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// LAPACK's Fortran interface, as OpenBLAS exports it.
extern "C" void dsyevd_(const char* jobz, const char* uplo, const int* n, double* a, const int* lda, double* w,
                        double* work, const int* lwork, int* iwork, const int* liwork, int* info);

namespace lumo::mirrorsim {

namespace {

/// Elements within this relative distance of the largest magnitude count as largest: symmetric modes have several,
/// equal but for rounding.
constexpr double EQUAL_MAGNITUDE = 1e-6;

/// Numbers without any symmetry, the same everywhere: the bits of a mt19937_64 are fixed by the standard, and the
/// scaling is exact.
Eigen::MatrixXd ReferenceDirections(Eigen::Index rows, Eigen::Index cols)
{
    std::mt19937_64 stream(20240229);
    return Eigen::MatrixXd::NullaryExpr(
        rows, cols, [&stream]() { return std::ldexp(static_cast<double>(stream() >> 11U), -52) - 1.0; });
}

/// Takes as the basis of the space that `vectors` span the reference directions' shadows in it, one after the other.
void Orient(Eigen::Ref<Eigen::MatrixXd> vectors)
{
    const Eigen::MatrixXd reference = ReferenceDirections(vectors.rows(), vectors.cols());
    const Eigen::HouseholderQR<Eigen::MatrixXd> qr(vectors.transpose() * reference);
    vectors = (vectors * Eigen::MatrixXd(qr.householderQ())).eval();
}

void FixSign(Eigen::Ref<Eigen::VectorXd> vector)
{
    const double largest = vector.cwiseAbs().maxCoeff() * (1.0 - EQUAL_MAGNITUDE);
    for (const double element : vector) {
        if (std::abs(element) >= largest) {
            if (element < 0.0) {
                vector = -vector;
            }
            return;
        }
    }
}

}  // namespace

SymmetricEigen SolveSymmetricEigen(Eigen::MatrixXd matrix)
{
    const int size = static_cast<int>(matrix.rows());
    SymmetricEigen eigen{Eigen::VectorXd(size), std::move(matrix)};
    double work_size = 0.0;
    int iwork_size = 0;
    const int query = -1;
    int info = 0;
    dsyevd_("V", "L", &size, eigen.vectors.data(), &size, eigen.values.data(), &work_size, &query, &iwork_size, &query,
            &info);
    const int num_work = static_cast<int>(work_size);
    std::vector<double> work(static_cast<std::size_t>(num_work));
    std::vector<int> iwork(static_cast<std::size_t>(iwork_size));
    dsyevd_("V", "L", &size, eigen.vectors.data(), &size, eigen.values.data(), work.data(), &num_work, iwork.data(),
            &iwork_size, &info);
    if (info != 0) {
        throw std::runtime_error("The eigenvalue solver dsyevd failed on a matrix of " + std::to_string(size) + " x " +
                                 std::to_string(size) + " with info " + std::to_string(info) + ".");
    }
    return eigen;
}

void FixOrientation(SymmetricEigen& eigen, double tolerance)
{
    const Eigen::Index size = eigen.values.size();
    Eigen::Index first = 0;
    while (first < size) {
        Eigen::Index end = first + 1;
        while (end < size && eigen.values[end] - eigen.values[end - 1] < tolerance) {
            ++end;
        }
        if (end - first > 1) {
            Orient(eigen.vectors.middleCols(first, end - first));
        }
        first = end;
    }
    for (Eigen::Index column = 0; column < size; ++column) {
        FixSign(eigen.vectors.col(column));
    }
}

}  // namespace lumo::mirrorsim
