// Optional capabilities of a provider. A provider class that also derives from one of
// these offers it; the wrapper finds it by a run-time cast, so a provider without it
// simply does not offer it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/framework/CustomUIView.h>
#include <tessel/framework/MenuEntry.h>
#include <tessel/framework/ProjectItem.h>
#include <tessel/platform/Export.h>

namespace Tessel {

// Paths as UTF-8 byte strings, states as any_regular_t, one per selected item.
using SelectedPaths = std::vector<std::string>;
using SelectedStates = std::vector<any_regular_t>;

class TESSEL_API CustomUIProviderInterface {
public:
    virtual ~CustomUIProviderInterface();
    virtual bool HasCustomSidebarUI(const std::u16string& path, const any_regular_t& state);
    virtual CustomUIViewRef GetCustomSidebarUI(const std::u16string& path,
                                               const any_regular_t& state);
    virtual bool HasCustomContentUI(const std::u16string& path, const any_regular_t& state);
    virtual CustomUIViewRef GetCustomContentUI(const std::u16string& path,
                                               const any_regular_t& state);
};

class TESSEL_API MenuProviderInterface {
public:
    virtual ~MenuProviderInterface();
    // Adds or changes entries of the context menu for the selected items.
    virtual void PostProcessContextMenu(Menu& menu, const SelectedPaths& paths,
                                        const SelectedStates& states) = 0;
    // Carries out command ID; true when the provider handled it.
    virtual bool OnMenuItemID(std::int32_t id, const SelectedPaths& paths,
                              const SelectedStates& states) = 0;
    // Tells whether command ID is enabled; true when the provider knows the command.
    virtual bool OnMenuItemIDStatus(std::int32_t id, const SelectedPaths& paths,
                                    const SelectedStates& states, bool& enabled) = 0;
    // Lets the provider adjust a project item made by command ID.
    virtual void PostProcessProjectItemForMenuItemID(std::int32_t id, ProjectItem& item);
};

// How project-based providers hand the items of project files to the host.
class TESSEL_API ProjectItemProviderInterface {
public:
    virtual ~ProjectItemProviderInterface();
    // The items directly inside a project or bin path (item paths under "CLSource://").
    virtual std::vector<ProjectItemRef> GetProjectItems(const std::string& path,
                                                        const any_regular_t& state) = 0;
    // One item by its item path; null when it does not exist.
    virtual ProjectItemRef GetProjectItem(const std::string& itemPath,
                                          const any_regular_t& state) = 0;
    // The project file an item path belongs to; empty when none.
    virtual std::string GetProjectPath(const std::string& itemPath) = 0;
    // The media files an item refers to, in the order the item uses them.
    virtual std::vector<std::string> GetMediaPaths(const std::string& itemPath,
                                                   const any_regular_t& state) = 0;
    // Whether the items can be imported into the host's project.
    virtual bool CanImportProjectItems(const SelectedPaths& paths,
                                       const SelectedStates& states) = 0;
    // Makes the project items for an import of the selected paths, in their order.
    virtual std::vector<ProjectItemRef> CreateProjectItemsForImport(
        const SelectedPaths& paths, const SelectedStates& states) = 0;
};

}  // namespace Tessel
