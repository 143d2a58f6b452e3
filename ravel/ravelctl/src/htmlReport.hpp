#pragma once

#include "reportData.hpp"

#include <filesystem>
#include <string>
#include <string_view>

namespace lumo::ravelctl {

/// What is said where there is no page to write.
inline constexpr const char* NO_PAGE = "no report.html: this ravelctl was built without npm";

/// The page without its data, as it was built in; empty where this program was built without npm.
std::string_view ReportTemplate();

/// The data as the page's script reads them: JSON that can stand within an HTML script element, whatever the texts in
/// it are.
std::string ReportJson(const ReportData& data);

/// Writes the page, one file that needs nothing else. Thread: a slow one. Real time: no.
/// Failure: RunError, also where the page was not built in.
void WriteHtmlReport(const ReportData& data, const std::filesystem::path& file);

}  // namespace lumo::ravelctl
