// The shared queue of pending work.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "HTList.h"
#include "htthread.h"
#include "url/CAdepth.h"

// A queue of untyped pointers in 20 lanes. Enqueue deals the elements out to the lanes in turn;
// dequeue empties one lane, first in first out, before it moves on to the next: work from different
// parts of the seed list is mixed. It never owns or frees what it holds, and has no limit of its
// own.
//
// Any thread may call any member but the destructor. Answers about its length may be stale as soon
// as they are given.
class CAQueue {
public:
    // With `serialize` 0 the queue has no lock and belongs to one thread.
    explicit CAQueue(int serialize);
    // The elements left in it stay whoever's they were.
    ~CAQueue();
    CAQueue(const CAQueue &) = delete;
    CAQueue &operator=(const CAQueue &) = delete;

    void enqueue(void *element);
    // Takes over a URL that was found: records it in `processedUrls` and enqueues it, be it
    // recorded already or not. Ordered by depth this is one step for other threads, and what
    // another thread has recorded meanwhile is not enqueued again: it is left to sink().
    void enqueueFound(CAURL *url);
    // The URL of this text, which is recorded, was found again at this depth. Ordered by depth, it
    // takes the lesser depth while it waits; otherwise nothing changes.
    void sink(const char *text, std::int32_t depth);
    // Enqueues once more what was dequeued before: it does not count as another element.
    void requeue(void *element);
    // The next element, or null when the queue is empty (ordered by depth: when none may be handed
    // out now).
    void *dequeue();

    // Any element, whatever the order; null when the queue is empty.
    void *drain();

    // From now on the elements are CAURL and are handed out as CADepthOrder says, those too that
    // wait already. Before any other thread uses the queue.
    void orderByDepth();
    [[nodiscard]] bool isOrderedByDepth() const { return orderedByDepth_; }
    // Who has dequeued a URL of this depth is done with it, and has enqueued what it led to.
    void finished(std::int32_t depth);

    [[nodiscard]] int empty() const { return length_ == 0 ? 1 : 0; }
    [[nodiscard]] std::int32_t getLength() const { return length_; }
    // Number of enqueue calls since the queue was made.
    [[nodiscard]] std::int32_t getTotalEnqueued() const { return totalEnqueued_; }
    // Changes with each element that is put in, anew or again.
    [[nodiscard]] std::uint32_t getGeneration() const { return generation_; }

private:
    static constexpr std::size_t kLanes = 20;

    struct Lane {
        HTList *head;  // a list with its header element
        HTList *tail;  // its last element, or the header while the lane is empty
    };

    static std::size_t nextLane(std::size_t lane) { return lane + 1 == kLanes ? 0 : lane + 1; }
    void put(void *element, std::int32_t count);
    void countLocked(std::int32_t count) HT_REQUIRES(mutex_);
    void appendLocked(HTList *node) HT_REQUIRES(mutex_);
    HTList *takeFirstLocked() HT_REQUIRES(mutex_);
    void *takeByDepth(CAURL *(CADepthOrder::*take)());

    PMutex mutex_;
    std::array<Lane, kLanes> lanes_ HT_GUARDED_BY(mutex_){};
    std::size_t nextOut_ HT_GUARDED_BY(mutex_) = 0;  // lane where the next dequeue looks first
    std::size_t nextIn_ HT_GUARDED_BY(mutex_) = 0;   // lane of the next enqueue
    CADepthOrder byDepth_ HT_GUARDED_BY(mutex_);     // in place of the lanes
    bool orderedByDepth_ = false;                    // written before any other thread exists

    // Changed under the lock and read without, for every link of a page asks. In the default order:
    // who finds a worker idle also finds what that worker has enqueued counted here.
    std::atomic<std::int32_t> length_ = 0;
    std::atomic<std::int32_t> totalEnqueued_ = 0;
    std::atomic<std::uint32_t> generation_ = 0;
};

// The URLs to fetch. Created by the main thread before any other thread exists; deleted and set to
// null by the master thread after the last run, once all worker threads are gone.
extern CAQueue *urlQueue;
