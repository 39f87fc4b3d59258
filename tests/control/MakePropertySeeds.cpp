// Writes the seed corpus of the control's property-stream fuzzer into the folder given.
#include "control/ControlProperties.h"
#include "tests/support/WriteFile.h"

#include <cstdio>
#include <string>

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: make_property_seeds FOLDER\n");
        return 2;
    }
    using lumenar::control::ControlProperties;
    const ControlProperties seeds[] = {
        {},
        {21166, 15875, 0x80000005u, 0x00FF8040u, "http://host/films/demo.film"},
        {1, 2, 3, 4, std::string(300, 'x')},
    };
    int n = 0;
    bool ok = true;
    for (const ControlProperties& seed : seeds)
        ok &= lumenar::testing::WriteFile(std::string(argv[1]) + "/seed-" + std::to_string(n++),
                                          lumenar::control::SaveToStream(seed));
    return ok ? 0 : 1;
}
