// Writes a small corpus of photo streams for the photo decoder's fuzz target: argv[1] is the folder.
#include "tests/support/JpegWriter.h"
#include "tests/support/WriteFile.h"

#include <cstdio>
#include <string>

using namespace lumenar::testing;

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_photo_seeds FOLDER\n");
        return 2;
    }
    const std::string dir = argv[1];
    ZigzagBlock block(64, 0);
    block[0] = 40;
    block[1] = -3;
    block[5] = 7;
    block[20] = 255;
    block[63] = 1;
    bool ok = WriteFile(dir + "/uniform444.jpg", MakeUniformPhoto(24, 16, block));
    ok &= WriteFile(dir + "/uniform420-restart.jpg", MakeUniformPhoto(40, 24, block, 2, 2, 2));
    ok &= WriteFile(dir + "/uniform422.jpg", MakeUniformPhoto(17, 9, block, 0, 2, 1));
    // Long codes: a table whose codes run to 16 bits gets second-level tables.
    std::vector<std::pair<int, std::uint8_t>> longCodes{{1, 0x00}};
    for (int s = 1; s <= 11; ++s)
        longCodes.emplace_back(4 + s, static_cast<std::uint8_t>(s));
    const JpegHuffman dc = JpegHuffman::Make(longCodes);
    JpegWriter w;
    w.Soi().Dqt(0, std::vector<int>(64, 2), true).Sof0(8, 8, {{1, 1, 1, 0}, {2, 1, 1, 0}, {3, 1, 1, 0}});
    w.Dht(0, 0, dc).Dht(1, 0, FlatAcTable()).Sos({{1, 0}, {2, 0}, {3, 0}});
    EntropyWriter e;
    int predictor = 0;
    for (int i = 0; i < 3; ++i)
        e.Block(block, predictor, dc, FlatAcTable());
    e.Flush();
    w.Raw(e.bytes).Eoi();
    ok &= WriteFile(dir + "/longcodes.jpg", w.bytes);

    // Headers of the kind a hostile-input campaign sends: huge and empty sizes, four (CMYK) or one
    // component, a progressive frame, a 16-bit quantisation table, then a scan that ends at once.
    struct Header
    {
        const char* name;
        int width, height;
        std::vector<JpegComponent> components;
        std::uint8_t frameMarker;
    };
    const std::vector<JpegComponent> three = {{1, 2, 2, 0}, {2, 1, 1, 0}, {3, 1, 1, 0}};
    const Header headers[] = {
        {"huge", 65535, 65535, three, 0xC0},
        {"wide", 65535, 1, three, 0xC0},
        {"empty", 0, 0, three, 0xC0},
        {"cmyk", 16, 16, {{1, 1, 1, 0}, {2, 1, 1, 0}, {3, 1, 1, 0}, {4, 1, 1, 0}}, 0xC0},
        {"grey", 16, 16, {{1, 1, 1, 0}}, 0xC0},
        {"progressive", 16, 16, three, 0xC2},
    };
    for (const Header& h : headers) {
        JpegWriter hostile;
        hostile.Soi().Dqt(0, std::vector<int>(64, 300), true);
        if (h.frameMarker == 0xC0) {
            hostile.Sof0(h.width, h.height, h.components);
        } else {
            std::vector<std::uint8_t> frame = {8,
                                               static_cast<std::uint8_t>(h.height >> 8),
                                               static_cast<std::uint8_t>(h.height),
                                               static_cast<std::uint8_t>(h.width >> 8),
                                               static_cast<std::uint8_t>(h.width),
                                               static_cast<std::uint8_t>(h.components.size())};
            for (const JpegComponent& c : h.components)
                frame.insert(frame.end(),
                             {static_cast<std::uint8_t>(c.id), static_cast<std::uint8_t>(c.h << 4 | c.v),
                              static_cast<std::uint8_t>(c.tq)});
            hostile.Segment(h.frameMarker, frame);
        }
        hostile.Dht(0, 0, dc).Dht(1, 0, FlatAcTable()).Sos({{1, 0}}).Raw({0x00, 0xFF, 0xD9});
        ok &= WriteFile(dir + "/header-" + h.name + ".jpg", hostile.bytes);
    }
    return ok ? 0 : 1;
}
