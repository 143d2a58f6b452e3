#pragma once

#include <string>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace lumo::ravelctl {

/// What to say, in one line, of a command line that `app` could not parse: what was expected, what came, where to look.
/// The parser's own words would say of a misspelt command that one is missing, and of a bad number not what is a good
/// one.
std::string ExplainRefusal(const CLI::App& app, const CLI::ParseError& error);

}  // namespace lumo::ravelctl
