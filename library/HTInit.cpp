#include "HTInit.h"

#include <unicode/uclean.h>

#include <clocale>

#include "HTList.h"

void HeapDebug_init() {}

void initializeCaseTables() {}

void updatetimeRep(int /*kind*/) {}

void HTInitAll(int /*flags*/, int /*reserved*/)
{
    HTList_register();
    // The character set of the environment, for a locale that has no code page of its own. Nothing
    // else of the locale: messages are ours, and numbers are written as ever.
    std::setlocale(LC_CTYPE, "");  // NOLINT(concurrency-mt-unsafe): no other thread exists yet
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
