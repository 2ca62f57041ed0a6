// Replays every input the fuzzer ever broke the library with, and the
// fuzzer's own seeds, through the same host sequence the fuzzer runs. Under
// the sanitizer build this catches the memory errors and leaks those inputs
// once caused; in every build it checks the interface promises the harness
// checks (see fuzz/one_input.h).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/one_input.h"

namespace fs = std::filesystem;

namespace {

fs::path SourceDir() {
    if (const char* env = std::getenv("VEXA_SOURCE_DIR"))
        return env;
    // Run by hand outside ctest: the test file lies in tests/ of the tree.
    return fs::path(__FILE__).parent_path().parent_path();
}

std::vector<fs::path> Inputs(const char* sub) {
    std::vector<fs::path> files;
    fs::path dir = SourceDir() / "fuzz" / sub;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(dir, ec)) {
        if (!entry.is_regular_file() || entry.path().filename().string().rfind("README", 0) == 0)
            continue;
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

void ReplayAll(const char* sub) {
    for (const fs::path& file : Inputs(sub)) {
        std::ifstream in(file, std::ios::binary);
        std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::string problem = vexa_fuzz::RunOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                                     bytes.size());
        EXPECT_EQ(problem, "") << "input " << file;
    }
}

}  // namespace

TEST(FuzzRegressions, SavedFindingsPass) {
    if (!fs::is_directory(SourceDir() / "fuzz" / "regressions"))
        GTEST_SKIP() << "no fuzz/regressions under " << SourceDir() << "; set VEXA_SOURCE_DIR";
    ReplayAll("regressions");
}

TEST(FuzzRegressions, SeedsPass) {
    std::vector<fs::path> seeds = Inputs("seeds");
    if (seeds.empty())
        GTEST_SKIP() << "no fuzz/seeds under " << SourceDir() << "; set VEXA_SOURCE_DIR";
    ReplayAll("seeds");
}

// The harness's own input decoding decides what reaches the parser; a slip
// there would silently narrow what the fuzzer explores.
TEST(FuzzRegressions, DecodeSplitsBytesIntoCodeUnits) {
    struct Case {
        std::string bytes;
        std::vector<wchar_t> units;
    };
    const Case cases[] = {
        {"x+1", {L'x', L'+', L'1'}},
        {"\xc3\xa9", {wchar_t(0xE9)}},
        {"\xe2\x82\xac", {wchar_t(0x20AC)}},
        {"\xf0\x9f\x98\x80", {wchar_t(0x1F600)}},
        {"\xc3(", {wchar_t(0xC3), L'('}},                        // broken sequence: bytes as they are
        {std::string("\xff\x01\x00\x00\x80", 5), {static_cast<wchar_t>(0x80000001u)}},  // raw 32-bit unit
        {"\xff\x01", {wchar_t(0xFF), wchar_t(0x01)}},             // escape cut short
    };
    for (const Case& c : cases) {
        std::vector<wchar_t> got =
            vexa_fuzz::Decode(reinterpret_cast<const std::uint8_t*>(c.bytes.data()), c.bytes.size());
        std::vector<wchar_t> want = c.units;
        want.push_back(L'\0');
        EXPECT_EQ(got, want) << "bytes of length " << c.bytes.size();
    }
}
