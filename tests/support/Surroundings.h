// What tests need of the system: files, descriptors, threads with small stacks.
#ifndef FXDS_TESTS_SURROUNDINGS_H
#define FXDS_TESTS_SURROUNDINGS_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

/// A directory of the test's own, gone at its end. Each operation makes an
/// entry and gives its path.
class TestDirectory {
public:
    TestDirectory() {
        char name[] = "/tmp/fxds-test-XXXXXX";
        path = mkdtemp(name);
    }
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;
    ~TestDirectory() { std::filesystem::remove_all(path); }

    std::string file(const std::string& name, const std::string& bytes = "") const {
        std::ofstream(path + "/" + name, std::ios::binary) << bytes;
        return path + "/" + name;
    }
    std::string directory(const std::string& name) const {
        std::filesystem::create_directory(path + "/" + name);
        return path + "/" + name;
    }
    std::string link(const std::string& name, const std::string& target) const {
        std::filesystem::create_symlink(target, path + "/" + name);
        return path + "/" + name;
    }

    std::string path;
};

inline int openDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 1024; ++fd) count += fcntl(fd, F_GETFD) != -1;
    return count;
}

/// Limits what the process may have; or ends that.
inline void limit(decltype(RLIMIT_FSIZE) what, rlim_t most = RLIM_INFINITY) {
    rlimit now = {};
    getrlimit(what, &now);
    now.rlim_cur = std::min(most, now.rlim_max);
    setrlimit(what, &now);
}

/// Limits memory to so much more than there is. Sanitizers map more than that would leave.
inline void limitMemory(size_t more) {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    limit(RLIMIT_AS, static_cast<size_t>(pages * getpagesize()) + more);
}

/// Does the work on a thread whose stack has this size.
inline void onStackOf(size_t stackBytes, std::function<void()> work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackBytes);
    pthread_t thread;
    const auto run = [](void* f) -> void* {
        (*static_cast<std::function<void()>*>(f))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

#endif
