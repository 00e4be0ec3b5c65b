#include "CAstart.h"

int main(int argc, char **argv)
{
    return CAMain(argc, argv);
}
