#include <tessel/framework/MenuEntry.h>

namespace Tessel {

MenuEntry MenuEntry::Command(std::int32_t id, std::u16string label, bool enabled) {
    MenuEntry entry;
    entry.kind = MenuEntryKind::Command;
    entry.id = id;
    entry.label = std::move(label);
    entry.enabled = enabled;
    return entry;
}

MenuEntry MenuEntry::Separator() {
    MenuEntry entry;
    entry.kind = MenuEntryKind::Separator;
    return entry;
}

MenuEntry MenuEntry::SubMenu(std::u16string label, std::vector<MenuEntry> children) {
    MenuEntry entry;
    entry.kind = MenuEntryKind::SubMenu;
    entry.label = std::move(label);
    entry.children = std::move(children);
    return entry;
}

void Menu::AppendSeparator() {
    if (!mEntries.empty() && mEntries.back().kind != MenuEntryKind::Separator) {
        mEntries.push_back(MenuEntry::Separator());
    }
}

namespace {

const MenuEntry* Find(const std::vector<MenuEntry>& entries, std::int32_t id) {
    for (const MenuEntry& e : entries) {
        if (e.kind == MenuEntryKind::Command && e.id == id)
            return &e;
        if (const MenuEntry* inner = Find(e.children, id))
            return inner;
    }
    return nullptr;
}

bool Remove(std::vector<MenuEntry>& entries, std::int32_t id) {
    for (auto it = entries.begin(); it != entries.end(); ++it) {
        if (it->kind == MenuEntryKind::Command && it->id == id) {
            entries.erase(it);
            return true;
        }
        if (Remove(it->children, id))
            return true;
    }
    return false;
}

}  // namespace

const MenuEntry* Menu::FindCommand(std::int32_t id) const {
    return Find(mEntries, id);
}

bool Menu::RemoveCommand(std::int32_t id) {
    return Remove(mEntries, id);
}

}  // namespace Tessel
