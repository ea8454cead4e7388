// Functions that other threads hand to the loop's thread.
#ifndef FXDS_POST_H
#define FXDS_POST_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "fxds/Config.h"

/// Functions for the loop's thread to call. Made in that thread; it registers
/// itself with fx_theExecutive, whose poll() calls what was posted.
///
///     fxPostQueue queue;                                  // in the loop's thread
///     queue.post([this, sum] { total += sum; });          // in any thread
///
/// Functions are called in the order in which they were posted, each once. One
/// that is posted while others are called waits for the next turn, as do all that
/// follow one that throws; the exception leaves poll(). A function may do anything,
/// call poll() and destroy the queue included.
///
/// Cost: an allocation for each function; a system call for the first that waits.
class FX_API fxPostQueue {
public:
    static constexpr size_t unlimited = SIZE_MAX;  ///< No bound but memory.

    /// At most `limit` functions wait. Makes fx_theExecutive when there is none
    /// yet. When the system has no descriptor left, or none that the executive can
    /// serve, the queue is made but isValid() is false.
    explicit fxPostQueue(size_t limit = unlimited);
    fxPostQueue(const fxPostQueue&) = delete;
    fxPostQueue& operator=(const fxPostQueue&) = delete;
    /// Destroys the waiting functions without calling them; their destructors may call
    /// post(), which returns false.
    /// Requires: the loop's thread; no other thread is in post() or still to call it.
    ~fxPostQueue();

    bool isValid() const;     ///< Whether there is a descriptor to wake the loop with.
    size_t getCount() const;  ///< How many functions wait. In any thread.

    /// Queues `function`, anything that can be moved and called without arguments,
    /// and wakes the loop. Returns false, and destroys it uncalled, when the queue
    /// is full or not valid. In any thread, but not in a signal handler.
    template <class Function>
    bool post(Function function) {
        return add(std::make_unique<Call<Function>>(std::move(function)));
    }

private:
    struct Task {
        Task() = default;
        Task(const Task&) = delete;
        Task& operator=(const Task&) = delete;
        virtual ~Task();
        virtual void call() = 0;
    };
    template <class Function>
    struct Call final : Task {
        explicit Call(Function function_) : function(std::move(function_)) {}
        void call() override { static_cast<void>(function()); }
        Function function;
    };
    class Queue;

    bool add(std::unique_ptr<Task> task);

    const std::shared_ptr<Queue> queue;
};

#endif
