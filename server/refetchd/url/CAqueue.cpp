#include "url/CAqueue.h"

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
    const PMutexGuard guard(mutex_);
    if (node != nullptr) {
        appendLocked(node, nextIn_);
        nextIn_ = nextLane(nextIn_);
    } else {
        byDepth_.put(static_cast<CAURL *>(element));
    }
    countLocked(count);
}

// Counts an element that was put in; `count` is added to the total.
void CAQueue::countLocked(std::int32_t count)
{
    ++length_;
    ++generation_;
    if (totalEnqueued_ != INT32_MAX) {
        totalEnqueued_ += count;
    }
}

bool CAQueue::enqueueFound(CAURL *url)
{
    if (!orderedByDepth_) {
        CARecordProcessed(url);
        enqueue(url);
        return true;
    }
    const PMutexGuard guard(mutex_);
    if (!CARecordProcessed(url)) {
        byDepth_.sink(url->stringitize(), url->depth());
        return false;
    }
    byDepth_.put(url);
    countLocked(1);
    return true;
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
    if (node == nullptr) {
        return true;  // out of memory, reported by the list
    }
    node->object = url;
    const PMutexGuard guard(mutex_);
    appendLocked(node, (nextOut_ + rank) % kLanes);
    countLocked(1);
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
    const PMutexGuard guard(mutex_);
    byDepth_.release();
}

void CAQueue::sink(const char *text, std::int32_t depth)
{
    if (orderedByDepth_) {
        const PMutexGuard guard(mutex_);
        byDepth_.sink(text, depth);
    }
}

void CAQueue::appendLocked(HTList *node, std::size_t index)
{
    Lane &lane = lanes_[index];
    lane.tail->next = node;
    lane.tail = node;
}

void *CAQueue::dequeue(CADepthOrder::Ticket *ticket)
{
    if (orderedByDepth_) {
        return takeByDepth(ticket);
    }
    HTList *node = nullptr;
    {
        const PMutexGuard guard(mutex_);
        node = takeFirstLocked();
    }
    if (node == nullptr) {
        return nullptr;
    }
    void *const element = node->object;
    HTList_discardElement(node, HTThread_context());
    return element;
}

void *CAQueue::drain()
{
    if (!orderedByDepth_) {
        return dequeue();
    }
    const PMutexGuard guard(mutex_);
    CAURL *const url = byDepth_.drain();
    length_ -= url != nullptr ? 1 : 0;
    return url;
}

void *CAQueue::takeByDepth(CADepthOrder::Ticket *ticket)
{
    CADepthOrder::Taken taken;
    {
        const PMutexGuard guard(mutex_);
        taken = byDepth_.take(HTUptimeMillis());
        length_ -= taken.url != nullptr ? 1 : 0;
        early_ += taken.overtaken > 0 ? 1 : 0;
    }
    if (taken.url != nullptr && taken.overtaken > 0) {
        CATrace("Order....... depth %d begins although %zu shallower URLs are still in work.\n",
                taken.url->depth(), taken.overtaken);
    }
    if (ticket != nullptr) {
        *ticket = taken.ticket;
    }
    return taken.url;
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

void CAQueue::finished(CADepthOrder::Ticket ticket)
{
    if (orderedByDepth_) {
        const PMutexGuard guard(mutex_);
        byDepth_.finished(ticket);
    }
}

std::int32_t CAQueue::closeLevels()
{
    const PMutexGuard guard(mutex_);
    byDepth_.closeLevels();
    return std::exchange(early_, 0);
}

// Unlinks the next element; null when there is none.
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
            --length_;
            return node;
        }
        index = nextLane(index);
    } while (index != nextOut_);
    nextOut_ = 0;
    nextIn_ = 0;
    return nullptr;
}
