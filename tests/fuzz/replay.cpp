// Stands in for libFuzzer: runs the target once with each file of the directories that it is given.
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Fuzz.h"

int main(int argc, char **argv)
{
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &file : std::filesystem::directory_iterator(argv[i])) {
            std::ostringstream text;
            text << std::ifstream(file.path(), std::ios::binary).rdbuf();
            std::printf("%s\n", file.path().filename().c_str());
            std::fflush(stdout);  // the last one is the one that fails
            fuzz(text.str());
            ++count;
        }
    }
    return count > 0 ? 0 : 1;
}
