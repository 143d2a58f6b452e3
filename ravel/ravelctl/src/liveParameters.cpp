#include "liveParameters.hpp"

#include "parameterFile.hpp"

#include <lumo/mirrorsim/geometry.hpp>

namespace lumo::ravelctl {

namespace {

namespace fs = std::filesystem;

LiveParameters::Parts RowParts(const std::vector<float>& matrix, int num_cols, const std::vector<ModeSlice>& slices)
{
    LiveParameters::Parts parts;
    parts.reserve(slices.size());
    for (const ModeSlice& slice : slices) {
        parts.push_back(RowsOf(matrix, num_cols, slice));
    }
    return parts;
}

void PublishMatrix(const LiveParameters::Parts& parts, MatrixHandover* handover)
{
    if (!parts.empty()) {
        handover->Publish(parts);
    }
}

std::unique_ptr<MatrixHandover> MakeHandover(bool wanted, const char* name, const std::vector<ModeSlice>& slices,
                                             int floats_per_mode)
{
    if (!wanted) {
        return nullptr;
    }
    std::vector<std::size_t> sizes;
    sizes.reserve(slices.size());
    for (const ModeSlice& slice : slices) {
        sizes.push_back(static_cast<std::size_t>(slice.count) * static_cast<std::size_t>(floats_per_mode));
    }
    return std::make_unique<MatrixHandover>(name, sizes);
}

}  // namespace

LiveParameters::LiveParameters(SliceSet& slices, int num_modes, const std::vector<float>& pid_params,
                               const Matrices& matrices)
    : m_slices(slices),
      m_num_modes(num_modes),
      m_mode_slices(slices.GetModeSlices()),
      m_gains("gains", static_cast<int>(pid_params.size())),
      m_single_gains("gains"),
      m_references("references", num_modes),
      m_single_references("references"),
      m_pdc_mask("PDC mask", num_modes),
      m_pdc_values("PDC values", num_modes),
      m_fdc_mask("FDC mask", num_modes),
      m_fdc_values("FDC values", num_modes),
      m_p2edc(MakeHandover(matrices.p2edc, "P2EDC", m_mode_slices, mirrorsim::NUM_ES)),
      m_pact2modes(MakeHandover(matrices.pact2modes, "PACT2MODES", m_mode_slices, mirrorsim::NUM_PACT)),
      m_modes2pact(MakeHandover(matrices.modes2pact, "MODES2PACT", m_mode_slices, mirrorsim::NUM_PACT)),
      m_pid_params(pid_params),
      m_references_um(static_cast<std::size_t>(num_modes)),
      m_taken_pdc_mask(m_references_um),
      m_taken_pdc_values(m_references_um),
      m_taken_fdc_mask(m_references_um),
      m_taken_fdc_values(m_references_um)
{
    m_gains.Init(pid_params);
}

// ---- the slow side

std::vector<float> LiveParameters::LoadGains(const fs::path& file) const
{
    return LoadParameterRow(file, m_gains.GetName(), m_gains.GetSize());
}

std::vector<float> LiveParameters::LoadReferences(const fs::path& file) const
{
    return LoadParameterRow(file, m_references.GetName(), m_references.GetSize());
}

LiveParameters::Parts LiveParameters::LoadP2Edc(const fs::path& file) const
{
    return RowParts(LoadParameterMatrix(file, "P2EDC", m_num_modes, mirrorsim::NUM_ES), mirrorsim::NUM_ES,
                    m_mode_slices);
}

LiveParameters::Parts LiveParameters::LoadPact2Modes(const fs::path& file) const
{
    return RowParts(LoadParameterMatrix(file, "PACT2MODES", m_num_modes, mirrorsim::NUM_PACT), mirrorsim::NUM_PACT,
                    m_mode_slices);
}

LiveParameters::Parts LiveParameters::LoadModes2Pact(const fs::path& file) const
{
    const std::vector<float> matrix = LoadParameterMatrix(file, "MODES2PACT", mirrorsim::NUM_PACT, m_num_modes);
    Parts parts;
    parts.reserve(m_mode_slices.size());
    for (const ModeSlice& slice : m_mode_slices) {
        parts.push_back(ColumnsOf(matrix, m_num_modes, slice));
    }
    return parts;
}

void LiveParameters::Publish(const Change& change)
{
    if (!change.gains.empty()) {
        m_gains.Set(change.gains);
    }
    if (!change.single_gains.empty()) {
        m_single_gains.Set(change.single_gains);
    }
    if (!change.references_um.empty()) {
        m_references.Set(change.references_um);
    }
    if (!change.single_references_um.empty()) {
        m_single_references.Set(change.single_references_um);
    }
    if (change.pdc) {
        m_pdc_values.Write(change.pdc->values);
        m_pdc_mask.Write(change.pdc->mask);
    }
    if (change.fdc) {
        m_fdc_values.Write(change.fdc->values);
        m_fdc_mask.Write(change.fdc->mask);
    }
    PublishMatrix(change.p2edc, m_p2edc.get());
    PublishMatrix(change.pact2modes, m_pact2modes.get());
    PublishMatrix(change.modes2pact, m_modes2pact.get());
}

// ---- the cycle's side

bool LiveParameters::StagePiece()
{
    for (MatrixHandover* handover : {m_p2edc.get(), m_pact2modes.get(), m_modes2pact.get()}) {
        if (handover != nullptr && handover->StagePiece()) {
            return true;
        }
    }
    return false;
}

bool LiveParameters::TakeOver()
{
    for (const MatrixHandover* handover : {m_p2edc.get(), m_pact2modes.get(), m_modes2pact.get()}) {
        if (handover != nullptr && handover->IsPending() && !handover->IsStaged()) {
            return false;
        }
    }
    TakeOverMatrix(m_p2edc.get(), &SliceSet::SwapP2Edc);
    TakeOverMatrix(m_pact2modes.get(), &SliceSet::SwapPact2Modes);
    TakeOverMatrix(m_modes2pact.get(), &SliceSet::SwapModes2Pact);
    // Whole vectors before single elements; both before what is derived from them.
    const bool all_gains = m_gains.TryRead(m_pid_params);
    const bool some_gains = m_single_gains.TryRead(m_pid_params);
    if (all_gains || some_gains) {
        m_slices.SetGains(m_pid_params);
    }
    m_references.TryRead(m_references_um);
    m_single_references.TryRead(m_references_um);
    const bool pdc_values = m_pdc_values.TryRead(m_taken_pdc_values);
    const bool pdc_mask = m_pdc_mask.TryRead(m_taken_pdc_mask);
    if (pdc_values || pdc_mask) {
        m_slices.SetPdc(m_taken_pdc_mask, m_taken_pdc_values);
    }
    const bool fdc_values = m_fdc_values.TryRead(m_taken_fdc_values);
    const bool fdc_mask = m_fdc_mask.TryRead(m_taken_fdc_mask);
    if (fdc_values || fdc_mask) {
        m_slices.SetFdc(m_taken_fdc_mask, m_taken_fdc_values);
    }
    return true;
}

void LiveParameters::TakeOverMatrix(MatrixHandover* handover, void (SliceSet::*swap)(int, std::vector<float>&))
{
    if (handover == nullptr || !handover->IsPending()) {
        return;
    }
    for (std::size_t slice = 0; slice < m_mode_slices.size(); ++slice) {
        (m_slices.*swap)(static_cast<int>(slice), handover->GetSpare(slice));
    }
    handover->Finish();
}

}  // namespace lumo::ravelctl
