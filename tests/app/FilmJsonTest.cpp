#include "app/FilmJson.h"

#include "tests/support/FilmWriter.h"

#include <gtest/gtest.h>

#include <cstring>

namespace lumenar::app {
namespace {

TEST(FilmJson, EmptyFilm)
{
    film::Film film;
    EXPECT_EQ(FilmToJson(film, 1, 1252),
              R"({"result":1,"loop":1,"advanceMode":728,"music":"","itemCount":-1,"items":[]})");
}

TEST(FilmJson, EveryFieldInItsPlace)
{
    film::Film film;
    film.SetMusic("C:\\M\\a\"b.mp3");
    film::FilmItem item = testing::PhotoItem("12caf\xE9.jpg", 7, 5);
    item.mask = {"2048", "3"};
    item.sound = {"", "9.ca"};
    item.soundMode = 2;
    item.rect[0] = -1;
    film.AddItem(item);
    film::FilmText caption;
    caption.effect = 4;
    caption.text = "Line\r\n\x01";
    caption.style.x = 10;
    caption.style.y = -20;
    caption.style.font.height = -48;
    caption.style.font.weight = 700;
    caption.style.font.italic = 1;
    caption.style.font.pitchAndFamily = 0x22;
    std::strcpy(caption.style.font.faceName, "Arial");
    caption.style.colour = 0xFFFFFF;
    caption.style.lineSpacing = 100;
    caption.style.alignment = 1;
    caption.style.shadow = 1;
    caption.style.effectState = 0xDEADBEEF;
    film.AddText(1, caption);

    const std::string expected =
        R"({"result":0,"loop":1,"advanceMode":728,"music":"C:\\M\\a\"b.mp3","itemCount":1,"items":[)"
        R"({"index":1,"kind":1000,"photo":{"path":"","name":"12café.jpg"},"mask":{"path":"2048","name":"3"},)"
        R"("clipFile":{"path":"","name":""},"clipPicture1":{"path":"","name":""},"clipPicture2":{"path":"","name":""},)"
        R"("showFile":{"path":"","name":""},"sound":{"path":"","name":"9.ca"},"width":640,"height":480,)"
        R"("displaySeconds":5,"effect":7,"effectMs":1500,"soundMode":2,"rect":[-1,0,640,480],"texts":[)"
        R"({"ordinal":1,"effect":4,"text":"Line\r\n\u0001","style":{"x":10,"y":-20,"font":{"height":-48,"width":0,)"
        R"("escapement":0,"orientation":0,"weight":700,"italic":1,"underline":0,"strikeOut":0,"charSet":0,)"
        R"("outPrecision":0,"clipPrecision":0,"quality":0,"pitchAndFamily":34,"faceName":"Arial"},)"
        R"("colour":16777215,"lineSpacing":100,"alignment":1,"shadow":1,"extentWidth":0,"extentHeight":0,)"
        R"("effectState":3735928559}}]}]})";
    EXPECT_EQ(FilmToJson(film, 0, 1252), expected);
}

TEST(FilmJson, ConvertsFromTheChosenCodePage)
{
    film::Film film;
    film.SetMusic("\x93\xFA.mp3"); // "日" in Shift-JIS.
    EXPECT_NE(FilmToJson(film, 1, 932).find("\"music\":\"\xE6\x97\xA5.mp3\""), std::string::npos);
    EXPECT_NE(FilmToJson(film, 1, 1252).find("\"music\":\"\xE2\x80\x9C\xC3\xBA.mp3\""), std::string::npos);
}

} // namespace
} // namespace lumenar::app
