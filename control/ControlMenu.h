#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace lumenar::control {

/// The control's menu resource: id 2210, whose first (only) submenu "_POPUP_" is the context menu.
inline constexpr int kMenuContext = 2210;
inline constexpr std::uint32_t kCommandPlay = 0x8008;
inline constexpr std::uint32_t kCommandStop = 0x8009;

struct MenuItemResource
{
    std::string_view text;
    std::uint32_t command;
};

struct SubmenuResource
{
    std::string_view name;
    std::span<const MenuItemResource> items;
};

inline constexpr MenuItemResource kPopupItems[] = {
    {"Play", kCommandPlay},
    {"Stop", kCommandStop},
};
inline constexpr SubmenuResource kContextSubmenus[] = {
    {"_POPUP_", kPopupItems},
};

/// The submenus of menu resource `id`; empty for an id the control does not have.
constexpr std::span<const SubmenuResource> LoadMenuResource(int id)
{
    if (id == kMenuContext)
        return kContextSubmenus;
    return {};
}

} // namespace lumenar::control
