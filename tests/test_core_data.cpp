#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "vexa/core/data.h"

namespace {

std::pair<int, int> ShapeOf(const VEXA_Data& d) {
    int r = 7, c = 7;
    EXPECT_TRUE(d.getDataInfo(r, c));
    return {r, c};
}

VEXA_Data Filled(int rows, int cols, double start = 1.0) {
    VEXA_Data d(rows, cols);
    for (int e = 0; e < rows * cols; ++e) d.getValue()[e] = start + e;
    return d;
}

bool Inline(const VEXA_Data& d) {
    const char* p = reinterpret_cast<const char*>(d.getValue());
    return p >= reinterpret_cast<const char*>(&d) && p < reinterpret_cast<const char*>(&d + 1);
}

TEST(CoreData, ShapeConstructor) {
    const struct {
        int rows, cols;
        DataType type;
        bool storage, inline_buf;
    } cases[] = {
        {1, 1, DT_SCALAR, true, true},   {1, 9, DT_VECTOR, true, true},
        {3, 3, DT_MATRIX, true, true},   {1, 10, DT_VECTOR, true, false},
        {2, 5, DT_MATRIX, true, false},  {3, 1, DT_NULL, true, true},
        {0, 5, DT_NULL, false, false},   {-1, 2, DT_NULL, false, false},
        {65536, 65536, DT_NULL, false, false},  // product beyond 32 bits
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.rows << " x " << c.cols);
        VEXA_Data d(c.rows, c.cols);
        EXPECT_EQ(d.getType(), c.type);
        EXPECT_EQ(d.getValue() != nullptr, c.storage);
        EXPECT_EQ(d.getValue() && Inline(d), c.inline_buf);
        EXPECT_EQ(ShapeOf(d), c.storage ? std::make_pair(c.rows, c.cols) : std::make_pair(0, 0));
    }
}

TEST(CoreData, CopyAndAssignment) {
    const VEXA_Data big = Filled(2, 5), small = Filled(1, 3);
    VEXA_Data copy(big);
    EXPECT_NE(copy.getValue(), big.getValue());
    EXPECT_TRUE(copy == big);
    EXPECT_TRUE(Inline(VEXA_Data(small)));

    // Copies of null values report -2 x -2 and have no storage, even when the
    // source had storage without a kind.
    const VEXA_Data none, shapeless(3, 1);
    for (const VEXA_Data* src : {&none, &shapeless}) {
        VEXA_Data c(*src);
        EXPECT_EQ(c.getType(), DT_NULL);
        EXPECT_EQ(c.getValue(), nullptr);
        EXPECT_EQ(ShapeOf(c), std::make_pair(-2, -2));
    }

    VEXA_Data target = Filled(2, 5);
    target = VEXA_Data(3, 1);  // null: storage goes, the old shape stays
    EXPECT_EQ(target.getValue(), nullptr);
    EXPECT_EQ(ShapeOf(target), std::make_pair(2, 5));
    const VEXA_Data* sources[] = {&small, &big, &copy, &target};  // growing, same shape, self
    for (const VEXA_Data* src : sources) {
        target = *src;
        EXPECT_TRUE(target == big || target == small);
    }
}

}  // namespace
