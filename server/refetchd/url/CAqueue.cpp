#include "url/CAqueue.h"

#include <cinttypes>
#include <utility>

#include "HTWorkThread.h"
#include "base/CAtrace.h"
#include "url/CAURL.h"
#include "url/CAprocessed.h"

CAQueue *urlQueue = nullptr;

CAQueue::CAQueue(int serialize) : mutex_(serialize != 0 ? pmutex_create() : 0)
{
    for (Lane &lane : lanes_) {
        lane.head = HTList_new(nullptr);
        lane.tail = lane.head;
    }
}

CAQueue::~CAQueue()
{
    for (Lane &lane : lanes_) {
        HTList_delete(lane.head, nullptr);
        lane = {.head = nullptr, .tail = nullptr};
    }
}

void CAQueue::enqueue(void *element)
{
    put(element, 1);
}

void CAQueue::requeue(void *element)
{
    put(element, 0);
}

// Enqueues the element and adds `count` to the total.
void CAQueue::put(void *element, std::int32_t count)
{
    HTList *node = nullptr;
    if (!orderedByDepth_) {
        node = HTList_new(HTThread_context());
        if (node == nullptr) {
            return;  // out of memory, reported by the list
        }
        node->object = element;
    }
    {
        const PMutexGuard guard(mutex_);
        if (node != nullptr) {
            appendLocked(node);
        } else {
            byDepth_.put(static_cast<CAURL *>(element));
        }
        countLocked(count);
    }
    sleepers_.wakeOne();
}

// Counts an element that was put in; `count` is added to the total.
void CAQueue::countLocked(std::int32_t count)
{
    ++length_;
    ++generation_;
    if (totalEnqueued_ != INT32_MAX) {
        totalEnqueued_ += count;
    }
    if (enqueuedOfRun_ != INT32_MAX) {
        enqueuedOfRun_ += count;
    }
}

bool CAQueue::enqueueFound(CAURL *url)
{
    CAUrlKey key(*url);
    return enqueueFound(url, &key);
}

bool CAQueue::enqueueFound(CAURL *url, CAUrlKey *key)
{
    if (!orderedByDepth_) {
        key->record();
        enqueue(url);
        return true;
    }
    {
        const PMutexGuard guard(mutex_);
        if (!key->record()) {
            byDepth_.sink(url->stringitize(), url->depth());
            return false;
        }
        byDepth_.put(url);
        countLocked(1);
    }
    sleepers_.wakeOne();
    return true;
}

// What was enqueued late in the run before, and dequeued since, does not count either.
void CAQueue::hold()
{
    const PMutexGuard guard(mutex_);
    byDepth_.hold();
    byDepth_.closeLevels();
}

void CAQueue::release()
{
    {
        const PMutexGuard guard(mutex_);
        byDepth_.release();
    }
    sleepers_.wakeOne();
}

void CAQueue::sink(const char *text, std::int32_t depth)
{
    if (orderedByDepth_) {
        const PMutexGuard guard(mutex_);
        byDepth_.sink(text, depth);
    }
}

void CAQueue::appendLocked(HTList *node)
{
    link(node, &lanes_[nextIn_]);
    nextIn_ = nextLane(nextIn_);
}

void CAQueue::link(HTList *node, Lane *lane)
{
    lane->tail->next = node;
    lane->tail = node;
}

bool CAQueue::enqueueInLane(CAURL *url, std::size_t rank)
{
    if (orderedByDepth_) {
        return enqueueFound(url);
    }
    if (!CARecordProcessed(url)) {
        return false;
    }
    HTList *const node = HTList_new(HTThread_context());
    if (node != nullptr) {  // otherwise memory is out, and the URL is lost (reported by the list)
        node->object = url;
        {
            const PMutexGuard guard(mutex_);
            link(node, &lanes_[(nextOut_ + rank) % kLanes]);
            countLocked(1);
        }
        sleepers_.wakeOne();
    }
    return true;
}

void *CAQueue::dequeue(CATicket *ticket)
{
    if (!mayHoldBack()) {
        return takeFromLane();
    }
    CATicket ignored;
    CATicket *const taken = ticket != nullptr ? ticket : &ignored;
    void *const element = orderedByDepth_ ? takeByDepth(taken) : takeLimited(taken);
    if (element != nullptr && length_ > 0) {
        sleepers_.wakeOne();  // one finished URL may let many begin: each thread wakes the next one
    }
    return element;
}

namespace {

// Discards the node; null gives null.
void *elementOf(HTList *node)
{
    if (node == nullptr) {
        return nullptr;
    }
    void *const element = node->object;
    HTList_discardElement(node, HTThread_context());
    return element;
}

}  // namespace

void *CAQueue::takeFromLane()
{
    HTList *node = nullptr;
    {
        const PMutexGuard guard(mutex_);
        node = takeFirstLocked();
        length_ -= node != nullptr ? 1 : 0;
    }
    return elementOf(node);
}

// True when the URL's host has no free slot: the URL waits for one. Otherwise it takes one.
bool CAQueue::holdLocked(CAURL *url, CATicket *ticket)
{
    if (!limitsHosts_) {
        return false;
    }
    ticket->host = slots_.enter(url->host());
    if (ticket->host == nullptr) {
        slots_.hold(url);
    }
    return ticket->host == nullptr;
}

