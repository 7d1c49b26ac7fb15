// Menu entries that providers add to the host's context menus. A menu is a list of
// entries; an entry with children is a sub-menu. Command IDs are the provider's own and
// come back through MenuProviderInterface::OnMenuItemID.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tessel/platform/Export.h>

namespace Tessel {

enum class MenuEntryKind { Command, Separator, SubMenu };

struct TESSEL_API MenuEntry {
    MenuEntryKind kind = MenuEntryKind::Command;
    std::int32_t id = 0;   // command ID; 0 for separators and sub-menus
    std::u16string label;  // localized text
    bool enabled = true;
    bool checked = false;
    std::vector<MenuEntry> children;  // entries of a sub-menu

    static MenuEntry Command(std::int32_t id, std::u16string label, bool enabled = true);
    static MenuEntry Separator();
    static MenuEntry SubMenu(std::u16string label, std::vector<MenuEntry> children);
};

class TESSEL_API Menu {
public:
    std::vector<MenuEntry>& Entries() { return mEntries; }
    const std::vector<MenuEntry>& Entries() const { return mEntries; }
    void Append(MenuEntry entry) { mEntries.push_back(std::move(entry)); }
    // Adds a separator unless the menu is empty or already ends with one.
    void AppendSeparator();
    // The entry with command ID ID, searched through sub-menus; null when absent.
    const MenuEntry* FindCommand(std::int32_t id) const;
    bool RemoveCommand(std::int32_t id);

private:
    std::vector<MenuEntry> mEntries;
};

}  // namespace Tessel
