// Compiler attributes and what the compiler tells of itself, as macros. Any file may include this
// one.
#pragma once

// A printf-like function: which argument is the format, and which the first to be formatted (both
// counted from 1, `this` included).
#define HT_PRINTF(text, first) __attribute__((format(printf, text, first)))

// Clang's thread-safety analysis (-Wthread-safety); nothing under other compilers.
#if defined(__clang__)
#define HT_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define HT_THREAD_ATTRIBUTE(attribute)
#endif

#define HT_CAPABILITY(name) HT_THREAD_ATTRIBUTE(capability(name))
#define HT_SCOPED_CAPABILITY HT_THREAD_ATTRIBUTE(scoped_lockable)
#define HT_GUARDED_BY(mutex) HT_THREAD_ATTRIBUTE(guarded_by(mutex))
#define HT_REQUIRES(mutex) HT_THREAD_ATTRIBUTE(requires_capability(mutex))
#define HT_ACQUIRE(...) HT_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define HT_RELEASE(...) HT_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))

// true when the program is built with AddressSanitizer. g++ and clang tell it in different ways.
#if defined(__SANITIZE_ADDRESS__)
#define HT_ADDRESS_SANITIZER true
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HT_ADDRESS_SANITIZER true
#endif
#endif
#ifndef HT_ADDRESS_SANITIZER
#define HT_ADDRESS_SANITIZER false
#endif
