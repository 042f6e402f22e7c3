/// Memory that a process has in common with those that it forks.
#pragma once

#include <cerrno>
#include <new>
#include <sys/mman.h>
#include <system_error>

namespace kit {

/// One `T`, which nobody destroys: for numbers, atomics and arrays of them. What a child wrote
/// stays when it dies.
template <class T> class Shared {
  public:
    /// \throws std::system_error where there is no memory.
    Shared()
        : mMemory(
              mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (mMemory == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), "memory for several processes");
        }
        mValue = new (mMemory) T;
    }
    ~Shared() { munmap(mMemory, sizeof(T)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    T& operator*() { return *mValue; }
    T* operator->() { return mValue; }

  private:
    void* mMemory;
    T* mValue = nullptr;
};

} // namespace kit
