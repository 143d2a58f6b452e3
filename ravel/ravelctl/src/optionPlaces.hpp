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
