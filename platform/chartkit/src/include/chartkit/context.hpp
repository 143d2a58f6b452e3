#pragma once

namespace chartkit {

/// What a state chart hands to the activities that it starts and stops.
/// An application derives its own from it, to carry what its activities need; the activities here use none of it.
/// Owned by the caller; an activity keeps no reference to it.
class __attribute__((visibility("default"))) Context
{
public:
    Context() = default;
    virtual ~Context() = default;

    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
};

}  // namespace chartkit
