#pragma once

#include "machineFacts.hpp"
#include "terminalStyle.hpp"

#include <ostream>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// What `ravelctl doctor` can be told.
struct DoctorOptions
{
    bool json = false;
};

enum class Health
{
    Ok,
    CouldBeBetter,
    Bad  // the loop cannot hold on this machine, or gives wrong results
};

/// Something about the machine, what to think of it and, where something can be done, the command that does it.
struct Finding
{
    std::string name;
    std::string value;
    Health health = Health::Ok;
    std::string remedy;  // a command; "" where there is nothing to do or no command does it
};

const char* GetName(Health health);

/// In the order in which they are printed.
std::vector<Finding> Examine(const MachineFacts& facts);

/// For people: a line per finding, its remedy below it, and a last one that counts.
std::string FormatFindings(const std::vector<Finding>& findings, const Palette& palette = {});

/// For programs: a JSON object.
std::string FormatFindingsJson(const std::vector<Finding>& findings);

/// EXIT_FAILED when something is bad.
int GetExitStatus(const std::vector<Finding>& findings);

/// For standard error: a line for everything that is bad, with the remedy if there is one.
std::string FormatBadFindings(const std::vector<Finding>& findings);

/// The command: examines this machine and prints what it finds, and to `err` what is bad. Returns the exit status.
int RunDoctor(const DoctorOptions& options, std::ostream& out, std::ostream& err);

}  // namespace lumo::ravelctl
