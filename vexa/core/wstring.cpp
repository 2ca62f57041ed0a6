#include "vexa/core/wstring.h"

#include <cstdint>

#include "vexa/core/platform.h"

// The declaration in the header carries the export attribute; repeating it on
// the definition is ignored by the compiler with a warning.
template class std::vector<VEXA_WString>;

namespace {

// One per thread rather than one per process: within a thread a kept
// reference is overwritten by the next conversion exactly as callers expect,
// while threads that each run their own parser never race on it.
thread_local std::wstring t_conversion = L"NULL";

const wchar_t kEmpty[] = L"";

// A string without text takes part in comparisons as an empty text.
const wchar_t* TextOf(const wchar_t* s) {
    return s ? s : kEmpty;
}

// Code units are compared as unsigned values; subtracting them as int could
// overflow with 32-bit units.
int CompareUnits(const wchar_t* a, const wchar_t* b) {
    for (;; ++a, ++b) {
        const std::uint32_t x = static_cast<std::uint32_t>(*a);
        const std::uint32_t y = static_cast<std::uint32_t>(*b);
        if (x != y) return x < y ? -1 : 1;
        if (y == 0) return 0;
    }
}

}  // namespace

VEXA_WString::VEXA_WString() : m_str(nullptr) {}

VEXA_WString::VEXA_WString(const wchar_t* s) : m_str(nullptr) {
    InitSpaceAndAssignValue(s);
}

VEXA_WString::VEXA_WString(const VEXA_WString& other) : m_str(nullptr) {
    InitSpaceAndAssignValue(other.m_str);
}

VEXA_WString::~VEXA_WString() {
    delete[] m_str;
    m_str = nullptr;
}

VEXA_WString& VEXA_WString::operator=(const VEXA_WString& other) {
    if (this == &other) return *this;
    delete[] m_str;
    m_str = nullptr;
    InitSpaceAndAssignValue(other.m_str);
    return *this;
}

bool VEXA_WString::operator==(const VEXA_WString& other) const {
    return CompareUnits(TextOf(m_str), TextOf(other.m_str)) == 0;
}

bool VEXA_WString::operator<(const VEXA_WString& other) const {
    return CompareUnits(TextOf(m_str), TextOf(other.m_str)) < 0;
}

VEXA_WString& VEXA_WString::operator+=(const wchar_t* s) {
    if (!s) return *this;
    const std::size_t added = vexa_platform::WLen(s);
    const std::size_t own = vexa_platform::WLen(m_str);
    // The new array is complete before the old one goes, so appending the
    // own text works and a failed allocation leaves the string unchanged.
    wchar_t* joined = new wchar_t[own + added + 1];
    for (std::size_t i = 0; i < own; ++i) joined[i] = m_str[i];
    for (std::size_t i = 0; i <= added; ++i) joined[own + i] = s[i];
    delete[] m_str;
    m_str = joined;
    return *this;
}

VEXA_WString::operator const wchar_t*() const {
    return m_str;
}

wchar_t* VEXA_WString::getWChar_t() {
    return m_str;
}

const wchar_t* VEXA_WString::getWChar_t() const {
    return m_str;
}

VEXA_WString::operator std::wstring&() const {
    if (m_str)
        t_conversion.assign(m_str);
    else
        t_conversion.assign(L"NULL");
    return t_conversion;
}

bool VEXA_WString::SameNoCase(const VEXA_WString& other) const {
    return vexa_platform::WcsICmp(m_str, other.m_str) == 0;
}

bool VEXA_WString::isTime() const {
    return vexa_platform::WcsICmp(m_str, L"TIME") == 0;
}

bool VEXA_WString::isCycleAngle() const {
    return vexa_platform::WcsICmp(m_str, L"CYCLEANGLE") == 0;
}

bool VEXA_WString::isResultObject() const {
    const std::size_t len = vexa_platform::WLen(m_str);
    if (len == 0) return false;
    return m_str[0] == L'{' && m_str[len - 1] == L'}';
}

void VEXA_WString::InitSpaceAndAssignValue(const wchar_t* s) {
    if (!s) return;
    const std::size_t n = vexa_platform::WLen(s);
    wchar_t* copy = new wchar_t[n + 1];
    for (std::size_t i = 0; i <= n; ++i) copy[i] = s[i];
    m_str = copy;
}
