#pragma once

#include <string>

namespace chartkit {

/// Something that goes on while a state of the chart is active. Known to the chart by its id, which never changes.
/// Has an identity, so it is not copied.
class __attribute__((visibility("default"))) Activity
{
public:
    /// Thread: any. Real time: no (copies `id`).
    explicit Activity(const std::string& id) : m_id(id) {}
    virtual ~Activity() = default;

    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;

    /// The name given at construction. Thread: any. Real time: yes. Data: valid as long as the activity.
    const std::string& getId() const noexcept { return m_id; }

private:
    const std::string m_id;
};

}  // namespace chartkit
