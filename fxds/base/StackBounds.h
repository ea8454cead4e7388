// Where the stack of a thread is.
#ifndef FXDS_STREAMS_STACKBOUNDS_H
#define FXDS_STREAMS_STACKBOUNDS_H

#include <pthread.h>

#include <cstddef>
#include <cstdint>

/// A range of addresses on a stack; empty where the system does not tell.
class fxStackPart {
public:
    fxStackPart() = default;
    /// From the end that the stack of this thread grows to, up to the frame.
    static fxStackPart beneath(const void* frame) {
        static thread_local const uintptr_t end = endOfStack();
        fxStackPart part;
        part.begin = end;
        const uintptr_t top = reinterpret_cast<uintptr_t>(frame);
        if (end != 0 && top > end) part.bytes = top - end;
        return part;
    }
    bool holds(const void* address) const {
        return reinterpret_cast<uintptr_t>(address) - begin < bytes;
    }

private:
    static uintptr_t endOfStack() {
        pthread_attr_t attributes;
        if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
        void* end = nullptr;
        size_t size = 0;
        const bool isKnown = pthread_attr_getstack(&attributes, &end, &size) == 0;
        pthread_attr_destroy(&attributes);
        return isKnown ? reinterpret_cast<uintptr_t>(end) : 0;
    }

    uintptr_t begin = 0;
    uintptr_t bytes = 0;
};

#endif
