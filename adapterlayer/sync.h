/// Synchronisation helpers that both units share: atomic access to plain members, and the names of
/// clang's thread-safety annotations.
#pragma once

#include <cstddef>
#include <type_traits>

/// The member may be touched only with `mutex` held.
#define OEM_GUARDED_BY(mutex) __attribute__((guarded_by(mutex)))
/// The function is called with `mutex` held.
#define OEM_REQUIRES(mutex) __attribute__((requires_capability(mutex)))
/// The function takes `mutex` itself.
#define OEM_EXCLUDES(mutex) __attribute__((locks_excluded(mutex)))
/// The function touches guarded members without the lock; its comment says why that is safe.
#define OEM_NO_LOCK_CHECK __attribute__((no_thread_safety_analysis))

namespace OemLayer {

/// What the memory of two processors is kept apart by. A record that requests write to is aligned to
/// it, so that no two cameras write to the same piece.
inline constexpr std::size_t kCacheLine = 64;

/// Atomic access to members whose type is part of a record or that vendor code writes through a
/// pointer, and so cannot be std::atomic.
template <typename T> T LoadRelaxed(const T& word) {
    return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

template <typename T> void StoreRelaxed(T& word, std::type_identity_t<T> value) {
    __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

template <typename T> T LoadAcquire(const T& word) {
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

template <typename T> void StoreRelease(T& word, std::type_identity_t<T> value) {
    __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

} // namespace OemLayer
