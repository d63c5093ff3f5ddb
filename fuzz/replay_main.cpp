// Runs a fuzz target's entry over input files and folders, once each: the
// regression inputs in builds without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        if (fs::is_directory(argv[i]))
            for (const auto &e : fs::directory_iterator(argv[i])) files.push_back(e.path());
        else
            files.push_back(argv[i]);
    }
    for (const fs::path &f : files) {
        std::ifstream in(f, std::ios::binary);
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (!in.good() && !in.eof()) return std::fprintf(stderr, "cannot read %s\n", f.c_str()), 2;
        std::fprintf(stderr, "%s\n", f.c_str());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::fprintf(stderr, "%zu inputs ran\n", files.size());
    return 0;
}
