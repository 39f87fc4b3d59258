// Writes a small film stream for the tests that drive the control from outside (the C host test):
//   make_control_film OUT [ITEMS]
#include "film/Film.h"
#include "tests/support/FilmStream.h"
#include "tests/support/WriteFile.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: make_control_film OUT [ITEMS]\n");
        return 2;
    }
    const int items = argc > 2 ? std::atoi(argv[2]) : 2;
    const auto bytes = lumenar::testing::MakeFilmStream(items, lumenar::film::kAdvanceAutomatic);
    return lumenar::testing::WriteFile(argv[1], bytes) ? 0 : 1;
}
