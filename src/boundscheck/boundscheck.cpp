// Bounds-checked functions: argument checks first, then the plain libc operation.
#include "boundscheck/boundscheck.h"

#include <stdlib.h>
#include <string.h>

namespace {

constraint_handler_t g_handler = ignore_handler_s;

errno_t Violation(const char* msg, errno_t error)
{
    g_handler(msg, nullptr, error);
    return error;
}

bool Overlap(const void* a, size_t alen, const void* b, size_t blen)
{
    const uintptr_t pa = reinterpret_cast<uintptr_t>(a);
    const uintptr_t pb = reinterpret_cast<uintptr_t>(b);
    return pa < pb ? pb - pa < alen : pa - pb < blen;
}

}  // namespace

extern "C" {

constraint_handler_t set_constraint_handler_s(constraint_handler_t handler)
{
    constraint_handler_t previous = g_handler;
    g_handler = handler ? handler : ignore_handler_s;
    return previous;
}

void ignore_handler_s(const char*, void*, errno_t) {}

void abort_handler_s(const char*, void*, errno_t)
{
    abort();
}

errno_t memcpy_s(void* dest, rsize_t dmax, const void* src, rsize_t n)
{
    if (!dest) return Violation("memcpy_s: dest is null", BC_ESNULLP);
    if (dmax == 0) return Violation("memcpy_s: dmax is 0", BC_ESZEROL);
    if (dmax > RSIZE_MAX) return Violation("memcpy_s: dmax exceeds max", BC_ESLEMAX);
    errno_t error = 0;
    const char* msg = nullptr;
    if (!src) { error = BC_ESNULLP; msg = "memcpy_s: src is null"; }
    else if (n == 0) { error = BC_ESZEROL; msg = "memcpy_s: n is 0"; }
    else if (n > RSIZE_MAX) { error = BC_ESLEMAX; msg = "memcpy_s: n exceeds max"; }
    else if (n > dmax) { error = BC_ESNOSPC; msg = "memcpy_s: n exceeds dmax"; }
    else if (Overlap(dest, n, src, n)) { error = BC_ESOVRLP; msg = "memcpy_s: overlap"; }
    if (error) {
        memset(dest, 0, dmax);
        return Violation(msg, error);
    }
    memcpy(dest, src, n);
    return 0;
}

errno_t memset_s(void* dest, rsize_t dmax, int value, rsize_t n)
{
    if (!dest) return Violation("memset_s: dest is null", BC_ESNULLP);
    if (dmax == 0) return Violation("memset_s: dmax is 0", BC_ESZEROL);
    if (dmax > RSIZE_MAX) return Violation("memset_s: dmax exceeds max", BC_ESLEMAX);
    if (n == 0) return Violation("memset_s: n is 0", BC_ESZEROL);
    if (n > RSIZE_MAX || n > dmax) {
        memset(dest, value, dmax);
        return Violation("memset_s: n exceeds dmax", n > RSIZE_MAX ? BC_ESLEMAX : BC_ESNOSPC);
    }
    memset(dest, value, n);
    return 0;
}

errno_t strncpy_s(char* dest, rsize_t dmax, const char* src, rsize_t n)
{
    if (!dest) return Violation("strncpy_s: dest is null", BC_ESNULLP);
    if (dmax == 0) return Violation("strncpy_s: dmax is 0", BC_ESZEROL);
    if (dmax > RSIZE_MAX) return Violation("strncpy_s: dmax exceeds max", BC_ESLEMAX);
    errno_t error = 0;
    const char* msg = nullptr;
    size_t len = 0;
    if (!src) { error = BC_ESNULLP; msg = "strncpy_s: src is null"; }
    else if (n == 0) { error = BC_ESZEROL; msg = "strncpy_s: n is 0"; }
    else if (n > RSIZE_MAX) { error = BC_ESLEMAX; msg = "strncpy_s: n exceeds max"; }
    else {
        len = strnlen_s(src, n);  // characters actually copied
        if (len >= dmax) { error = BC_ESNOSPC; msg = "strncpy_s: dest too small"; }
        else if (Overlap(dest, len + 1, src, len + 1)) { error = BC_ESOVRLP; msg = "strncpy_s: overlap"; }
    }
    if (error) {
        dest[0] = '\0';
        return Violation(msg, error);
    }
    memcpy(dest, src, len);
    dest[len] = '\0';
    return 0;
}

errno_t strcpy_s(char* dest, rsize_t dmax, const char* src)
{
    if (!dest) return Violation("strcpy_s: dest is null", BC_ESNULLP);
    if (dmax == 0) return Violation("strcpy_s: dmax is 0", BC_ESZEROL);
    if (dmax > RSIZE_MAX) return Violation("strcpy_s: dmax exceeds max", BC_ESLEMAX);
    errno_t error = 0;
    const char* msg = nullptr;
    size_t len = 0;
    if (!src) { error = BC_ESNULLP; msg = "strcpy_s: src is null"; }
    else {
        len = strnlen_s(src, dmax);
        if (len >= dmax) { error = BC_ESNOSPC; msg = "strcpy_s: dest too small"; }
        else if (Overlap(dest, len + 1, src, len + 1)) { error = BC_ESOVRLP; msg = "strcpy_s: overlap"; }
    }
    if (error) {
        dest[0] = '\0';
        return Violation(msg, error);
    }
    memcpy(dest, src, len + 1);
    return 0;
}

errno_t strcmp_s(const char* dest, rsize_t dmax, const char* src, int* indicator)
{
    if (!indicator) return Violation("strcmp_s: indicator is null", BC_ESNULLP);
    *indicator = 0;
    if (!dest || !src) return Violation("strcmp_s: string is null", BC_ESNULLP);
    if (dmax == 0) return Violation("strcmp_s: dmax is 0", BC_ESZEROL);
    if (dmax > RSIZE_MAX) return Violation("strcmp_s: dmax exceeds max", BC_ESLEMAX);
    const unsigned char* a = reinterpret_cast<const unsigned char*>(dest);
    const unsigned char* b = reinterpret_cast<const unsigned char*>(src);
    for (; dmax > 0 && *a && *a == *b; --dmax, ++a, ++b) {}
    *indicator = dmax == 0 ? 0 : int(*a) - int(*b);
    return 0;
}

size_t strnlen_s(const char* s, size_t maxsize)
{
    if (!s) return 0;
    const void* end = memchr(s, '\0', maxsize);
    return end ? size_t(static_cast<const char*>(end) - s) : maxsize;
}

errno_t strstr_s(char* dest, rsize_t dmax, const char* src, rsize_t slen, char** substring)
{
    if (!substring) return Violation("strstr_s: substring is null", BC_ESNULLP);
    *substring = nullptr;
    if (!dest || !src) return Violation("strstr_s: string is null", BC_ESNULLP);
    if (dmax == 0 || slen == 0) return Violation("strstr_s: size is 0", BC_ESZEROL);
    if (dmax > RSIZE_MAX || slen > RSIZE_MAX) return Violation("strstr_s: size exceeds max", BC_ESLEMAX);
    const size_t needle = strnlen_s(src, slen);
    const size_t hay = strnlen_s(dest, dmax);
    if (needle == 0) {
        *substring = dest;
        return 0;
    }
    void* found = memmem(dest, hay, src, needle);
    if (!found) return BC_ESNOTFND;
    *substring = static_cast<char*>(found);
    return 0;
}

}  // extern "C"
