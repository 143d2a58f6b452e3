#include <lumo/ravelcore/doubleBuffer.hpp>
#include <lumo/ravelcore/modulation.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <log4cplus/logger.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

/// Writes the files that fitsReadback.py checks with tools that are not ours. Element k of each matrix is k / 8, time
/// stamp r is 1e9 + r / 500.
int main(int argc, char** argv)
{
    using namespace lumo::ravelcore;
    if (argc != 2) {
        std::cerr << "usage: fitsReadbackWriter DIRECTORY\n";
        return EXIT_FAILURE;
    }
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    const std::string directory = std::string(argv[1]) + "/";
    const auto matrix = [](int rows, int cols) {
        std::vector<float> values(static_cast<std::size_t>(rows * cols));
        for (std::size_t index = 0; index < values.size(); ++index) {
            values[index] = static_cast<float>(index) / 8.0F;
        }
        return values;
    };
    std::vector<double> timestamps(100);
    for (std::size_t row = 0; row < timestamps.size(); ++row) {
        timestamps[row] = 1e9 + static_cast<double>(row) / 500.0;
    }
    try {
        SaveMatrix(directory + "matrix.fits", "P2EDC", 3, 16, matrix(3, 16));
        SaveMatrix(directory + "column.fits", "gains", 5, 1, matrix(5, 1));
        SaveMatrix(directory + "wide.fits", "wide", 2, 5000, matrix(2, 5000));
        SaveMatrix(directory + "compressed.fits.gz", "packed", 4, 7, matrix(4, 7));
        SaveMatrixWithTimestamps(directory + "recording.fits", "modes_in", 90, 7, matrix(100, 7), timestamps);
        SaveMatrixWithTimestamps(directory + "scalar.fits", "one", 4, 1, matrix(4, 1), timestamps);
        SaveMatrix(directory + "replaced.fits", "old", 50, 50, matrix(50, 50));
        SaveMatrix(directory + "replaced.fits", "new", 1, 2, matrix(1, 2));
        Modulation modulation("tone", 6, 0.0F);
        modulation.Set(matrix(1, 4 * 6 + 5));  // the last sample is not whole
        modulation.Save(directory + "modulation.fits");
        DoubleBuffer parameters("offsets", 600);
        parameters.Set(matrix(1, 600));
        parameters.Save(directory + "parameters.fits");
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
