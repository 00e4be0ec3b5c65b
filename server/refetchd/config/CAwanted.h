// Decides whether a link is wanted, from the configuration, the table of processed URLs, the host
// table and the queue's limits.
#pragma once

#include "base/CAoutcome.h"

class CAURL;
class CAUrlKey;

// Why `found`, a link or redirection on the page `page`, must not be enqueued: a limit, a filter,
// or because it was queued already; CADrop::None when it may be. Traced, except for OnlyUrl.
// Changes nothing. Any thread.
[[nodiscard]] CADrop CAObjection(const CAURL &found, const CAURL &page);
// The same with the key of `found`, for a caller that records the URL next.
[[nodiscard]] CADrop CAObjection(const CAURL &found, const CAURL &page, CAUrlKey *key);

// The same for the seed `found`, which the file of the URL `from` names (CAparseSitemap.h): of the
// filters only `cachequeries` applies, to pages alone, but the limits apply as for links.
[[nodiscard]] CADrop CASeedObjection(const CAURL &found, const CAURL &from);

// The limit of the queue that excludes all links at the moment, MaxQueueDepth or MaxUrls;
// CADrop::None when there is room. Any thread.
[[nodiscard]] CADrop CALinkLimit();
// The words for such a limit in the trace.
[[nodiscard]] const char *CALimitText(CADrop limit);
