// Tests of the record field layouts: every byte of every record named once.
#include "agentconf/record_fields.h"

#include <gtest/gtest.h>

#include <set>

namespace {

TEST(RecordFields, EachLayoutNamesEveryByteOnceInOrder) {
    std::set<size_t> sizes;
    for (const OV_RecordLayout &layout : OV_RecordLayouts()) {
        SCOPED_TRACE(layout.kind);
        EXPECT_TRUE(sizes.insert(layout.size).second) << "sizes tell the kinds apart";
        EXPECT_EQ(OV_RecordLayoutOfSize(layout.size), &layout);
        size_t next = 0;
        for (const OV_RecordField &f : layout.fields) {
            SCOPED_TRACE(f.name);
            EXPECT_EQ(f.offset, next) << "a gap or an overlap before the field";
            ASSERT_GT(f.elemSize, 0u);
            EXPECT_EQ(f.size % f.elemSize, 0u);
            next = f.offset + f.size;
        }
        EXPECT_EQ(next, layout.size);
    }
    EXPECT_EQ(sizes.size(), 9u);
    EXPECT_EQ(OV_RecordLayoutOfSize(0), nullptr);
}

} // namespace
