#include "fxds/Post.h"

#include <deque>
#include <mutex>

#include "fxds/Wakeup.h"

// Invariants, whenever the mutex is free: (1) The waker's descriptor is readable if
// functions wait, so whatever becomes of a turn, the next one finds the rest.
// (2) `taken` is the number of functions that have left the queue at the front.
//
// Those that serve the queue share it with the object, which may be destroyed by a
// function that they call.

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

    // In two steps, for the destructors of the functions may call add().
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

    // Those that wait now: of a nested call only what the outer one has left.
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
