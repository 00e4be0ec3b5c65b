// The queue of URLs to request, shared by all threads.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "HTList.h"
#include "htthread.h"
#include "url/CAdepth.h"

// A queue of untyped pointers in 20 lanes, which mixes work from different parts of the seed list:
// enqueue() puts the elements into the lanes in turn, and dequeue() empties one lane, first in
// first out, before it moves on to the next. With orderByDepth() it holds CAURL objects in the
// order of CADepthOrder instead. It has no limit of its own and never frees an element.
//
// Any thread may call any member except the destructor and orderByDepth(). Lengths and counts may
// be out of date as soon as they are returned.
class CAQueue {
public:
    // With `serialize` 0 the queue has no lock and belongs to one thread.
    explicit CAQueue(int serialize);
    // Does not free the elements that are left.
    ~CAQueue();
    CAQueue(const CAQueue &) = delete;
    CAQueue &operator=(const CAQueue &) = delete;

    // Without memory the element is lost (reported) or, ordered by depth, the process ends.
    void enqueue(void *element);
    // Records a URL that was found in `processedUrls` and enqueues it, even if it is recorded
    // already. Ordered by depth this is atomic, and a URL that another thread recorded in the
    // meantime is not enqueued again: its depth goes to sink(). True when `url` was taken over,
    // false when it stays the caller's.
    [[nodiscard]] bool enqueueFound(CAURL *url);
    // Records a seed in `processedUrls` and enqueues it in the lane that is `rank` lanes behind the
    // one that dequeue() empties now: 0 is the next, 19 the last. Ordered by depth the rank does
    // not count. False, and the URL stays the caller's, when it is recorded already: then its depth
    // goes to sink().
    [[nodiscard]] bool enqueueInLane(CAURL *url, std::size_t rank);
    // A link to the recorded URL `text` was found again, at this depth. Ordered by depth, the URL
    // takes the smaller depth if it still waits; in the default order nothing happens.
    void sink(const char *text, std::int32_t depth);
    // Enqueues an element again that was dequeued before; the total does not count it again.
    void requeue(void *element);
    // The next element; null when the queue is empty, or, ordered by depth, when the elements left
    // must wait for shallower ones in work. A level that begins early is traced. `*ticket` is set
    // for finished(), unless it is null; an order other than by depth has no tickets.
    void *dequeue(CADepthOrder::Ticket *ticket = nullptr);

    // Any element, whatever the order, to empty the queue; null when it is empty.
    void *drain();

    // Switches to the order of CADepthOrder, for the elements in the queue, which must be CAURL
    // objects, and all later ones. A level waits for the answers of shallower ones for at most so
    // many seconds after the last of their URLs was dequeued; below 1: without a limit. Call before
    // any other thread uses the queue.
    void orderByDepth(std::int32_t waitSeconds);
    [[nodiscard]] bool isOrderedByDepth() const { return orderedByDepth_; }
    // Ordered by depth, dequeue() returns null between these two calls. The master thread holds the
    // queue while it seeds: a seed that is found as a link first would get too large a depth.
    void hold();
    void release();
    // Ordered by depth: to be called for each URL that dequeue() returned, once it is done and the
    // URLs found on it are enqueued. Otherwise nothing happens.
    void finished(CADepthOrder::Ticket ticket);
    // Ordered by depth: to be called when a run ends. URLs that are still in work do not count for
    // the next run. Returns how many levels began early since the last call.
    std::int32_t closeLevels();

    [[nodiscard]] int empty() const { return length_ == 0 ? 1 : 0; }
    [[nodiscard]] std::int32_t getLength() const { return length_; }
    // Elements enqueued since the queue was made, over all runs; stops at INT32_MAX.
    [[nodiscard]] std::int32_t getTotalEnqueued() const { return totalEnqueued_; }
    // Changes with each element that is enqueued or requeued.
    [[nodiscard]] std::uint32_t getGeneration() const { return generation_; }

private:
    static constexpr std::size_t kLanes = 20;

    struct Lane {
        HTList *head;  // the list's header node, which holds no element
        HTList *tail;  // the last node; the header while the lane is empty
    };

    static std::size_t nextLane(std::size_t lane) { return lane + 1 == kLanes ? 0 : lane + 1; }
    void put(void *element, std::int32_t count);
    void countLocked(std::int32_t count) HT_REQUIRES(mutex_);
    void appendLocked(HTList *node, std::size_t index) HT_REQUIRES(mutex_);
    HTList *takeFirstLocked() HT_REQUIRES(mutex_);
    void *takeByDepth(CADepthOrder::Ticket *ticket);

    PMutex mutex_;
    std::array<Lane, kLanes> lanes_ HT_GUARDED_BY(mutex_){};
    std::size_t nextOut_ HT_GUARDED_BY(mutex_) = 0;  // lane where the next dequeue looks first
    std::size_t nextIn_ HT_GUARDED_BY(mutex_) = 0;   // lane of the next enqueue
    CADepthOrder byDepth_ HT_GUARDED_BY(mutex_);     // used instead of the lanes
    std::int32_t early_ HT_GUARDED_BY(mutex_) = 0;   // levels that began early
    bool orderedByDepth_ = false;                    // written before any other thread exists

    // Changed under the lock and read without it, because every link of a page reads them. In the
    // default (sequentially consistent) memory order: a thread that sees a worker idle also sees
    // here what that worker has enqueued.
    std::atomic<std::int32_t> length_ = 0;
    std::atomic<std::int32_t> totalEnqueued_ = 0;
    std::atomic<std::uint32_t> generation_ = 0;
};

// The URLs to request. Created by the main thread before any other thread exists; deleted and set
// to null by the master thread after the last run, unless a worker thread is still running.
extern CAQueue *urlQueue;
