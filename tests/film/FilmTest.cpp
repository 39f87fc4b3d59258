#include "film/Film.h"

#include "tests/support/FilmWriter.h"

#include <gtest/gtest.h>

namespace lumenar::film {
namespace {

TEST(Film, CountsAndNumbersItemsThroughAddAndRemove)
{
    Film film;
    for (int i = 1; i <= 4; ++i)
        EXPECT_EQ(film.AddItem(testing::PhotoItem(std::to_string(i) + ".jpg")), i);
    EXPECT_EQ(film.ItemCount(), 4);
    film.RemoveItem(2);
    EXPECT_EQ(film.ItemCount(), 3);
    EXPECT_EQ(film.GetItem(2).photo.cstrName, "3.jpg");
    EXPECT_EQ(film.GetItem(3).photo.cstrName, "4.jpg");
    for (std::int32_t missing : {0, -1, 4, 1000}) {
        const FilmItem item = film.GetItem(missing);
        EXPECT_EQ(std::tie(item.index, item.kind), std::make_tuple(-1, kFilmItemNone)) << missing;
        EXPECT_TRUE(item.texts.empty() && item.photo.cstrName.empty()) << missing;
    }
    film.RemoveItem(9); // Unknown numbers change nothing.
    EXPECT_EQ(film.ItemCount(), 3);
    film.RemoveItem(1);
    film.RemoveItem(1);
    film.RemoveItem(1);
    EXPECT_EQ(film.ItemCount(), 0);
    EXPECT_EQ(film.AddItem(testing::PhotoItem("again.jpg")), 1);
    EXPECT_EQ(film.ItemCount(), 1);
}

TEST(Film, CaptionsGetTheirOwnOrdinals)
{
    Film film;
    FilmItem withTexts = testing::PhotoItem("a.jpg");
    withTexts.texts.push_back(testing::Caption("dropped"));
    film.AddItem(withTexts); // AddItem takes no captions.
    EXPECT_TRUE(film.GetItem(1).texts.empty());
    for (std::int32_t given : {7, 7, 0}) {
        FilmText text = testing::Caption("t" + std::to_string(given));
        text.ordinal = given;
        film.AddText(1, text);
    }
    film.AddText(5, testing::Caption("nowhere"));
    const FilmItem item = film.GetItem(1);
    ASSERT_EQ(item.texts.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(item.texts[i].ordinal, static_cast<std::int32_t>(i + 1));
}

TEST(Film, SetItemReplacesFieldsAndCaptionList)
{
    Film film;
    film.AddItem(testing::PhotoItem("a.jpg"));
    film.AddItem(testing::PhotoItem("b.jpg"));
    film.AddText(2, testing::Caption("one"));
    film.AddText(2, testing::Caption("two"));

    FilmItem copy = film.GetItem(2);
    copy.photo = {"123", "456"};
    copy.texts.resize(1);
    copy.texts[0].text = "changed";
    film.SetItem(2, copy);
    EXPECT_EQ(film.GetItem(2), copy);
    EXPECT_EQ(film.GetItem(1).photo.cstrName, "a.jpg");

    copy.texts.push_back(testing::Caption("three"));
    copy.texts.push_back(testing::Caption("four"));
    film.SetItem(2, copy);
    EXPECT_EQ(film.GetItem(2).texts.size(), 3u);
    film.SetItem(7, copy); // No item 7: nothing happens.
    EXPECT_EQ(film.ItemCount(), 2);
}

TEST(FilmFile, JoinAndLeadingNumber)
{
    struct JoinRow
    {
        FilmFile file;
        const char* joined;
    } joins[] = {{{"", "a.jpg"}, "a.jpg"},
                 {{"C:\\x", "a.jpg"}, "C:\\x\\a.jpg"},
                 {{"C:\\x\\", "a.jpg"}, "C:\\x\\a.jpg"},
                 {{"1024", "77"}, "1024\\77"},
                 {{"dir/", "b"}, "dir/\\b"}};
    for (const JoinRow& row : joins)
        EXPECT_EQ(JoinFilmFile(row.file), row.joined);

    struct NumberRow
    {
        const char* name;
        std::int32_t value;
    } numbers[] = {
        {"123456photo.jpg", 123456},
        {"photo.jpg", 0},
        {"", 0},
        {"-12.jpg", 0},
        {"0042", 42},
        {"12.34.jpg", 12},
        {"dir\\99x.ca", 99},
        {"4294967297", 1},
        {"2147483648.wav", std::numeric_limits<std::int32_t>::min()},
    };
    for (const NumberRow& row : numbers) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(LeadingNumber(row.name), row.value);
    }
}

} // namespace
} // namespace lumenar::film
