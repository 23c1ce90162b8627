#include "fuzz/fuzz.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>

// What libFuzzer asks of a program.  With `--seeds FOLDER` it writes its seeds there and ends.

extern "C" int LLVMFuzzerInitialize(int * argc, char *** argv) {
    if (*argc != 3 || std::strcmp((*argv)[1], "--seeds") != 0) {
        return 0;
    }
    unsigned number = 0;
    for (std::string const & seed : tav_fuzz::seedsOf(*tav_fuzz::targets().front())) {
        std::ofstream out(std::string((*argv)[2]) + "/" + std::to_string(number++), std::ios::binary);
        out << seed;
        if (!out.flush()) {
            std::exit(1);
        }
    }
    std::exit(0);
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
    tav_fuzz::runOnce(*tav_fuzz::targets().front(),
                      std::string_view(reinterpret_cast<char const *>(data), size));
    return 0;
}
