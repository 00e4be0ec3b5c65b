// Stands in for libFuzzer: runs the target once with each file of the directories that it is given.
#include <filesystem>
#include <fstream>

#include "Fuzz.h"

int main(int argc, char **argv)
{
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &file : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream stream(file.path(), std::ios::binary);
            std::string input;
            for (char c = 0; stream.get(c);) {
                input += c;
            }
            std::printf("%s\n", file.path().filename().c_str());
            std::fflush(stdout);  // the last one is the one that fails
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()),
                                   input.size());
            ++count;
        }
    }
    return count > 0 ? 0 : 1;
}
