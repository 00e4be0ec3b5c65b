#include "HTAssoc.h"

#include <gtest/gtest.h>

namespace {

TEST(HTAssoc, LookupTakesTheWrongPair)
{
    HTAssocList *const list = HTAssocList_new(nullptr);
    EXPECT_TRUE(HTAssocList_add(list, "Content-Type:", "old", nullptr));
    EXPECT_TRUE(HTAssocList_add(list, "content-type:", "new", nullptr));
    EXPECT_TRUE(HTAssocList_add(list, "Empty:", "", nullptr));
    EXPECT_STREQ(HTAssocList_lookupExact(list, "CONTENT-TYPE:"), "new");
    EXPECT_STREQ(HTAssocList_lookupExact(list, "Empty:"), "");
    for (const char *const absent : {"Content-Type", "Content-Type::", ""}) {
        EXPECT_EQ(HTAssocList_lookupExact(list, absent), nullptr) << absent;
    }
    HTAssocList_delete(list, nullptr);
}

}  // namespace
