// The queue of URLs to request, shared by all threads.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "HTList.h"
#include "base/CAsleepers.h"
#include "htthread.h"
#include "url/CAdepth.h"
#include "url/CAhostSlots.h"

class CAUrlKey;

// What a worker thread holds for a URL that it dequeued.
struct CATicket {
    CADepthOrder::Ticket level = 0;
    CAHostSlots::Host *host = nullptr;
};

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
    [[nodiscard]] bool enqueueFound(CAURL *url, CAUrlKey *key);  // `key` is the one of `url`
    // A link to the recorded URL `text` was found again, at this depth. Ordered by depth, the URL
    // takes the smaller depth if it still waits; in the default order nothing happens.
    void sink(const char *text, std::int32_t depth);
    // Enqueues an element again that was dequeued before; the total does not count it again.
    void requeue(void *element);
    // Records `url` in `processedUrls` and enqueues it at a place that its rank decides, from 0 (it
    // is dequeued before those with higher ranks) to kRanks - 1. Ordered by depth it does what
    // enqueueFound() does. False when the URL is recorded already and stays the caller's.
    static constexpr std::size_t kRanks = 20;
    [[nodiscard]] bool enqueueInLane(CAURL *url, std::size_t rank);
    // The next element. Null when the queue is empty, or when all elements that are left must wait:
    // ordered by depth, for shallower ones in work; with limitHosts(), for other requests to their
    // hosts. A level that begins early is traced. `*ticket` is set for finished(); it may be null
    // if neither of the two is in use.
    void *dequeue(CATicket *ticket = nullptr);

    // Any element, whatever the order, to empty the queue; null when it is empty.
    void *drain();

    // Switches to the order of CADepthOrder, for the elements in the queue, which must be CAURL
    // objects, and all later ones. A level waits for the answers of shallower ones for at most so
    // many seconds after the last of their URLs was dequeued; below 1: without a limit. Call before
    // any other thread uses the queue.
    void orderByDepth(std::int32_t waitSeconds);
    [[nodiscard]] bool isOrderedByDepth() const { return orderedByDepth_; }
    // Limits the requests at a time to each host, for a queue that holds CAURL objects. Call before
    // any other thread uses the queue.
    void limitHosts(const CAHostLimits &limits);
    // True when elements may have to wait although the queue is not empty.
    [[nodiscard]] bool mayHoldBack() const { return orderedByDepth_ || limitsHosts_; }
    // Ordered by depth, dequeue() returns null between these two calls. The master thread holds the
    // queue while it seeds: a seed that is found as a link first would get too large a depth.
    void hold();
    void release();
    // With mayHoldBack(): to be called for each URL that dequeue() returned, once it is done and
    // the URLs found on it are enqueued, or it is back in the queue. Otherwise nothing happens.
    void finished(const CATicket &ticket);
    // With limitHosts(): notes how long an answer of the URL's host took, which may change how many
    // requests the host gets (traced).
    void answered(const CATicket &ticket, std::int64_t milliseconds);

    // What happened to the order in a run.
    struct Holdups {
        std::int32_t earlyLevels = 0;  // ordered by depth: levels that began early
        std::int32_t slowdowns = 0;    // how often a host lost a request because it was slow
    };
    // To be called when a run ends and the queue is empty. URLs that are still in work do not count
    // for the levels of the next run. Returns what happened since the last call.
    Holdups closeRun();
    // Starts the count of getEnqueuedOfRun() anew.
    void beginCount() { enqueuedOfRun_ = 0; }

    // Where threads may sleep that find nothing to do here. Each element that is enqueued is news
    // for them, and, with mayHoldBack(), each that need not wait any more.
    [[nodiscard]] CASleepers &sleepers() { return sleepers_; }

    [[nodiscard]] int empty() const { return length_ == 0 ? 1 : 0; }
    [[nodiscard]] std::int32_t getLength() const { return length_; }
    // Elements enqueued since the queue was made, over all runs; stops at INT32_MAX.
    [[nodiscard]] std::int32_t getTotalEnqueued() const { return totalEnqueued_; }
    // The same since beginCount().
    [[nodiscard]] std::int32_t getEnqueuedOfRun() const { return enqueuedOfRun_; }
    // Changes with each element that is enqueued or requeued.
    [[nodiscard]] std::uint32_t getGeneration() const { return generation_; }

private:
    static constexpr std::size_t kLanes = kRanks;

    struct Lane {
        HTList *head;  // the list's header node, which holds no element
        HTList *tail;  // the last node; the header while the lane is empty
    };

    static std::size_t nextLane(std::size_t lane) { return lane + 1 == kLanes ? 0 : lane + 1; }
    void put(void *element, std::int32_t count);
    void countLocked(std::int32_t count) HT_REQUIRES(mutex_);
    void appendLocked(HTList *node) HT_REQUIRES(mutex_);
    static void link(HTList *node, Lane *lane);
    HTList *takeFirstLocked() HT_REQUIRES(mutex_);
    CAURL *takeByDepth(CATicket *ticket);
    CAURL *takeDepthLocked(CATicket *ticket, CADepthOrder::Taken *early) HT_REQUIRES(mutex_);
    void *takeLimited(CATicket *ticket);
    void *takeFromLane();
    [[nodiscard]] bool holdLocked(CAURL *url, CATicket *ticket) HT_REQUIRES(mutex_);

    PMutex mutex_;
    std::array<Lane, kLanes> lanes_ HT_GUARDED_BY(mutex_){};
    std::size_t nextOut_ HT_GUARDED_BY(mutex_) = 0;  // lane where the next dequeue looks first
    std::size_t nextIn_ HT_GUARDED_BY(mutex_) = 0;   // lane of the next enqueue
    CADepthOrder byDepth_ HT_GUARDED_BY(mutex_);     // used instead of the lanes
    CAHostSlots slots_ HT_GUARDED_BY(mutex_);        // unused without limitHosts()
    Holdups holdups_ HT_GUARDED_BY(mutex_);
    CASleepers sleepers_;
    bool orderedByDepth_ = false;  // these two are written before any other thread exists
    bool limitsHosts_ = false;

    // Changed under the lock and read without it, because every link of a page reads them. In the
    // default (sequentially consistent) memory order: a thread that sees a worker idle also sees
    // here what that worker has enqueued.
    std::atomic<std::int32_t> length_ = 0;
    std::atomic<std::int32_t> totalEnqueued_ = 0;
    std::atomic<std::int32_t> enqueuedOfRun_ = 0;
    std::atomic<std::uint32_t> generation_ = 0;
};

// The URLs to request. Created by the main thread before any other thread exists; deleted and set
// to null by the master thread after the last run, unless a worker thread is still running.
extern CAQueue *urlQueue;
