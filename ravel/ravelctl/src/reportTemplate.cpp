#include "htmlReport.hpp"

// The page is a file of the build. The assembler takes it in as it is, so no compiler has to read half a megabyte of
// text; the macro holds the file's name, and is missing where the page was not built.
#ifdef RAVELCTL_REPORT_TEMPLATE

__asm__(
    ".pushsection .rodata\n"
    ".global ravelctl_report_template\n"
    ".hidden ravelctl_report_template\n"
    "ravelctl_report_template:\n"
    ".incbin \"" RAVELCTL_REPORT_TEMPLATE
    "\"\n"
    ".byte 0\n"
    ".popsection\n");

extern "C" const char ravelctl_report_template[];

namespace lumo::ravelctl {

std::string_view ReportTemplate()
{
    return static_cast<const char*>(ravelctl_report_template);
}

}  // namespace lumo::ravelctl

#else

namespace lumo::ravelctl {

std::string_view ReportTemplate()
{
    return {};
}

}  // namespace lumo::ravelctl

#endif
