// Whether a link is wanted: what the configuration, the table of processed URLs, the host table and
// the queue's limits say of it.
#pragma once

#include "base/CAoutcome.h"

class CAURL;

// What keeps `found`, a link or redirection of the page `page`, from being enqueued (traced): a
// limit, a filter, or that it was taken already; CADrop::None when nothing does. Changes nothing.
// Any thread.
[[nodiscard]] CADrop CAObjection(const CAURL &found, const CAURL &page);
// 1 when nothing does, else 0.
[[nodiscard]] int interesting(const CAURL *found, const CAURL *page);

// The limit that keeps out every link at the moment: too many URLs wait, or enough were enqueued;
// CADrop::None when there is room. Any thread.
[[nodiscard]] CADrop CALinkLimit();
// How the trace puts such a limit.
[[nodiscard]] const char *CALimitText(CADrop limit);
