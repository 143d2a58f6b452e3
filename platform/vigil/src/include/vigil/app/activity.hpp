#pragma once

#include <brisk/configurablePthreadActivity.hpp>

namespace vigil::app {

/// The base of a supervisor application's activities: a named thread with a CPU and a priority of its own.
/// The derived class supplies Run(). It inherits the duty to be stopped and joined before it is destroyed.
class __attribute__((visibility("default"))) Activity : public brisk::ConfigurablePthreadActivity
{
public:
    using brisk::ConfigurablePthreadActivity::ConfigurablePthreadActivity;
};

}  // namespace vigil::app
