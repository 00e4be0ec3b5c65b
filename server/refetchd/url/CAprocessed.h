// The URLs that were taken in this run: no link to one of them is taken again.
#pragma once

#include <cstdint>

#include "HTHash.h"

class CAURL;

// Text forms of URLs, shared with the URLs' own records (HTShared.h); the table has its own lock.
// Created by the main thread before any other thread exists. Freed by the master thread after the
// last run, once all worker threads are gone.
extern HashTable *processedUrls;

// An empty table of this kind.
[[nodiscard]] HashTable *CANewProcessedUrls();

// Records `url`'s text unless it is there already. False when it was. Any thread that owns `url`.
bool CARecordProcessed(const CAURL *url);

// True when `text`, the form that CAURL::stringitize() gives, is recorded. Any thread.
[[nodiscard]] bool CAIsProcessed(const char *text);

// Forgets one URL; nothing when it is not recorded. Any thread.
void CAForgetProcessed(const char *text);

// Forgets all. A text that another thread records meanwhile is forgotten or stays.
void CAForgetAllProcessed();

// Callbacks of the table, whose items and keys are texts.
std::uint32_t UrlHasher(std::uint32_t size, const void *key);
int UrlComparator(const void *a, const void *b);
