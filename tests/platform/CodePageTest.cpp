#include "platform/CodePage.h"

#include <gtest/gtest.h>

namespace lumenar::platform {
namespace {

TEST(CodePage, ConvertsFilmTextToUtf8)
{
    struct Row
    {
        const char* name;
        std::string bytes;
        int codePage;
        std::string utf8;
    } rows[] = {
        {"ascii", "Hello", 1252, "Hello"},
        {"western accents", "Caf\xE9 \x80", 1252, "Caf\xC3\xA9 \xE2\x82\xAC"},
        {"undefined byte", "a\x81z", 1252, "a\xEF\xBF\xBDz"},
        {"cyrillic", "\xCF\xF0\xE8", 1251, "\xD0\x9F\xD1\x80\xD0\xB8"},
        {"shift-jis kana and kanji", "\x83\x65\x93\xFA", 932, "\xE3\x83\x86\xE6\x97\xA5"},
        {"cut double-byte character", "A\x83", 932, "A\xEF\xBF\xBD"},
        {"korean", "\xC7\xD1", 949, "\xED\x95\x9C"},
        {"big5", "\xA4\xA4", 950, "\xE4\xB8\xAD"},
        {"gbk", "\xD6\xD0", 936, "\xE4\xB8\xAD"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(ToUtf8(row.bytes, row.codePage), row.utf8);
    }
}

TEST(CodePage, LeadBytesOnlyInDoubleBytePages)
{
    EXPECT_FALSE(IsLeadByte(1252, 0x83));
    EXPECT_TRUE(IsLeadByte(932, 0x83));
    EXPECT_FALSE(IsLeadByte(932, 0xA5)); // Half-width katakana is one byte.
    EXPECT_TRUE(IsLeadByte(936, 0xFE));
    EXPECT_FALSE(IsLeadByte(950, 0x80));
    EXPECT_EQ(CharacterToUnicode(0x83 * 256 + 0x65, 932), U'\u30C6');
    EXPECT_EQ(CharacterToUnicode(0xE9, 1252), U'\u00E9');
    EXPECT_TRUE(IsSupportedCodePage(1252));
    EXPECT_FALSE(IsSupportedCodePage(4242));
}

} // namespace
} // namespace lumenar::platform
