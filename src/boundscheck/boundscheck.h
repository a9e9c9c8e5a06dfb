// Bounds-checked string and memory functions in the manner of ISO/IEC TR 24731-1 (C11 Annex K),
// which glibc does not provide.
//
// Every function checks its arguments before touching memory. A null pointer, a size of zero
// or above RSIZE_MAX, overlapping source and destination, or a destination too small is a
// constraint violation: the current constraint handler is called, the function returns
// non-zero and, where noted, empties the destination. The default handler ignores the
// violation, because a violation must never abort the host that loaded the plug-in.
// Not thread-safe with respect to set_constraint_handler_s; everything runs on one thread.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef size_t rsize_t;
typedef int errno_t;

#ifndef RSIZE_MAX
#define RSIZE_MAX (SIZE_MAX >> 1)
#endif

// Result codes besides 0 (success).
enum {
    BC_ESNULLP = 400,  // a required pointer is null
    BC_ESZEROL = 401,  // a size is zero
    BC_ESLEMAX = 403,  // a size exceeds RSIZE_MAX
    BC_ESOVRLP = 404,  // source and destination overlap
    BC_ESNOSPC = 406,  // the destination is too small
    BC_ESNOTFND = 409  // strstr_s: the substring does not occur (not a violation)
};

// Called on every violation with a message naming the function, a null pointer and the code.
typedef void (*constraint_handler_t)(const char* msg, void* ptr, errno_t error);

// Installs handler (null restores the default, ignore_handler_s); returns the previous one.
constraint_handler_t set_constraint_handler_s(constraint_handler_t handler);
void ignore_handler_s(const char* msg, void* ptr, errno_t error);
// Aborts the process; for debugging only, never installed by the plug-in.
void abort_handler_s(const char* msg, void* ptr, errno_t error);

// Copies n bytes. On a violation with a usable destination, zeroes its first dmax bytes.
errno_t memcpy_s(void* dest, rsize_t dmax, const void* src, rsize_t n);
// Sets n bytes to value. A violation with a usable destination fills its first dmax bytes.
errno_t memset_s(void* dest, rsize_t dmax, int value, rsize_t n);
// Copies the string src with its terminator. On a violation dest becomes "" when usable.
errno_t strcpy_s(char* dest, rsize_t dmax, const char* src);
// Copies at most n characters of src and terminates dest. On a violation dest becomes "".
errno_t strncpy_s(char* dest, rsize_t dmax, const char* src, rsize_t n);
// Compares dest (at most dmax characters) with src; *indicator gets <0, 0 or >0.
errno_t strcmp_s(const char* dest, rsize_t dmax, const char* src, int* indicator);
// Length of s, at most maxsize; 0 for a null s. Never a violation.
size_t strnlen_s(const char* s, size_t maxsize);
// Finds the first occurrence of the first slen characters of src (up to its terminator) in
// dest (at most dmax characters). *substring points at it, or is null with BC_ESNOTFND.
errno_t strstr_s(char* dest, rsize_t dmax, const char* src, rsize_t slen, char** substring);

#ifdef __cplusplus
}
#endif
