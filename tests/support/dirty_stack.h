// For faults of memory that is not cleared: what a call finds where its variables will be.
#ifndef TESTS_DIRTY_STACK_H
#define TESTS_DIRTY_STACK_H

#include <cstddef>

// Fills that many bytes of the stack, from the caller's frame on, with other values than zero.
template <size_t BYTES> __attribute__((noinline)) void DirtyStack()
{
    volatile char bytes[BYTES];
    for (volatile char& byte : bytes) {
        byte = 'x';
    }
}

#endif
