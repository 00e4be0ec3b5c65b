#include "CAqueue.h"

#include "HTWorkThread.h"

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
    HTThreadContext *const context = HTThread_context();
    const PMutexGuard guard(mutex_);
    Lane &lane = lanes_[nextIn_];
    HTList *const node = HTList_insertAfter(lane.tail, element, context);
    if (node == nullptr) {
        return;  // out of memory, reported by the list
    }
    nextIn_ = nextLane(nextIn_);
    lane.tail = node;
    ++length_;
    if (totalEnqueued_ != INT32_MAX) {
        ++totalEnqueued_;
    }
}

void *CAQueue::dequeue()
{
    const PMutexGuard guard(mutex_);
    std::size_t lane = nextOut_;
    do {
        if (lanes_[lane].head->next != nullptr) {
            nextOut_ = lane;  // stays here: this lane is emptied first
            return takeFirstLocked(&lanes_[lane]);
        }
        lane = nextLane(lane);
    } while (lane != nextOut_);
    nextOut_ = 0;
    nextIn_ = 0;
    return nullptr;
}

void *CAQueue::takeFirstLocked(Lane *lane)
{
    HTList *const node = lane->head->next;
    void *const element = node->object;
    lane->head->next = node->next;
    if (lane->tail == node) {
        lane->tail = lane->head;
    }
    HTList_discardElement(node, HTThread_context());
    --length_;
    return element;
}

int CAQueue::empty() const
{
    const PMutexGuard guard(mutex_);
    return length_ == 0 ? 1 : 0;
}

std::int32_t CAQueue::getLength() const
{
    const PMutexGuard guard(mutex_);
    return length_;
}

std::int32_t CAQueue::getTotalEnqueued() const
{
    const PMutexGuard guard(mutex_);
    return totalEnqueued_;
}
