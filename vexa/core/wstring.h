#ifndef VEXA_CORE_WSTRING_H
#define VEXA_CORE_WSTRING_H

#include <string>
#include <vector>

#include "vexa/core/export.h"

// Owning wide string used for every name in the library. A string may have no
// text at all (m_str null), which is distinct from an empty text.
class VEXA_API VEXA_WString {
public:
    VEXA_WString();
    VEXA_WString(const wchar_t* s);
    VEXA_WString(const VEXA_WString& other);
    ~VEXA_WString();

    VEXA_WString& operator=(const VEXA_WString& other);
    bool operator==(const VEXA_WString& other) const;
    bool operator<(const VEXA_WString& other) const;
    VEXA_WString& operator+=(const wchar_t* s);

    operator const wchar_t*() const;
    wchar_t* getWChar_t();
    const wchar_t* getWChar_t() const;

    // Returns the shared conversion string, overwritten with this text ("NULL"
    // when there is none). It stays valid only until the next conversion.
    operator std::wstring&() const;

    bool SameNoCase(const VEXA_WString& other) const;
    bool isTime() const;
    bool isCycleAngle() const;
    bool isResultObject() const;

private:
    void InitSpaceAndAssignValue(const wchar_t* s);

    wchar_t* m_str;
};

// Host and library share one instantiation of the name-list vector.
extern template class VEXA_API std::vector<VEXA_WString>;

#endif
