#pragma once

#include "matrixHandover.hpp"
#include "sliceSet.hpp"

#include <lumo/ravelcore/doubleBuffer.hpp>
#include <lumo/ravelcore/doubleMap.hpp>
#include <lumo/ravelcore/lazyBuffer.hpp>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace lumo::ravelctl {

/// The parameters of a running loop as a slow thread sees them, and the cycle's side, which takes them over between two
/// cycles. Modes are numbered over all slices.
class LiveParameters
{
public:
    /// Which matrices can be exchanged: each takes three times its own memory.
    struct Matrices
    {
        bool p2edc = false;
        bool pact2modes = false;
        bool modes2pact = false;
    };

    /// `pid_params`: those in force, 10 floats per mode. `slices` must outlive this. Real time: no.
    LiveParameters(SliceSet& slices, int num_modes, const std::vector<float>& pid_params, const Matrices& matrices);

    // The slow side. Thread: one slow one. Real time: no.

    /// A slice's part of a matrix after the other.
    using Parts = std::vector<std::vector<float>>;

    /// A mask (1: replace the measured mode) and the values, one of each per mode.
    struct Replacement
    {
        std::vector<float> mask;
        std::vector<float> values;
    };

    /// What changes at once; what is empty stays as it is.
    struct Change
    {
        std::vector<float> gains;                   // of all channels, 10 floats per mode
        std::map<int, float> single_gains;          // by their place in that list
        std::vector<float> references_um;           // added to all references, one float per mode
        std::map<int, float> single_references_um;  // by mode
        std::optional<Replacement> pdc;
        std::optional<Replacement> fdc;
        Parts p2edc;
        Parts pact2modes;
        Parts modes2pact;
    };

    // The files hold what the loop began with: one row of 10 floats or one float per mode, matrices of the same shape.
    // Failure: InputError with the shape that was expected and the one that came, or a value that is not finite.

    std::vector<float> LoadGains(const std::filesystem::path& file) const;
    std::vector<float> LoadReferences(const std::filesystem::path& file) const;
    Parts LoadP2Edc(const std::filesystem::path& file) const;
    Parts LoadPact2Modes(const std::filesystem::path& file) const;
    Parts LoadModes2Pact(const std::filesystem::path& file) const;

    /// Leaves a change for the cycle to take over; matrices only those of the constructor. The change before must have
    /// been taken over.
    void Publish(const Change& change);

    // The cycle's side. Thread: the cycle's, between cycles. Real time: yes.

    /// Brings one piece of a published matrix nearer. False when there is nothing left to bring.
    bool StagePiece();

    /// Takes over everything that is published, or, where a matrix is not whole on this side yet, nothing, and returns
    /// false. The slow side must not be writing: CycleRequests sees to that.
    bool TakeOver();

    /// The parameters of all channels that are in force. Thread: also the slow one, once what it has published is taken
    /// over and before it publishes anything else.
    const std::vector<float>& GetGains() const { return m_pid_params; }

    /// What is added to the references, um, one value per mode.
    std::span<const float> GetReferences() const { return m_references_um; }

private:
    void TakeOverMatrix(MatrixHandover* handover, void (SliceSet::*swap)(int, std::vector<float>&));

    SliceSet& m_slices;
    int m_num_modes;
    std::vector<ModeSlice> m_mode_slices;
    ravelcore::DoubleBuffer m_gains;
    ravelcore::DoubleMap m_single_gains;
    ravelcore::DoubleBuffer m_references;
    ravelcore::DoubleMap m_single_references;
    ravelcore::LazyBuffer m_pdc_mask;
    ravelcore::LazyBuffer m_pdc_values;
    ravelcore::LazyBuffer m_fdc_mask;
    ravelcore::LazyBuffer m_fdc_values;
    std::unique_ptr<MatrixHandover> m_p2edc;
    std::unique_ptr<MatrixHandover> m_pact2modes;
    std::unique_ptr<MatrixHandover> m_modes2pact;

    // The cycle's copies: what is in force.
    std::vector<float> m_pid_params;
    std::vector<float> m_references_um;
    std::vector<float> m_taken_pdc_mask;
    std::vector<float> m_taken_pdc_values;
    std::vector<float> m_taken_fdc_mask;
    std::vector<float> m_taken_fdc_values;
};

}  // namespace lumo::ravelctl
