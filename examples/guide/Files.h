// Saving an object graph to a file and loading it, with all that can go wrong.
#ifndef GUIDE_FILES_H
#define GUIDE_FILES_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "fxds/fxds.h"

// False with the reason in errno; the file is then as it was before.
template <class C>
bool save(C& root, const char* path) {
    const fxStr unfinished = path | fxStr(".new");
    std::remove(unfinished);  // an existing file is not truncated: its tail would stay
    errno = 0;
    fxStdioStream* const stream = new fxStdioStream(unfinished, fxStream::fxStreamWrite, 0666);
    stream->take();  // so that it outlives the writer
    bool isDone = false;
    if (!stream->hasError()) {
        const std::unique_ptr<fxTranscriber> writer(fxTranscriber::getWriter(stream));
        isDone = writer != nullptr && fxWriteObject(*writer, &root);
    }
    isDone = stream->close() && isDone;  // a full disk shows here at the latest
    isDone = isDone && std::rename(unfinished, path) == 0;
    const int error = errno != 0 ? errno : EIO;
    stream->release();
    if (!isDone) std::remove(unfinished);
    errno = error;
    return isDone;
}

// Null when there is no whole graph with such a root in the file. Ends the
// program when the file is damaged in a way that no writer and no accident of
// the disk explains.
template <class C>
C* load(const char* path) {
    fxStdioStream* const stream = new fxStdioStream(path, fxStream::fxStreamRead, 0);
    stream->take();
    C* root = nullptr;
    if (!stream->hasError()) {
        const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(stream));
        if (reader != nullptr) root = fxReadObject<C>(*reader);
    }
    stream->release();
    return root;
}

// Whether load() will succeed: tried in a process of its own, whose end is no harm.
template <class C>
bool canBeLoaded(const char* path) {
    std::fflush(nullptr);  // or the child prints what still waits once more
    const pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        _exit(load<C>(path) != nullptr ? 0 : 1);
    }
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 0;
}

#endif
