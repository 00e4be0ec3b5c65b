// The setters of the directives. Each applies one line, to `call.config` or a global object, and
// most trace a message; with an observer no file is opened. Main thread. An argument of the wrong
// kind either leaves the setting as it was or counts as 0 or off, depending on the kind
// (CAargument.h).
#pragma once

#include "config/CAdirectives.h"

// Set the field that the row names: a number; a number where 0 means "no limit"; a flag by an
// on/off word; a flag that only "on" sets, while other words change nothing.
void CASetNumber(const CADirectiveCall &call);
void CASetLimit(const CADirectiveCall &call);
void CASetFlag(const CADirectiveCall &call);
void CASetExactOn(const CADirectiveCall &call);
// Sets the field that the row names to a number with a fraction, in thousandths; another text is
// traced and changes nothing.
void CASetThousandths(const CADirectiveCall &call);

void CASetTraceLog(const CADirectiveCall &call);
void CASetErrorLog(const CADirectiveCall &call);
void CASetResultsLog(const CADirectiveCall &call);
void CASetMetricsFile(const CADirectiveCall &call);

void CASetUpdateProxy(const CADirectiveCall &call);
void CASetPort(const CADirectiveCall &call);
void CASetTlsCa(const CADirectiveCall &call);
void CASetTlsVerify(const CADirectiveCall &call);
void CASetHostname(const CADirectiveCall &call);
void CASetServerRoot(const CADirectiveCall &call);
void CASetConfigFile(const CADirectiveCall &call);

void CASetCacheQueries(const CADirectiveCall &call);
void CASetLoadUrl(const CADirectiveCall &call);
void CASetLoadSitemap(const CADirectiveCall &call);
void CASetLoadList(const CADirectiveCall &call);
void CASetCaching(const CADirectiveCall &call);
void CASetIgnoreUrl(const CADirectiveCall &call);
void CASetOnlyUrl(const CADirectiveCall &call);

void CASetDelveInto(const CADirectiveCall &call);
void CASetMaxHostUrls(const CADirectiveCall &call);

void CASetNumClients(const CADirectiveCall &call);
void CASetDelay(const CADirectiveCall &call);
void CASetMaxRuntime(const CADirectiveCall &call);

void CASetService(const CADirectiveCall &call);
void CASetHttpVersion(const CADirectiveCall &call);
void CASetUserAgent(const CADirectiveCall &call);
void CASetRequestHeader(const CADirectiveCall &call);
void CASetVariant(const CADirectiveCall &call);

void CASetSaveFiles(const CADirectiveCall &call);
void CASetSaveRoot(const CADirectiveCall &call);

void CASetFollowRedirects(const CADirectiveCall &call);
void CASetSummaryLine(const CADirectiveCall &call);
void CASetFailWhen(const CADirectiveCall &call);
void CASetMaxAnswer(const CADirectiveCall &call);
void CASetRetries(const CADirectiveCall &call);
void CASetBreadthWait(const CADirectiveCall &call);
void CASetRetryAfter(const CADirectiveCall &call);
