// The vector and matrix benchmark compares the library with hand-written
// C++; a table of times means nothing unless both sides compute the same
// values from the same parameters. This checks that on the shared set, and
// that the set's declarations are read as its header describes them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include "../bench/vecmat_prepare.h"

namespace fs = std::filesystem;

namespace {

fs::path SourceDir()
{
    if (const char* env = std::getenv("VEXA_SOURCE_DIR"))
        return env;
    return fs::path(__FILE__).parent_path().parent_path();
}

bool ReadText(const std::string& text, vecmat::Set* set)
{
    const fs::path path = fs::temp_directory_path() / ("vexa_vecmat_" + std::to_string(::getpid()) + ".txt");
    {
        std::ofstream out(path);
        out << text;
    }
    const bool ok = vecmat::Read(path.string(), set);
    fs::remove(path);
    return ok;
}

TEST(BenchVecmat, NativeReferencesAgreeWithTheLibraryOnTheSharedSet)
{
    const fs::path file = SourceDir() / ".." / "shared" / "bench" / "vecmat_expr.txt";
    if (!fs::exists(file))
        GTEST_SKIP() << "no " << file;
    vecmat::Set set;
    ASSERT_TRUE(vecmat::Read(file.string(), &set));
    ASSERT_FALSE(set.expressions.empty());
    for (const vecmat::Line& line : set.expressions) {
        SCOPED_TRACE(line.text);
        EXPECT_FALSE(line.description.empty());
        vecmat::Prepared p;
        vecmat::Prepare(set, line, 256, 99u, &p);
        ASSERT_EQ(p.problem, "");
        const double difference = vecmat::LargestDifference(p);
        EXPECT_GE(difference, 0.0) << "shape, null value or thrown code differ";
        EXPECT_LE(difference, 1e-12);
    }
}

TEST(BenchVecmat, DeclarationsAreReadAsTheHeaderDescribes)
{
    vecmat::Set set;
    ASSERT_TRUE(ReadText("# comment\n#@param K 1x1 2 3\n#@param E 2x2 = 1 0  0 1\n\n# a sum\nK*E+E\nK\n", &set));
    ASSERT_EQ(set.params.size(), 2u);
    const vecmat::Param* e = set.Find("E");
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->size(), 4);
    EXPECT_EQ(e->constant, (std::vector<double>{1, 0, 0, 1}));
    const vecmat::Param* k = set.Find("K");
    ASSERT_NE(k, nullptr);
    EXPECT_TRUE(k->constant.empty());
    EXPECT_EQ(k->lo, 2.0);
    EXPECT_EQ(k->hi, 3.0);
    ASSERT_EQ(set.expressions.size(), 2u);
    EXPECT_EQ(set.expressions[0].description, "a sum");
    EXPECT_EQ(set.expressions[1].description, "");

    // Drawn values stay in range; constants repeat in every set.
    unsigned state = 1u;
    std::vector<double> drawn, constant;
    vecmat::Draw(*k, 100, &state, &drawn);
    vecmat::Draw(*e, 3, &state, &constant);
    for (double v : drawn)
        EXPECT_TRUE(v >= 2.0 && v <= 3.0) << v;
    EXPECT_EQ(constant, (std::vector<double>{1, 0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1}));
}

TEST(BenchVecmat, MalformedDeclarationsAreRefused)
{
    const char* const kBad[] = {
        "#@param X 3y3 0 1\n",      // not ROWSxCOLS
        "#@param X 0x3 0 1\n",      // no elements
        "#@param X 1x3 = 1 2\n",    // too few constants
        "#@param X 1x2 = 1 2 3\n",  // too many
        "#@param X 1x3 0\n",        // no upper bound
        "#@param X\n",
    };
    for (const char* text : kBad) {
        vecmat::Set set;
        EXPECT_FALSE(ReadText(text, &set)) << text;
    }
}

TEST(BenchVecmat, AnExpressionWithoutItsNativeFunctionIsLeftOut)
{
    vecmat::Set set;
    ASSERT_TRUE(ReadText("#@param P1 1x3 -1 1\n#@param F 1x3 -1 1\nF%P1\n", &set));
    vecmat::Prepared p;
    vecmat::Prepare(set, set.expressions[0], 4, 1u, &p);
    EXPECT_EQ(p.problem, "no native function");
}

}  // namespace
