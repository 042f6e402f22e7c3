/// The turn goes there through a lock, as a vendor's queue has one, and comes back without.
#include "schedules/vendor_thread.h"

#include <utility>

namespace schedules {

VendorThread::VendorThread() : mThread([this] { Run(); }) {}

VendorThread::~VendorThread() {
    {
        const std::lock_guard lock(mMutex);
        mIsOver = true;
    }
    mWake.notify_all();
    mThread.join();
}

void VendorThread::Do(const std::function<void()>& act) {
    const uint64_t before = mDone.load(std::memory_order_relaxed);
    {
        const std::lock_guard lock(mMutex);
        mAct = &act;
    }
    mWake.notify_all();
    while (mDone.load(std::memory_order_relaxed) == before) {
        std::this_thread::yield();
    }
}

void VendorThread::CatchUp() { const std::lock_guard lock(mMutex); }

void VendorThread::Run() {
    std::unique_lock lock(mMutex);
    for (;;) {
        mWake.wait(lock, [this] { return mIsOver || mAct != nullptr; });
        if (mIsOver) {
            return;
        }
        const auto* const act = std::exchange(mAct, nullptr);
        lock.unlock();
        (*act)();
        lock.lock(); // With the unlock within the next wait, for `CatchUp`.
        lock.unlock();
        mDone.fetch_add(1, std::memory_order_relaxed);
        lock.lock();
    }
}

} // namespace schedules
