#include "app/PhotoFolder.h"

#include "app/PhotoNormaliser.h"
#include "platform/CodePage.h"

#include <gtest/gtest.h>

#include <map>

namespace lumenar::app {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(PhotoFolder, SortsNamesInNaturalOrder)
{
    struct Row
    {
        const char* a;
        const char* b;
        bool less;
    } rows[] = {
        {"IMG_2.jpg", "IMG_10.jpg", true},   {"IMG_10.jpg", "IMG_2.jpg", false},
        {"img_2.jpg", "IMG_10.jpg", true},   {"IMG_9.jpg", "IMG_10.jpg", true},
        {"IMG_010.jpg", "IMG_9.jpg", false}, {"a10b2", "a10b10", true},
        {"photo.jpg", "photo 2.jpg", false}, {"99999999999999999999", "100000000000000000000", true},
        {"IMG_1.jpg", "IMG_01.jpg", true},   {"IMG_01.jpg", "IMG_1.jpg", false},
        {"IMG_2.jpg", "IMG_2.jpg", false},   {"", "a", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.a) + " < " + row.b);
        EXPECT_EQ(NaturalLess(row.a, row.b), row.less);
    }
}

TEST(PhotoFolder, ManifestQuotesNamesAndCaptionsWithoutExtension)
{
    FolderFilmOptions options;
    options.captionNames = true;
    options.seconds = 3;
    std::map<std::string, Bytes> seen;
    const std::vector<std::string> names = {"a \"b\".jpg", "c\\d.png", ".hidden.webp"};
    auto film = ReadFilmManifest(
        FolderManifest(names, options),
        [&](const std::string& name) -> base::Result<Bytes> {
            seen[name] = {1};
            return Bytes{0xFF, 0xD8, 0xFF, static_cast<std::uint8_t>(seen.size())};
        },
        [](FilmPicture picture, PictureRole role, int item) -> base::Result<FilmPicture> {
            EXPECT_EQ(role, PictureRole::Photo);
            picture.name = std::to_string(item) + picture.name;
            return picture;
        });
    ASSERT_TRUE(film.ok()) << film.error().message;
    EXPECT_EQ(seen.size(), 3u);
    ASSERT_EQ(film->film.ItemCount(), 3);
    const char* captions[] = {"a \"b\"", "c\\d", ".hidden"};
    // The film keeps base names: a backslash separates folders, as in the manifest.
    const char* filmNames[] = {"4_1a \"b\".jpg", "4_2d.png", "4_3.hidden.webp"};
    for (int i = 0; i < 3; ++i) {
        const film::FilmItem item = film->film.GetItem(i + 1);
        EXPECT_EQ(item.photo.cstrName, filmNames[i]);
        EXPECT_EQ(item.displaySeconds, 3);
        EXPECT_EQ(item.effect, kFolderEffect);
        ASSERT_EQ(item.texts.size(), 1u);
        EXPECT_EQ(item.texts[0].text, captions[i]);
    }
    // Names in another script take the first code page that holds them all.
    auto japanese = ReadFilmManifest(FolderManifest({"東京.jpg", "テスト 2.jpg"}, options),
                                     [](const std::string&) -> base::Result<Bytes> {
                                         return Bytes{0xFF, 0xD8};
                                     });
    ASSERT_TRUE(japanese.ok()) << japanese.error().message;
    const film::FilmText caption = japanese->film.GetItem(1).texts.at(0);
    EXPECT_EQ(caption.style.font.charSet, 128); // Shift-JIS.
    EXPECT_EQ(platform::ToUtf8(caption.text, 932), "東京");
}

TEST(PhotoNormaliser, ShrinksByAveragingTheAreaCovered)
{
    // Columns alternate black and white; rows of the left and right halves differ in blue.
    platform::BgrxPicture picture{8, 4, Bytes(8 * 4 * 4)};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x) {
            std::uint8_t* p = &picture.pixels[std::size_t(y * 8 + x) * 4];
            p[0] = x < 4 ? 0 : 200;
            p[1] = p[2] = x % 2 == 0 ? 0 : 255;
        }
    struct Row
    {
        int width, height;
        int leftBlue, rightBlue, green;
    } rows[] = {{4, 2, 0, 200, 128}, {2, 1, 0, 200, 128}, {3, 4, 0, 200, 96}, {8, 4, 0, 200, 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.width) + "x" + std::to_string(row.height));
        const platform::BgrxPicture out = ShrinkPicture(picture, row.width, row.height);
        ASSERT_EQ(out.pixels.size(), std::size_t(row.width * row.height * 4));
        EXPECT_EQ(out.pixels[0], row.leftBlue);
        EXPECT_EQ(out.pixels[std::size_t(row.width - 1) * 4], row.rightBlue);
        EXPECT_NEAR(out.pixels[1], row.green, 1);
        EXPECT_EQ(out.pixels[3], 0);
    }
}

} // namespace
} // namespace lumenar::app
