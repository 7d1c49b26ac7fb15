#include <tessel/framework/CapabilityInterfaces.h>

namespace Tessel {

CustomUIView::~CustomUIView() = default;

CustomUIProviderInterface::~CustomUIProviderInterface() = default;

bool CustomUIProviderInterface::HasCustomSidebarUI(const std::u16string&, const any_regular_t&) {
    return false;
}

CustomUIViewRef CustomUIProviderInterface::GetCustomSidebarUI(const std::u16string&,
                                                              const any_regular_t&) {
    return nullptr;
}

bool CustomUIProviderInterface::HasCustomContentUI(const std::u16string&, const any_regular_t&) {
    return false;
}

CustomUIViewRef CustomUIProviderInterface::GetCustomContentUI(const std::u16string&,
                                                              const any_regular_t&) {
    return nullptr;
}

MenuProviderInterface::~MenuProviderInterface() = default;

void MenuProviderInterface::PostProcessProjectItemForMenuItemID(std::int32_t, ProjectItem&) {}

ProjectItemProviderInterface::~ProjectItemProviderInterface() = default;

}  // namespace Tessel
