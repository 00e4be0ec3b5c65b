// Measures how long a mere search for "<" takes in files, such as the pages of a site: memchr()
// from each
// "<" to the next. No scanner for tags can be faster, so its time can be compared with this one.
//
//     search_time <FILES
//
// Standard input has the names of the files, one a line. Prints the CPU time for one file in
// microseconds, a mean over all of them. The exit status is 1 if none can be read.
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::vector<std::string> readFiles()
{
    std::vector<std::string> files;
    std::string name;
    while (std::getline(std::cin, name)) {
        std::ifstream file(name);
        files.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        if (files.back().empty()) {
            files.pop_back();
        }
    }
    return files;
}

std::size_t countTags(const std::string &text)
{
    const char *at = text.data();
    const char *const end = at + text.size();
    std::size_t count = 0;
    while ((at = static_cast<const char *>(
                std::memchr(at, '<', static_cast<std::size_t>(end - at)))) != nullptr) {
        ++at;
        ++count;
    }
    return count;
}

double secondsOfCpu()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace

int main()
{
    constexpr double enough = 0.2;
    const std::vector<std::string> files = readFiles();
    if (files.empty()) {
        std::fputs("search_time: no file can be read\n", stderr);
        return 1;
    }
    const double start = secondsOfCpu();
    double passed = 0;
    std::size_t passes = 0;
    std::size_t tags = 0;
    for (; passed < enough; passed = secondsOfCpu() - start) {
        for (const std::string &file : files) {
            tags += countTags(file);
        }
        ++passes;
    }
    // The number of tags is printed so that the compiler cannot leave out the search.
    std::printf("%.3f %zu\n", passed * 1e6 / static_cast<double>(passes * files.size()),
                tags / passes / files.size());
}
