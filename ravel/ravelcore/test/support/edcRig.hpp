#pragma once

#include "logCapture.hpp"

#include <lumo/ravelcore/names.hpp>
#include <lumo/ravelcore/taskEdc.hpp>

#include <cstddef>
#include <random>
#include <vector>

namespace lumo::ravelcore::test {

/// An initialised TaskEdc with its recorders and measurements, and DEBUG off: with DEBUG on a small task ends the
/// process in its first cycle.
struct EdcRig
{
    EdcRig(int num_pact, int num_es, int num_modes, int num_samples = 64)
        : es(static_cast<std::size_t>(num_es)), sut(7, num_pact, num_es, num_modes, rec_in, rec_out, num_samples)
    {
        sut.Initialize();
        sut.m_es_meas = es.data();
    }

    /// Measurement, actuator value and reference i belong to mode i, unchanged.
    void SetIdentities()
    {
        const auto modes = static_cast<std::size_t>(sut.m_num_modes);
        const auto pact = static_cast<std::size_t>(sut.m_num_pact);
        for (std::size_t mode = 0; mode < modes; ++mode) {
            if (mode < es.size()) {
                sut.m_p2edc[mode * es.size() + mode] = 1.0F;
            }
            if (mode < pact) {
                sut.m_pact2modes[mode * pact + mode] = 1.0F;
                sut.m_modes2pact[mode * modes + mode] = 1.0F;
            }
        }
    }

    LogCapture log{LOGGER_RAVELCORE, log4cplus::INFO_LOG_LEVEL};
    Recorder rec_in{"in"};
    Recorder rec_out{"out"};
    std::vector<float> es;
    TaskEdc sut;
};

/// `size` integers of -range to range; all products and sums of few thousands of them are exact in float.
inline std::vector<float> Integers(std::size_t size, int range, std::mt19937& random)
{
    std::vector<float> values(size);
    for (float& value : values) {
        value = static_cast<float>(static_cast<int>(random() % static_cast<unsigned>(2 * range + 1)) - range);
    }
    return values;
}

/// `size` numbers of -1 to 1.
inline std::vector<float> Fractions(std::size_t size, std::mt19937& random)
{
    std::vector<float> values(size);
    for (float& value : values) {
        value = static_cast<float>(static_cast<double>(random()) / 2147483648.0 - 1.0);
    }
    return values;
}

}  // namespace lumo::ravelcore::test
