// What a tool that the tests run under makes different, in one place.
#ifndef TESTS_ALLOWANCES_H
#define TESTS_ALLOWANCES_H

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

// Threads that are not the program's own: the thread sanitizer keeps one in a program that starts
// one; the user-mode emulator keeps one in every program.
#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
const int EXTRA_THREADS = 1;
#elif defined(TESTS_EMULATED)
const int EXTRA_THREADS = 1;
#else
const int EXTRA_THREADS = 0;
#endif

// Where everything takes many times as long.
#if defined(TESTS_EMULATED) || defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__) ||    \
    __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
const bool EMULATED_OR_SANITIZED = true;
#else
const bool EMULATED_OR_SANITIZED = false;
#endif

#endif
