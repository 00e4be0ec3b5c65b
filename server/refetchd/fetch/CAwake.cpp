#include "fetch/CAwake.h"

#include <unistd.h>

#include <csignal>

#include "config/CAcfg.h"
#include "url/CAqueue.h"

CASleepers &heldClients = *new CASleepers;

void CAWakeStopped()
{
    if (ac.wakeClients != 0) {
        urlQueue->sleepers().wakeAll();
        heldClients.wakeAll();
    }
}

int CAWakeSignal()
{
    return SIGRTMIN;
}

void CAWakeMaster()
{
    if (ac.wakeClients != 0) {
        kill(getpid(), CAWakeSignal());
    }
}
