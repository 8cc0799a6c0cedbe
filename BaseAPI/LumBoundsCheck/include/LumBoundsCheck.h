/* Bounds-checked memset_s, memcpy_s and sprintf_s after C11 Annex K, for C and C++. */
#ifndef LUM_BOUNDS_CHECK_H
#define LUM_BOUNDS_CHECK_H

#include <stddef.h>

#if defined(__GNUC__)
#define LUM_BOUNDS_CHECK_API __attribute__((__visibility__("default")))
#define LUM_BOUNDS_CHECK_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))
#else
#define LUM_BOUNDS_CHECK_API
#define LUM_BOUNDS_CHECK_PRINTF(text, first)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The names that C11 K.3.2 and K.3.3 give to these types. */
typedef int errno_t;
typedef size_t rsize_t;

/*
 * All three functions may be called from several threads at once, on different memory. They never
 * abort and call no constraint handler: a violated constraint is told by the result alone. A size
 * above SIZE_MAX / 2 is taken for a negative number that was converted, and is a violation.
 */

/*
 * Sets the first `count` bytes of `destination` to `value` (converted to unsigned char), and does
 * so even when nothing reads them afterwards: fit for wiping secrets. C11 K.3.7.4.1.
 *
 * Returns 0, or a positive errno value: EINVAL for a null `destination`, ERANGE for a `capacity`
 * or `count` above SIZE_MAX / 2 or a `count` above `capacity`. After a violation the whole
 * destination of `capacity` bytes is set, when pointer and capacity are usable, and nothing is
 * touched otherwise. A `count` of 0 is no violation.
 */
LUM_BOUNDS_CHECK_API errno_t memset_s(void* destination, rsize_t capacity, int value,
                                      rsize_t count);

/*
 * Copies `count` bytes from `source` to `destination`, which has room for `capacity`. C11
 * K.3.7.1.1.
 *
 * Returns 0, or a positive errno value: EINVAL for a null pointer or when the two ranges of `count`
 * bytes overlap, ERANGE for a `capacity` or `count` above SIZE_MAX / 2 or a `count` above
 * `capacity`. After a violation the destination holds `capacity` zeros, when its pointer and
 * capacity are usable, and nothing is touched otherwise. A `count` of 0 is no violation.
 */
LUM_BOUNDS_CHECK_API errno_t memcpy_s(void* destination, rsize_t capacity, const void* source,
                                      rsize_t count);

/*
 * Formats like snprintf into `destination`, which has room for `capacity` bytes with the
 * terminating zero. Text is never cut off: it fits as a whole or the call fails. C11 K.3.5.3.6,
 * except that the arguments are not looked at (a null pointer for %s, say).
 *
 * Returns the number of characters written, the terminating zero not counted, or a negated errno
 * value: -EINVAL for a null pointer or a text that cannot be formatted, -ERANGE for a `capacity`
 * of 0 or above SIZE_MAX / 2 or a text that does not fit. After a violation the destination is the
 * empty string, when its pointer and capacity are usable; the bytes behind its first zero are
 * unspecified.
 */
LUM_BOUNDS_CHECK_API int sprintf_s(char* destination, rsize_t capacity, const char* format, ...)
    LUM_BOUNDS_CHECK_PRINTF(3, 4);

#ifdef __cplusplus
}
#endif

#endif /* LUM_BOUNDS_CHECK_H */
