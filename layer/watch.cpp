/// Writes violations to the log.
#include "layer/watch.h"

#include "layer/settings.h"

#include <android/log.h>

namespace layer {

/// Behind a gap, an engine is one that comes late.
void Watch::Take(const contract::Event& event, bool isOwn) {
    if (!mEngine.has_value() || event.Number() != mLast + 1) {
        mEngine.emplace([this](const contract::Violation& violation) {
            if (mTells) {
                Log(ANDROID_LOG_ERROR, "%s", contract::LineOf(violation).c_str());
            }
        });
    }
    mLast = event.Number();
    mTells = isOwn;
    mEngine->Take(event);
}

} // namespace layer
