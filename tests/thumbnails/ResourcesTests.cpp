// The resources folder: overrides in their order, and the build tree's copy of the pictures
// that a library used before installation falls back to.
#include <tessel/thumbnails/Resources.h>

#include <gtest/gtest.h>

#include <filesystem>

#include <tessel/foundation/Settings.h>

#include "support/Environment.h"

namespace Tessel {
namespace {

TEST(Resources, OverridesInOrderThenTheLibrarysOwnFolder) {
    Settings::Reset(kSettingResourcesFolder);
    Tessel::Test::SetEnvironment("TESSEL_RESOURCES", "");
    // Uninstalled, the library finds the build tree's copy, with the provider pictures in it.
    const std::string found = GetResourcesFolder();
    ASSERT_FALSE(found.empty());
    EXPECT_NE(found.back(), '/');
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::path(found) / "PNG" /
                                                 "REDVideoThumb.png"));

    // The environment replaces it, the settings database replaces both; neither is checked.
    // An empty value counts as no value.
    Tessel::Test::SetEnvironment("TESSEL_RESOURCES", "/from/environment");
    EXPECT_EQ(GetResourcesFolder(), "/from/environment");
    Settings::Set(kSettingResourcesFolder, std::string("/from/settings"));
    EXPECT_EQ(GetResourcesFolder(), "/from/settings");
    Settings::Set(kSettingResourcesFolder, std::string());
    EXPECT_EQ(GetResourcesFolder(), "/from/environment");
    Tessel::Test::SetEnvironment("TESSEL_RESOURCES", "");
    Settings::Reset(kSettingResourcesFolder);
    EXPECT_EQ(GetResourcesFolder(), found);
}

}  // namespace
}  // namespace Tessel
