#include "fuzz/fuzz.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

// Runs a target over its seeds, or over files and folders of them: `fuzz_corpus NAME [FILE...]`.

namespace {

void runFile(tav_fuzz::Target const & target, std::filesystem::path const & path) {
    std::ifstream in(path, std::ios::binary);
    std::string const input((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    tav_fuzz::runOnce(target, input);
}

int runFiles(tav_fuzz::Target const & target, int argc, char ** argv) {
    for (int i = 2; i < argc; ++i) {
        if (std::filesystem::is_directory(argv[i])) {
            for (auto const & each : std::filesystem::directory_iterator(argv[i])) {
                runFile(target, each.path());
            }
        } else {
            runFile(target, argv[i]);
        }
    }
    return 0;
}

int runSeeds(tav_fuzz::Target const & target) {
    tav_fuzz::Seeds const seeds = tav_fuzz::seedsOf(target);
    tav_fuzz::require(seeds.size() >= 200, "a target has at least 200 seeds");
    for (std::string const & seed : seeds) {
        tav_fuzz::runOnce(target, seed);
    }
    std::printf("%s: %zu seeds\n", target.name, seeds.size());
    return 0;
}

} // namespace

int main(int argc, char ** argv) {
    for (tav_fuzz::Target const * const target : tav_fuzz::targets()) {
        if (argc >= 2 && std::strcmp(argv[1], target->name) == 0) {
            return argc == 2 ? runSeeds(*target) : runFiles(*target, argc, argv);
        }
    }
    std::fprintf(stderr, "usage: fuzz_corpus TARGET [FILE or FOLDER...]\n");
    return 2;
}
