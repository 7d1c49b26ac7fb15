// Items of project files (the host's own projects, another application's projects, bins)
// as project-based providers hand them to the host. Their item paths live under
// "CLSource://".
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <tessel/foundation/AnyRegular.h>
#include <tessel/platform/Export.h>

namespace Tessel {

enum class ProjectItemKind { Clip, Sequence, Composition, Bin, Still, Audio, Other };

struct TESSEL_API ProjectItem {
    std::string itemPath;  // "CLSource://..." path of the item (UTF-8)
    std::string name;      // display name
    ProjectItemKind kind = ProjectItemKind::Other;
    std::string projectPath;              // the project file that holds the item
    std::vector<std::string> mediaPaths;  // media files the item refers to
    std::int64_t durationFrames = -1;     // -1 when unknown
    std::string frameRate;                // "25", "30000/1001"; empty when unknown
    any_regular_t state;                  // the provider's own state for the item

    friend bool operator==(const ProjectItem&, const ProjectItem&) = default;
};

using ProjectItemRef = std::shared_ptr<ProjectItem>;

}  // namespace Tessel
