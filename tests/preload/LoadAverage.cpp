// Preloaded into a program: for each processor, the load average is the number in the file that
// LOAD_AVERAGE names. Without the file it cannot be read.
#include <unistd.h>

#include <cstdlib>
#include <fstream>

extern "C" int getloadavg(double loads[], int /*count*/)
{
    std::ifstream file(std::getenv("LOAD_AVERAGE"));
    if (!(file >> loads[0])) {
        return -1;
    }
    loads[0] *= static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN));
    return 1;
}
