// Writes the fuzz seed corpus for the caption fuzzer into the folder given as the argument: a caption
// record, one byte of text-effect row, 16-bit progress n and d, then the text.
#include "records/TextRecord.h"
#include "tests/support/WriteFile.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_caption_seeds FOLDER\n");
        return 2;
    }
    struct Seed
    {
        int row, num, den, height, alignment, shadow;
        const char* text;
    };
    const Seed seeds[] = {
        {4, 1, 1, -20, 0, 1, "AB"},
        {0, 1, 2, -16, 1, 1, "Hello\r\nworld"},
        {19, 1, 3, 24, 2, 0, "fly\r\n\r\nin"},
        {9, 2, 5, -12, 1, 1, "stream of glyphs"},
        {15, 7, 10, -18, 0, 1, "scatter"},
        {31, 1, 2, -30, 1, 1, "grow"},
        {34, 0, 1, 0, 7, 1, "\xE9t\xE9"},
        {53, 1, 1, -8, 0, 1, "random row"},
    };
    int index = 0;
    for (const Seed& s : seeds) {
        lumenar::records::TextRecord record{};
        record.x = 4;
        record.y = 4;
        record.font.height = s.height;
        record.font.weight = 400;
        std::strcpy(record.font.faceName, "Arial");
        record.colour = 0x00FFFF;
        record.lineSpacing = 100;
        record.alignment = s.alignment;
        record.shadow = s.shadow;
        std::vector<unsigned char> bytes(sizeof record);
        std::memcpy(bytes.data(), &record, sizeof record);
        bytes.push_back(static_cast<unsigned char>(s.row));
        for (int v : {s.num, s.den}) {
            bytes.push_back(static_cast<unsigned char>(v & 0xFF));
            bytes.push_back(static_cast<unsigned char>(v >> 8));
        }
        bytes.insert(bytes.end(), s.text, s.text + std::strlen(s.text));
        const std::string path = std::string(argv[1]) + "/seed" + std::to_string(index++) + ".cap";
        if (!lumenar::testing::WriteFile(path, bytes))
            return 1;
    }
    return 0;
}
