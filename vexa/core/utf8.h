#ifndef VEXA_CORE_UTF8_H
#define VEXA_CORE_UTF8_H

#include <cstddef>
#include <string>

#include "vexa/core/export.h"

// UTF-8 for the library's wide texts, without the C library's multibyte
// routines, whose behaviour depends on the locale a host happens to set.
// Where wchar_t has 16 bits (Windows) the wide texts are UTF-16: characters
// above U+FFFF are surrogate pairs, and positions count code units.
namespace vexa {

// Code units that are no Unicode scalar value become U+FFFD (with 16-bit
// units: surrogates that are not part of a pair).
VEXA_API std::string ToUtf8(const std::wstring& wide);

// Ill-formed sequences become U+FFFD, one for each maximal start of a
// well-formed sequence, else one per byte (Unicode's "maximal subpart"
// practice): overlong forms, surrogates, values above U+10FFFF, truncated
// sequences and stray continuation bytes all do.
VEXA_API std::wstring FromUtf8(const std::string& utf8);

// The byte offset in utf8 of the character FromUtf8(utf8)[chars] (the size
// of utf8 past its end): positions in a wide text, told in its UTF-8 bytes. A
// position between the two units of a surrogate pair is told as the start of
// their character.
VEXA_API std::size_t Utf8Offset(const std::string& utf8, std::size_t chars);

}  // namespace vexa

#endif
