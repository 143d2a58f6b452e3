#pragma once

#include <map>
#include <string>

namespace lumo::ravelctl {

/// Where options were said that were not said on the command line, so that a message about a value names what its
/// reader has written. Thread: one at a time.
class OptionPlaces
{
public:
    /// `option`, such as "--open-loop", stands at `place`, such as "night.toml:4:13: open_loop".
    void Set(const std::string& option, const std::string& place) { m_places[option] = place; }

    /// The command line has said it after all.
    void Forget(const std::string& option) { m_places.erase(option); }

    /// Whether a file says the option, and not the command line.
    bool Has(const std::string& option) const { return m_places.contains(option); }

    /// What this says of `option`, `others` then say of `name`.
    void Move(const std::string& option, const std::string& name, OptionPlaces& others) const
    {
        others.m_places.erase(name);
        if (const auto found = m_places.find(option); found != m_places.end()) {
            others.m_places[name] = found->second;
        }
    }

    /// What to call the option in a message: its place, or itself.
    std::string Name(const std::string& option) const
    {
        const auto found = m_places.find(option);
        return found == m_places.end() ? option : found->second;
    }

private:
    std::map<std::string, std::string> m_places;  // by option
};

}  // namespace lumo::ravelctl
