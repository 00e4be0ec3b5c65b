// What each directive sets, and the message that it traces. Main thread. Arguments that a setter
// makes nothing of leave the setting as it was, or count as 0 or off, as the setter's kind of
// argument (CAargument.h) says.
#pragma once

#include "config/CAdirectives.h"

// One number or flag, at the place that the row names: kept as it is; with 0 as "no limit"; an
// on/off word; exactly "on", anything else changes nothing.
void CASetNumber(const CADirectiveCall &call);
void CASetLimit(const CADirectiveCall &call);
void CASetFlag(const CADirectiveCall &call);
void CASetExactOn(const CADirectiveCall &call);

void CASetTraceLog(const CADirectiveCall &call);
void CASetErrorLog(const CADirectiveCall &call);
void CASetResultsLog(const CADirectiveCall &call);
void CASetMetricsFile(const CADirectiveCall &call);

void CASetUpdateProxy(const CADirectiveCall &call);
void CASetHostname(const CADirectiveCall &call);
void CASetServerRoot(const CADirectiveCall &call);
void CASetConfigFile(const CADirectiveCall &call);

void CASetCacheQueries(const CADirectiveCall &call);
void CASetLoadUrl(const CADirectiveCall &call);
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

void CASetSaveFiles(const CADirectiveCall &call);
void CASetSaveRoot(const CADirectiveCall &call);

void CASetFollowRedirects(const CADirectiveCall &call);
void CASetRetries(const CADirectiveCall &call);
void CASetRetryAfter(const CADirectiveCall &call);
