// Processes for tests: a function in a process of its own, and memory that both see.
#pragma once

#include <functional>
#include <new>
#include <sys/mman.h>
#include <type_traits>

/// A function that runs in a forked process. Start one while the test has a single thread.
class process {
  public:
    /// The process ends with what `work` returns, and runs nothing of the test's behind it.
    explicit process(const std::function<int()>& work);
    /// Ends the process by SIGKILL if it wasn't waited for.
    ~process();
    process(const process&) = delete;
    process& operator=(const process&) = delete;

    void send(int signal) const;
    /// Its exit status, or minus the signal that ended it.
    int wait();

  private:
    int id_;
};

/// A T, zero at first, that processes forked later share with this one.
template <typename T>
class shared_memory {
    static_assert(std::is_trivially_destructible_v<T>);

  public:
    shared_memory()
        : object_(new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                            -1, 0)) T()) {}
    ~shared_memory() { munmap(object_, sizeof(T)); }
    shared_memory(const shared_memory&) = delete;
    shared_memory& operator=(const shared_memory&) = delete;

    T& operator*() const { return *object_; }
    T* operator->() const { return object_; }
    T* get() const { return object_; }

  private:
    T* object_;
};
