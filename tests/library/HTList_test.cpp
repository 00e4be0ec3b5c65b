#include "HTList.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdlib>

namespace {

// Called before main, as a program may do from a static object.
const int slot = HTList_register();

// The calling thread as a work thread, with a free list of its own.
class HTListTest : public testing::Test {
protected:
    ~HTListTest() override { HTWorkThread_threadExit(0, context_); }

    HTThreadContext *const context_ = HTWorkThread_threadCreate(0);
};

TEST_F(HTListTest, FreedElementKeepsItsObjectOrIsLostWithItsThread)
{
    HTList *const list = HTList_new(context_);
    const HTList *const element = HTList_addObject(list, std::malloc(8), context_);
    HTList_deleteAndFreeContents(list, context_);  // leak checkers report what is not freed
    EXPECT_EQ(std::bit_cast<std::uintptr_t>(element->object), 0xcdcdcdcdU);
    ASSERT_EQ(HTList_new(context_), list);
    EXPECT_TRUE(list->object == nullptr && list->next == nullptr);
    HTList_discardElement(list, context_);
    HTWorkThread_threadExit(0, context_);
    EXPECT_EQ(HTList_new(nullptr), list);
}

TEST_F(HTListTest, FreeListsExchangeTheWrongNumber)
{
    const struct {
        int held;  // by the thread's list before
        void (*giveBack)(HTList *element, HTThreadContext *context);
        bool kept;
    } rows[] = {{79, HTList_delete, true},
                {80, HTList_delete, false},
                {99, HTList_discardElement, true},
                {100, HTList_discardElement, false}};
    int held = 30;  // moved there by the first call
    HTList_discardElement(HTList_new(context_), context_);
    for (const auto &row : rows) {
        for (; held < row.held; ++held) {
            HTList_discardElement(HTList_new(nullptr), context_);
        }
        HTList *const element = HTList_new(nullptr);
        row.giveBack(element, context_);
        held += row.kept ? 1 : 0;
        EXPECT_EQ(HTList_new(row.kept ? context_ : nullptr), element) << held << " slot " << slot;
        row.giveBack(element, context_);
    }
}

}  // namespace
