#include "config/CAcheck.h"

int main(int argc, char **argv)
{
    return CACheckMain(argc, argv);
}
