// What an action traces.
#ifndef FXDS_TESTS_TRACED_H
#define FXDS_TESTS_TRACED_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "fxds/Obj.h"
#include "fxds/Trace.h"

/// The lines that are traced while `action` runs. The sink changes errno, and what it
/// sends is not traced.
template <class Kinds, class Action>
std::string traced(Kinds kinds, Action action) {
    std::string lines;
    const auto note = [](void* to, const char* line, size_t length) {
        EXPECT_EQ(std::strlen(line), length);
        errno = 99;
        fxObj().addOutput<int>("out").send(1, fxObj::fxSendNow);
        *static_cast<std::string*>(to) += std::string(line) + '\n';
    };
    fxTrace::setSink(note, &lines);
    fxTrace::enable(kinds);
    action();
    fxTrace::enable(0U);
    fxTrace::setSink(nullptr, nullptr);
    return lines;
}

#endif
