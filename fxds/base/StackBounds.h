// The address range of a thread's stack.
#ifndef FXDS_BASE_STACKBOUNDS_H
#define FXDS_BASE_STACKBOUNDS_H

#include <pthread.h>

#include <cstddef>
#include <cstdint>

/// A range of addresses on a stack; empty if the system does not report it.
class fxStackPart {
public:
    fxStackPart() = default;
    /// The stack of this thread.
    static fxStackPart whole() {
        static thread_local const fxStackPart known = ofThread();
        return known;
    }
    /// The part of this thread's stack below the frame, from the end that it grows towards.
    /// Empty when the frame is on no such stack.
    static fxStackPart beneath(const void* frame) {
        fxStackPart part = whole();
        part.bytes = part.holds(frame) ? reinterpret_cast<uintptr_t>(frame) - part.begin : 0;
        return part;
    }
    bool holds(const void* address) const {
        return reinterpret_cast<uintptr_t>(address) - begin < bytes;
    }

private:
    static fxStackPart ofThread() {
        fxStackPart stack;
        pthread_attr_t attributes;
        if (pthread_getattr_np(pthread_self(), &attributes) != 0) return stack;
        void* begin = nullptr;
        size_t size = 0;
        if (pthread_attr_getstack(&attributes, &begin, &size) == 0) {
            stack.begin = reinterpret_cast<uintptr_t>(begin);
            stack.bytes = size;
        }
        pthread_attr_destroy(&attributes);
        return stack;
    }

    uintptr_t begin = 0;
    uintptr_t bytes = 0;
};

#endif
