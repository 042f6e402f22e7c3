/// A thread that does things for another one, which waits meanwhile.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace schedules {

class VendorThread {
  public:
    VendorThread();
    ~VendorThread();
    VendorThread(const VendorThread&) = delete;
    VendorThread& operator=(const VendorThread&) = delete;

    /// Has the thread act, and waits. By itself the wait puts nothing in order: what the library
    /// reads afterwards of what was written there meanwhile, ThreadSanitizer reports. For one
    /// thread at a time, and not this one.
    void Do(const std::function<void()>& act);

    /// Afterwards the caller may read what the thread wrote until its last act was over.
    void CatchUp();

    bool IsCurrent() const { return mThread.get_id() == std::this_thread::get_id(); }

  private:
    void Run();

    std::mutex mMutex;
    std::condition_variable mWake;
    const std::function<void()>* mAct = nullptr;
    bool mIsOver = false;
    std::atomic<uint64_t> mDone = 0; ///< Acts; never used to put anything in order.
    std::thread mThread;             ///< Last: it uses the rest.
};

} // namespace schedules
