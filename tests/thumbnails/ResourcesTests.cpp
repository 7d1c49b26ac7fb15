// The resources folder: overrides in their order, and the build tree's copy of the pictures
// that a library used before installation falls back to.
#include <tessel/thumbnails/Resources.h>

#include <gtest/gtest.h>

#include <filesystem>

#include <tessel/foundation/Settings.h>
#include <tessel/platform/ModulePath.h>

#include "support/Environment.h"

namespace Tessel {
namespace {

TEST(Resources, OverridesInOrderThenTheLibrarysOwnFolder) {
    Settings::Reset(kSettingResourcesFolder);
    Tessel::Test::SetEnvironment("TESSEL_RESOURCES", "");

    // Uninstalled, the library finds the build tree's copy, with every provider picture in it.
    const std::string found = GetResourcesFolder();
    ASSERT_FALSE(found.empty());
    EXPECT_NE(found.back(), '/');
    for (const char* name :
         {"ContainsVideoThumb.png", "CinemaDNGThumb.png", "ArriThumb.png", "REDVideoThumb.png"}) {
        EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::path(found) / "PNG" / name))
            << name;
    }

    // The environment replaces it, the settings database replaces both; neither is checked.
    Tessel::Test::SetEnvironment("TESSEL_RESOURCES", "/from/environment");
    EXPECT_EQ(GetResourcesFolder(), "/from/environment");
    Settings::Set(kSettingResourcesFolder, std::string("/from/settings"));
    EXPECT_EQ(GetResourcesFolder(), "/from/settings");
    // An empty value counts as no value.
    Settings::Set(kSettingResourcesFolder, std::string());
    EXPECT_EQ(GetResourcesFolder(), "/from/environment");
    Tessel::Test::SetEnvironment("TESSEL_RESOURCES", "");
    Settings::Reset(kSettingResourcesFolder);
    EXPECT_EQ(GetResourcesFolder(), found);

    // The library's folder is absolute and holds the library.
    const std::filesystem::path library(Platform::LibraryDirectory());
    ASSERT_TRUE(library.is_absolute()) << library;
    bool holdsLibrary = false;
    for (const auto& entry : std::filesystem::directory_iterator(library)) {
        const std::string name = entry.path().filename().string();
        holdsLibrary = holdsLibrary || name.starts_with("libtessel.") ||
                       name.starts_with("libtessel-") || name == "tessel.dll" ||
                       name == "libtessel.dll";
    }
    EXPECT_TRUE(holdsLibrary) << library;
}

}  // namespace
}  // namespace Tessel
