#pragma once

#include <cstdint>

/// What a thread finds out about itself, and does for itself.
namespace lumo::ravelctl {

/// How the system runs a thread.
struct GrantedPlace
{
    int cpu = -1;      // -1: more than one
    int priority = 0;  // real-time priority; 0: ordinary scheduling
};

/// The place of the calling thread.
GrantedPlace FindOwnPlace();

/// Touches the part of the calling thread's stack that a cycle may need, so that no page of it is still to be found.
void TouchOwnStack();

/// Page faults of the calling thread so far. Real time: a system call.
std::int64_t CountOwnPageFaults();

}  // namespace lumo::ravelctl
