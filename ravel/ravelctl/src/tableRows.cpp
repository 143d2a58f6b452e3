#include "tableRows.hpp"

#include <fitsio.h>

namespace lumo::ravelctl {

std::optional<std::int64_t> CountTableRows(const std::string& file)
{
    fitsfile* fits = nullptr;
    int status = 0;
    LONGLONG rows = 0;
    fits_open_diskfile(&fits, file.c_str(), READONLY, &status);
    fits_movabs_hdu(fits, 2, nullptr, &status);
    fits_read_key(fits, TLONGLONG, "NAXIS2", &rows, nullptr, &status);
    if (fits != nullptr) {
        int ignored = 0;
        fits_close_file(fits, &ignored);
    }
    return status == 0 ? std::optional<std::int64_t>(rows) : std::nullopt;
}

}  // namespace lumo::ravelctl
