#include "HTList.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdlib>

namespace {

// Before main, as a static object of a program may do it.
const int slot = HTList_register();

// The calling thread as a work thread, with a free list of its own.
class HTListTest : public testing::Test {
protected:
    ~HTListTest() override { HTWorkThread_threadExit(0, context_); }

    HTThreadContext *const context_ = HTWorkThread_threadCreate(0);
};

TEST_F(HTListTest, FreedElementKeepsItsObject)
{
    HTList *const list = HTList_new(context_);
    const HTList *const element = HTList_addObject(list, std::malloc(8), context_);
    HTList_deleteAndFreeContents(list, context_);  // leak checkers see to the contents
    EXPECT_EQ(std::bit_cast<std::uintptr_t>(element->object), 0xcdcdcdcdU);
    ASSERT_EQ(HTList_new(context_), list);
    EXPECT_TRUE(list->object == nullptr && list->next == nullptr);
    HTList_discardElement(list, context_);
}

TEST_F(HTListTest, FreeListsExchangeTheWrongNumber)
{
    const struct {
        std::uint32_t held;
        void (*giveBack)(HTList *element, HTThreadContext *context);
        std::uint32_t kept;
    } rows[] = {{79, HTList_delete, 1},
                {80, HTList_delete, 0},
                {99, HTList_discardElement, 1},
                {100, HTList_discardElement, 0}};
    HTList_discardElement(HTList_new(context_), context_);
    EXPECT_EQ(HTList_statistics(context_).count, 30U) << "slot " << slot;
    for (const auto &row : rows) {
        for (auto held = HTList_statistics(context_).count; held < row.held; ++held) {
            HTList_discardElement(HTList_new(nullptr), context_);
        }
        row.giveBack(HTList_new(nullptr), context_);
        EXPECT_EQ(HTList_statistics(context_).count, row.held + row.kept);
    }
}

TEST(HTList, ThreadLosesElements)
{
    const HTListStatistics before = HTList_statistics(nullptr);
    HTThreadContext *const context = HTWorkThread_threadCreate(0);
    HTList *const list = HTList_new(nullptr);
    for (int i = 0; i < 2000; ++i) {
        HTList_addObject(list, nullptr, i % 3 == 0 ? context : nullptr);
    }
    HTList_delete(list, context);
    HTWorkThread_threadExit(0, context);
    const HTListStatistics after = HTList_statistics(nullptr);
    EXPECT_EQ(after.allocated - after.count, before.allocated - before.count);
}

}  // namespace
