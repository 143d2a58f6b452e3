#include "manPage.hpp"

#include "error.hpp"
#include "helpText.hpp"
#include "programNotes.hpp"

#include <fmt/core.h>

#include <sstream>

namespace lumo::ravelctl {

namespace {

constexpr const char* CONFIGURATION = R"(.SH CONFIGURATION
One file in TOML covers what the options of a run cover.
.B ravelctl config
prints it, each entry with its meaning, unit and default;
.B ravelctl run
.I FILE
takes it.
What the command line says overrides it.
Each run leaves what repeats it in its output folder, as config.toml.
A key that is not known, a value of the wrong type or one out of range is refused with file, line, what was expected and
the nearest known key.
.PP
A script of changes to make while the loop runs (gains, matrices, saves) is a TOML file as well, given to a run with
.BR \-\-script .
)";

/// Text in which nothing means anything to the formatter.
std::string Escape(const std::string& text)
{
    std::string escaped;
    for (const char letter : text) {
        if (letter == '\\') {
            escaped += "\\e";
        } else if (letter == '-') {
            escaped += "\\-";
        } else if (letter == '~') {
            escaped += "\\(ti";
        } else if (letter == '^') {
            escaped += "\\(ha";
        } else if (letter == '\'') {
            escaped += "\\(aq";
        } else if (letter == '`') {
            escaped += "\\(ga";
        } else {
            escaped += letter;
        }
    }
    return escaped.starts_with('.') ? "\\&" + escaped : escaped;
}

/// A line that stands as it is, with its indentation.
std::string Verbatim(const std::string& line)
{
    return "\\&" + Escape(line) + "\n";
}

std::string FormatEntry(const std::string& name, const std::string& meaning)
{
    return fmt::format(".TP\n\\fB{}\\fR\n{}\n", Escape(name), Escape(meaning));
}

std::string FormatEntries(const std::vector<OptionOutline>& entries)
{
    std::string text;
    for (const OptionOutline& entry : entries) {
        text += FormatEntry(FormatName(entry), entry.description);
    }
    return text;
}

std::string FormatFooterLines(const std::string& footer)
{
    std::string text = ".PP\n";
    bool verbatim = false;
    std::istringstream lines(footer);
    for (std::string line; std::getline(lines, line);) {
        const bool is_verbatim = line.starts_with(' ');
        if (is_verbatim != verbatim && !line.empty()) {
            text += is_verbatim ? ".PP\n.nf\n" : ".fi\n.PP\n";
            verbatim = is_verbatim;
        }
        text += line.empty() ? ".PP\n" : is_verbatim ? Verbatim(line) : Escape(line) + "\n";
    }
    return text + (verbatim ? ".fi\n" : "");
}

std::string FormatCommand(const CommandOutline& command)
{
    std::string text = fmt::format(".SS ravelctl {} {}\n{}.\n", Escape(command.name), Escape(FormatSynopsis(command)),
                                   Escape(command.description));
    text += FormatEntries(command.arguments) + FormatEntries(command.options);
    return text + (command.footer.empty() ? "" : FormatFooterLines(command.footer));
}

std::string FormatTop(const ProgramOutline& program, const std::string& version)
{
    std::string text = fmt::format(
        ".\\\" Printed by ravelctl --man-page.\n"
        ".TH RAVELCTL 1 \"\" \"ravelctl {}\" \"User Commands\"\n"
        ".SH NAME\nravelctl \\- {}\n.SH SYNOPSIS\n",
        Escape(version), Escape(program.program.description));
    for (const CommandOutline& command : program.commands) {
        text += fmt::format(".B ravelctl {}\n{}\n.br\n", Escape(command.name), Escape(FormatSynopsis(command)));
    }
    return text + fmt::format(
                      ".SH DESCRIPTION\n"
                      "{}.\nThe mirror is simulated, in full size; the loop's core is the one of the real machine.\n"
                      "Progress and results go to standard output, each error as one line to standard error.\n"
                      "A file appears under its name only when it is whole; until then an old one stays.\n",
                      Escape(program.program.description));
}

}  // namespace

std::string FormatManPage(const ProgramOutline& program, const std::string& version)
{
    std::string text = FormatTop(program, version) + ".SH OPTIONS\n" + FormatEntries(program.program.options);
    text += ".SH COMMANDS\n";
    for (const CommandOutline& command : program.commands) {
        text += FormatCommand(command);
    }
    text += CONFIGURATION;
    text += ".SH FILES\n.I DIR\nis the folder of\n.BR \\-\\-output .\n";
    for (const ProgramNote& file : WRITTEN_FILES) {
        text += FormatEntry(file.name, file.meaning);
    }
    text += ".SH EXIT STATUS\n";
    for (const ExitStatus& status : EXIT_STATUSES) {
        text += FormatEntry(std::to_string(status.status), status.meaning);
    }
    text += ".SH ENVIRONMENT\n";
    for (const ProgramNote& variable : ENVIRONMENT_VARIABLES) {
        text += FormatEntry(variable.name, variable.meaning);
    }
    text += ".SH EXAMPLES\nA night's walk:\n.PP\n.nf\n";
    for (const char* example : NIGHT_EXAMPLES) {
        text += Verbatim(std::string("  ") + example);
    }
    return text + ".fi\n.SH SEE ALSO\n.BR fitsverify (1),\n.BR taskset (1),\n.BR chrt (1),\n.BR limits.conf (5)\n";
}

}  // namespace lumo::ravelctl
