/// Synchronisation helpers that both units share: atomic access to plain members, the names of
/// clang's thread-safety annotations, and the right to touch a camera's sessions.
#pragma once

#include <cstddef>
#include <mutex>
#include <type_traits>

/// The type stands for a right to touch something, which clang's analysis follows.
#define OEM_CAPABILITY(name) __attribute__((capability(name)))
/// An object of the class has the right as long as it lives.
#define OEM_SCOPED_CAPABILITY __attribute__((scoped_lockable))
#define OEM_ACQUIRE(...) __attribute__((acquire_capability(__VA_ARGS__)))
#define OEM_RELEASE(...) __attribute__((release_capability(__VA_ARGS__)))
/// The member may be touched only with the right.
#define OEM_GUARDED_BY(right) __attribute__((guarded_by(right)))
/// The function is called with the right.
#define OEM_REQUIRES(right) __attribute__((requires_capability(right)))
/// The function takes the right itself.
#define OEM_EXCLUDES(right) __attribute__((locks_excluded(right)))

namespace OemLayer {

/// What the memory of two processors is kept apart by. A camera's records that requests write to
/// are aligned to it, so that no two cameras write to the same piece.
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

/// The right to touch a camera's sessions: the registry's map and lists, and the adaptee's maps.
/// Whoever holds the registry's mutex has it, and so has a call that the host keeps apart from all
/// others of the camera. The analysis does not tell cameras apart, and takes a `CameraSerial` at
/// its word.
struct OEM_CAPABILITY("role") SessionsRole {};
inline constexpr SessionsRole kSessions;

/// Holds the registry's mutex.
class OEM_SCOPED_CAPABILITY RegistryLock {
  public:
    explicit RegistryLock(std::mutex& mutex) OEM_ACQUIRE(kSessions) : mLock(mutex) {}
    ~RegistryLock() OEM_RELEASE() {}
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;

  private:
    std::lock_guard<std::mutex> mLock;
};

/// States that the host keeps this call apart from all others of the camera. Locks nothing.
class OEM_SCOPED_CAPABILITY CameraSerial {
  public:
    CameraSerial() OEM_ACQUIRE(kSessions) {}
    ~CameraSerial() OEM_RELEASE() {}
    CameraSerial(const CameraSerial&) = delete;
    CameraSerial& operator=(const CameraSerial&) = delete;
};

} // namespace OemLayer
