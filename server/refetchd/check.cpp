#include "CAstart.h"
#include "config/CAcheck.h"

int main(int argc, char **argv)
{
    CAPrepareToRead();
    return CACheckMain(argc, argv, "refetchd-check " REFETCHD_VERSION "\n");
}
