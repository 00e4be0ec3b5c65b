// Instead of libFuzzer: runs the target once with each file of the given directories.
#include "Fuzz.h"
#include "TempDir.h"

int main(int argc, char **argv)
{
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &file : std::filesystem::directory_iterator(argv[i])) {
            std::printf("%s\n", file.path().filename().c_str());
            std::fflush(stdout);  // the last one is the one that fails
            fuzz(contentsOf(file.path()));
            ++count;
        }
    }
    return count > 0 ? 0 : 1;
}
