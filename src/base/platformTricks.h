// The speed tricks that rely on a platform's private layout or on reading past a text's end, each
// switched on here only where its assumption is checked, and all of them off with VEXLOR_PORTABLE
// (cmake -DVEXLOR_PORTABLE=ON). docs/performance.md says what each one buys.
#pragma once

#if !defined(VEXLOR_PORTABLE)

// A waiter on the container's mutex watches glibc's lock word (zero while free) before it sleeps.
#if defined(__GLIBC__) && __GLIBC__ == 2 && defined(__linux__)
#define VEXLOR_WATCH_MUTEX_WORD 1
#endif

// The System V x86-64 va_list, copied field by field instead of by va_copy.
#if defined(__x86_64__) && defined(__LP64__)
#define VEXLOR_COPY_VA_LIST_FIELDS 1
#endif

// Texts scanned sixteen bytes at a time, which may read past their end within the same page.
#if defined(__SSE2__)
#define VEXLOR_SCAN_BLOCKS 1
#endif

#endif
