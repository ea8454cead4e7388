#include "fxds/Post.h"

#include <deque>
#include <mutex>

#include "fxds/Wakeup.h"

// Invariants, whenever the mutex is free:
// (1) The waker's descriptor is readable if functions are queued. If serve() ends early,
//     for instance by an exception, the next turn finds the rest.
// (2) `taken` is the number of functions taken from the front of the queue.
//
// serve() shares the ownership of the queue with the object, because a function that it
// calls may destroy the object.

fxPostQueue::Task::~Task() = default;

class fxPostQueue::Queue : public std::enable_shared_from_this<Queue> {
public:
    explicit Queue(size_t limit_) : waker(std::make_unique<Waker>(*this)), limit(limit_) {}

    bool isValid() const { return waker != nullptr && waker->isValid(); }

    size_t count() const {
        const std::lock_guard<std::mutex> guard(mutex);
        return tasks.size();
    }

    bool add(std::unique_ptr<Task>& task) {
        const std::lock_guard<std::mutex> guard(mutex);
        if (!isValid() || tasks.size() >= limit) return false;
        tasks.push_back(std::move(task));
        if (tasks.size() == 1) waker->wake();
        return true;
    }

    // The contents are destroyed after the mutex is released: destructors may call add().
    void close() {
        std::unique_ptr<Waker> ending;
        std::deque<std::unique_ptr<Task>> dropped;
        const std::lock_guard<std::mutex> guard(mutex);
        ending.swap(waker);
        dropped.swap(tasks);
    }

private:
    class Waker final : public fxWakeup {
    public:
        explicit Waker(Queue& queue_) : queue(queue_) {}
        const char* className() const override { return "fxPostQueue"; }
        void handleRead() override { queue.serve(); }
        using fxWakeup::takeCalls;

    private:
        Queue& queue;
    };

    // Calls the functions queued at entry, except those that a nested call has taken.
    void serve() {
        const std::shared_ptr<Queue> hold = shared_from_this();
        const size_t end = taken + count();
        if (taken == end) waker->takeCalls();  // wake() was called on the handler itself
        while (taken < end) {
            const std::unique_ptr<Task> task = take();
            if (task == nullptr) return;
            task->call();
        }
    }

    std::unique_ptr<Task> take() {
        const std::lock_guard<std::mutex> guard(mutex);
        if (tasks.empty()) return nullptr;
        std::unique_ptr<Task> task = std::move(tasks.front());
        tasks.pop_front();
        ++taken;
        if (tasks.empty()) waker->takeCalls();
        return task;
    }

    mutable std::mutex mutex;
    std::unique_ptr<Waker> waker;  // null once the object is destroyed
    std::deque<std::unique_ptr<Task>> tasks;
    size_t taken = 0;  // changed in the loop's thread only
    const size_t limit;
};

fxPostQueue::fxPostQueue(size_t limit) : queue(std::make_shared<Queue>(limit)) {}

fxPostQueue::~fxPostQueue() { queue->close(); }

bool fxPostQueue::isValid() const { return queue->isValid(); }

size_t fxPostQueue::getCount() const { return queue->count(); }

bool fxPostQueue::add(std::unique_ptr<Task> task) { return queue->add(task); }
