// Writes a small film stream for the tests that drive the control from outside (the C host test):
//   make_control_film OUT [ITEMS]
#include "film/Film.h"
#include "tests/support/FilmStream.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: make_control_film OUT [ITEMS]\n");
        return 2;
    }
    const int items = argc > 2 ? std::atoi(argv[2]) : 2;
    const auto bytes = lumenar::testing::MakeFilmStream(items, lumenar::film::kAdvanceAutomatic);
    std::ofstream out(argv[1], std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return out ? 0 : 1;
}