// Takes the next URL whose host has a free slot. Each of those before it waits for a slot from then
// on, so that no URL is looked at twice.
void *CAQueue::takeLimited(CATicket *ticket)
{
    HTList *spent = nullptr;  // discarded without the lock, because that may take another one
    CAURL *url = nullptr;
    {
        const PMutexGuard guard(mutex_);
        url = slots_.takeCalled(&ticket->host);
        for (HTList *node = nullptr; url == nullptr && (node = takeFirstLocked()) != nullptr;) {
            auto *const next = static_cast<CAURL *>(node->object);
            url = holdLocked(next, ticket) ? nullptr : next;
            node->next = std::exchange(spent, node);
        }
        length_ -= url != nullptr ? 1 : 0;
    }
    while (HTList *const node = spent) {
        spent = node->next;
        HTList_discardElement(node, HTThread_context());
    }
    return url;
}

void *CAQueue::drain()
{
    CAURL *url = nullptr;
    HTList *node = nullptr;
    {
        const PMutexGuard guard(mutex_);
        url = slots_.drain();
        if (url == nullptr && orderedByDepth_) {
            url = byDepth_.drain();
        } else if (url == nullptr) {
            node = takeFirstLocked();
        }
        length_ -= url != nullptr || node != nullptr ? 1 : 0;
    }
    return url != nullptr ? url : elementOf(node);
}

// `*early` becomes what was taken, if its level begins early.
CAURL *CAQueue::takeDepthLocked(CATicket *ticket, CADepthOrder::Taken *early)
{
    const std::int64_t now = HTUptimeMillis();
    CAURL *const called = byDepth_.isHeld() ? nullptr : slots_.takeCalled(&ticket->host);
    if (called != nullptr) {
        ticket->level = byDepth_.takeBack(*called, now);
        return called;
    }
    for (;;) {
        const CADepthOrder::Taken taken = byDepth_.take(now);
        if (taken.overtaken > 0) {
            ++holdups_.earlyLevels;
            *early = taken;
        }
        if (taken.url == nullptr || !holdLocked(taken.url, ticket)) {
            ticket->level = taken.ticket;
            return taken.url;
        }
        byDepth_.putAside(taken);
    }
}

CAURL *CAQueue::takeByDepth(CATicket *ticket)
{
    CADepthOrder::Taken early;
    CAURL *url = nullptr;
    std::int32_t depth = 0;
    {
        const PMutexGuard guard(mutex_);
        url = takeDepthLocked(ticket, &early);
        length_ -= url != nullptr ? 1 : 0;
        depth = early.url != nullptr ? early.url->depth() : 0;
    }
    if (early.url != nullptr) {
        CATrace("Order....... depth %d begins although %zu shallower URLs are still in work.\n",
                depth, early.overtaken);
    }
    return url;
}

void CAQueue::orderByDepth(std::int32_t waitSeconds)
{
    constexpr std::int64_t kMillis = 1000;
    std::int32_t moved = 0;
    {
        const PMutexGuard guard(mutex_);
        byDepth_.waitAtMost(waitSeconds * kMillis);
    }
    while (auto *const url = static_cast<CAURL *>(dequeue())) {
        const PMutexGuard guard(mutex_);
        byDepth_.put(url);
        ++moved;
    }
    orderedByDepth_ = true;
    length_ = moved;
}

void CAQueue::limitHosts(const CAHostLimits &limits)
{
    const PMutexGuard guard(mutex_);
    slots_.limit(limits);
    limitsHosts_ = true;
}

void CAQueue::finished(const CATicket &ticket)
{
    if (!mayHoldBack()) {
        return;
    }
    {
        const PMutexGuard guard(mutex_);
        byDepth_.finished(ticket.level);
        if (ticket.host != nullptr) {
            slots_.leave(ticket.host);
        }
    }
    sleepers_.wakeOne();
}

void CAQueue::answered(const CATicket &ticket, std::int64_t milliseconds)
{
    if (ticket.host == nullptr) {
        return;
    }
    CAHostSlots::Change change;
    {
        const PMutexGuard guard(mutex_);
        change = slots_.answered(ticket.host, milliseconds);
        holdups_.slowdowns += change.isLoss ? 1 : 0;
    }
    if (change.slots > 0) {
        CATrace("Latency..... of host %s is %" PRId64 " ms (%zu answers), it gets %d %s now.\n",
                change.host.c_str(), change.median, change.answers, change.slots,
                change.slots == 1 ? "client" : "clients");
    }
}

CAQueue::Holdups CAQueue::closeRun()
{
    const PMutexGuard guard(mutex_);
    byDepth_.closeLevels();
    slots_.forget();
    return std::exchange(holdups_, {});
}

// Unlinks the next element, which still counts; null when there is none.
HTList *CAQueue::takeFirstLocked()
{
    std::size_t index = nextOut_;
    do {
        Lane &lane = lanes_[index];
        if (HTList *const node = lane.head->next) {
            nextOut_ = index;  // the next call continues with this lane until it is empty
            lane.head->next = node->next;
            if (lane.tail == node) {
                lane.tail = lane.head;
            }
            return node;
        }
        index = nextLane(index);
    } while (index != nextOut_);
    nextOut_ = 0;
    nextIn_ = 0;
    return nullptr;
}
