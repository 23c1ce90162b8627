#ifndef TAV_VINTA_BASETYPES_CSTR_H
#define TAV_VINTA_BASETYPES_CSTR_H

#include "tav/vinta/vinta_api.h"

#include <stdbool.h>
#include <stddef.h>

/// Functions on NUL-ended texts, for C and C++.  They allocate nothing and never fail.  Sizes are in
/// characters.

#ifdef __cplusplus
extern "C" {
#endif

/// The length; 0 for null.
TAV_API unsigned tav_str_size(char const * s);
/// Compares at most `n` characters as signed bytes and ends with 0 at a NUL in both; otherwise the difference
/// of the first unequal pair.  With a null side: 1 for `a` alone, -1 for `b` alone, 0 for none.
TAV_API int tav_str_compare(char const * a, char const * b, unsigned n);
/// Equal lengths and nothing different within; null and empty text differ.
TAV_API bool tav_str_equals(char const * a, char const * b);
/// Compares over the length of `prefix`.
TAV_API bool tav_str_starts_with(char const * s, char const * prefix);
/// Copies up to a NUL in `src` or up to the limit, min(capacity - 1, n) with `n` = 0xFFFFFFFF for the length
/// of `src`, and returns that limit in every case.  The terminator stands behind the copied text when `src`
/// ended; when text was left it stands at dst[limit + 1], and dst[limit] is not touched: the buffer needs two
/// bytes behind the copied text.  A capacity of 0 wraps, so the limit is `n`.
TAV_API unsigned tav_str_copy(char * dst, unsigned capacity, char const * src, unsigned n);

/// As the functions above, over wide units.
TAV_API unsigned tav_wstr_size(wchar_t const * s);
TAV_API int tav_wstr_compare(wchar_t const * a, wchar_t const * b, unsigned n);
TAV_API bool tav_wstr_equals(wchar_t const * a, wchar_t const * b);
TAV_API bool tav_wstr_starts_with(wchar_t const * s, wchar_t const * prefix);
TAV_API unsigned tav_wstr_copy(wchar_t * dst, unsigned capacity, wchar_t const * src, unsigned n);

/// The same on the text whose pointer is held at the argument, which must not be null: the length, null or
/// empty, a comparison without limit, and a copy as tav_str_copy with the text's length.
TAV_API unsigned tav_string_size(char const * const * p);
TAV_API bool tav_string_is_empty(char const * const * p);
TAV_API int tav_string_compare(char const * const * a, char const * const * b);
TAV_API unsigned tav_string_to_array(char const * const * value, char * dst, unsigned capacity);
TAV_API unsigned tav_u8string_size(char const * const * p);
TAV_API bool tav_u8string_is_empty(char const * const * p);
TAV_API int tav_u8string_compare(char const * const * a, char const * const * b);
TAV_API unsigned tav_u8string_to_array(char const * const * value, char * dst, unsigned capacity);
TAV_API unsigned tav_wstring_size(wchar_t const * const * p);
TAV_API bool tav_wstring_is_empty(wchar_t const * const * p);
TAV_API int tav_wstring_compare(wchar_t const * const * a, wchar_t const * const * b);
TAV_API unsigned tav_wstring_to_array(wchar_t const * const * value, wchar_t * dst, unsigned capacity);

#ifdef __cplusplus
}
#endif

#endif
