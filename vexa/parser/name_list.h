#ifndef VEXA_PARSER_NAME_LIST_H
#define VEXA_PARSER_NAME_LIST_H

#include <cstddef>
#include <memory>
#include <vector>

#include "vexa/core/wstring.h"
#include "vexa/parser/parse_failure.h"

// The parameter-name list: reading the host's list, finding a name in it, and
// the named constants that come before it. Internal to the parser.
namespace vexa_parser {

// Fills names from the host's comma-separated list. False for a malformed
// list or one that names a function, with the reason in failure.
bool ReadNameList(const wchar_t* list, std::vector<VEXA_WString>& names, FailureSlot& failure);

// The value of PI, RTOD or DTOR written in any case; false for other names.
bool NamedConstant(const wchar_t* name, double& value);

// A hash index over a growing name list, so that a host list of many
// thousands of names costs each reference one probe instead of a scan. It
// takes in names appended since the last look-up by itself.
class NameIndex {
public:
    // The first index whose name equals name without regard to case, or -1.
    int Find(const std::vector<VEXA_WString>& names, const wchar_t* name);

private:
    void Insert(const std::vector<VEXA_WString>& names, int index);

    std::vector<int> m_slots;  // a name's index plus one; 0 is free
    std::size_t m_covered = 0;
    std::size_t m_used = 0;
};

// Lists shorter than this are scanned: for the usual handful of names that
// is faster than hashing.
constexpr std::size_t kIndexedListSize = 16;

// getIndexOfVariable's look-up: first match wins, case folded as SameNoCase.
int FindName(const std::vector<VEXA_WString>& names, const wchar_t* name, std::unique_ptr<NameIndex>& index);

}  // namespace vexa_parser

#endif
