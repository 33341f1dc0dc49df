// Tests of the record field layouts: every byte of every record named once.
#include "agentconf/record_fields.h"

#include "agentconf/records.h"

#include <gtest/gtest.h>

namespace {

TEST(RecordFields, EachLayoutNamesEveryByteOnceInOrder) {
    ASSERT_EQ(OV_RecordLayouts().size(), RECORD_KIND_COUNT);
    for (const OV_RecordLayout &layout : OV_RecordLayouts()) {
        SCOPED_TRACE(OV_RecordSpecOf(layout.kind).name);
        EXPECT_EQ(&OV_RecordLayoutOf(layout.kind), &layout);
        EXPECT_EQ(layout.size, OV_RecordSpecOf(layout.kind).size);
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
}

} // namespace
