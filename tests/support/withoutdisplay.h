// Removes the display variables for a scope, as on a machine with no
// window system: the dialog kit then shows nothing and its entry points
// answer that they need a display. Only for code that has not made the Qt
// application yet (queued test answers never make it).
#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kora::Test {

class WithoutDisplay {
public:
    WithoutDisplay()
    {
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
            const char* value = std::getenv(name);
            m_saved.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
            unsetenv(name);
        }
    }
    ~WithoutDisplay()
    {
        for (const auto& [name, value] : m_saved) {
            if (value) setenv(name, value->c_str(), 1);
        }
    }
    WithoutDisplay(const WithoutDisplay&) = delete;
    WithoutDisplay& operator=(const WithoutDisplay&) = delete;

private:
    std::vector<std::pair<const char*, std::optional<std::string>>> m_saved;
};

}  // namespace Kora::Test
