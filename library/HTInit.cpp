#include "HTInit.h"

#include <unicode/uclean.h>

#include "HTList.h"

void HeapDebug_init() {}

void initializeCaseTables() {}

void updatetimeRep(int /*kind*/) {}

void HTInitAll(int /*flags*/, int /*reserved*/)
{
    HTList_register();
    // A failure here only costs translated texts: every later ICU call reports its own.
    UErrorCode status = U_ZERO_ERROR;
    u_init(&status);
}

HTThreadContext *HTInitThd(int kind)
{
    return HTWorkThread_threadCreate(kind);
}

void HTEndThd(int kind, HTThreadContext *context)
{
    HTWorkThread_threadExit(kind, context);
}
