// The image-resource table: what registrars add becomes findable between Setup and Release.
#include <tessel/media/ImageResources.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <thread>

namespace Tessel {
namespace {

// Registered the way a layer that owns artwork does: static objects made before main.
const std::uint8_t kNamedBytes[] = {0x89, 'P', 'N', 'G', 1, 2, 3};
const std::uint8_t kNumberedBytes[] = {0, 0, 1, 0};
const std::uint8_t kUnnumberedBytes[] = {'<', 's', 'v', 'g'};

const ImageResourceRegistrar kNamed(ImageResource{"PNG", "TestsNamedArtwork.png", 990001,
                                                  std::span(kNamedBytes)});
const ImageResourceRegistrar kNumbered(ImageResource{"ICON", "", 990002,
                                                     std::span(kNumberedBytes)});
const ImageResourceRegistrar kUnnumbered(ImageResource{"SVG", "TestsUnnumbered.svg", 0,
                                                       std::span(kUnnumberedBytes)});

long CountOf(const std::vector<ImageResource>& all, std::string_view name, int id) {
    return std::count_if(all.begin(), all.end(),
                         [&](const ImageResource& r) { return r.name == name && r.id == id; });
}

TEST(ImageResources, FoundOnlyBetweenSetupAndRelease) {
    ImageResources::Release();
    EXPECT_FALSE(ImageResources::Find("PNG", "TestsNamedArtwork.png"));
    EXPECT_FALSE(ImageResources::FindById(990001));
    EXPECT_TRUE(ImageResources::All().empty());
    ImageResources::Setup();
    ImageResources::Setup();  // a second start-up must not list anything twice
    const auto named = ImageResources::Find("PNG", "TestsNamedArtwork.png");
    ASSERT_TRUE(named);
    EXPECT_EQ(named->id, 990001);
    // The bytes are the registrar's own, not a copy that could die with the table.
    EXPECT_EQ(named->bytes.data(), kNamedBytes);
    EXPECT_EQ(named->bytes.size(), sizeof(kNamedBytes));
    const auto byId = ImageResources::FindById(990002);
    ASSERT_TRUE(byId);
    EXPECT_EQ(byId->bytes.data(), kNumberedBytes);
    // Type and name must both match, exactly; a numbered resource has no name to be found
    // by, and 0 is no number.
    const std::pair<const char*, const char*> misses[] = {{"SVG", "TestsNamedArtwork.png"},
                                                          {"PNG", "TestsNamedArtwork"},
                                                          {"PNG", "testsnamedartwork.png"},
                                                          {"ICON", ""}};
    for (const auto& [type, name] : misses)
        EXPECT_FALSE(ImageResources::Find(type, name)) << type << " " << name;
    EXPECT_FALSE(ImageResources::FindById(0));
    EXPECT_FALSE(ImageResources::FindById(-990001));
    EXPECT_TRUE(ImageResources::Find("SVG", "TestsUnnumbered.svg"));
    const auto all = ImageResources::All();
    EXPECT_EQ(CountOf(all, "TestsNamedArtwork.png", 990001), 1);
    EXPECT_EQ(CountOf(all, "", 990002), 1);
    EXPECT_EQ(CountOf(all, "TestsUnnumbered.svg", 0), 1);
    ImageResources::Release();
    EXPECT_FALSE(ImageResources::IsSetUp());
    EXPECT_FALSE(ImageResources::FindById(990002));
    EXPECT_EQ(named->bytes[1], 'P') << "a span found earlier still points at live bytes";
    ImageResources::Setup();  // and the host may start again
    EXPECT_TRUE(ImageResources::FindById(990001));
    ImageResources::Release();
}

TEST(ImageResources, LookupsRaceStartUpAndShutDownSafely) {
    std::atomic<bool> stop{false};
    std::atomic<int> found{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 2; ++t) {
        readers.emplace_back([&] {
            while (!stop.load()) {
                // Either found with the right bytes, or not found at all; never half made.
                if (auto r = ImageResources::Find("PNG", "TestsNamedArtwork.png")) {
                    EXPECT_EQ(r->bytes.data(), kNamedBytes);
                    ++found;
                }
                ImageResources::All();
            }
        });
    }
    for (int i = 0; i < 500; ++i) {
        ImageResources::Setup();
        ImageResources::Release();
    }
    stop = true;
    for (auto& reader : readers)
        reader.join();
    EXPECT_FALSE(ImageResources::IsSetUp());
}

}  // namespace
}  // namespace Tessel
