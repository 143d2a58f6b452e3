#pragma once

#include <lumo/mirrorsim/controlModes.hpp>
#include <lumo/mirrorsim/geometry.hpp>

#include <filesystem>
#include <functional>
#include <string>

namespace lumo::ravelctl {

/// Where matrices are kept when no folder is named: "ravelctl/mirror-1" in $XDG_CACHE_HOME or ~/.cache. The number
/// changes whenever the simulated mirror's matrices do.
std::filesystem::path DefaultMatrixFolder();

/// The first `num_modes` control modes, from "P2EDC.fits", "PACT2MODES.fits" and "MODES2PACT.fits" in `folder`; where
/// one is missing, all are computed and written there first. The files hold all modes. A file appears under its name
/// only when it is whole. The eigenvalues are not kept. `say` is told what takes long. Real time: no. Failure: RunError
/// that names the file: unreadable, of another shape, or not to be written.
mirrorsim::ControlModes LoadOrComputeModes(const mirrorsim::Geometry& geometry, const std::filesystem::path& folder,
                                           int num_modes, const std::function<void(const std::string&)>& say);

}  // namespace lumo::ravelctl
