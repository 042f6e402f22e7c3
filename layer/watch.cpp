/// Writes violations to the log.
#include "layer/watch.h"

#include "layer/settings.h"

#include <android/log.h>

namespace layer {

Watch::Watch()
    : mEngine([](const contract::Violation& violation) {
          Log(ANDROID_LOG_ERROR, "%s", contract::LineOf(violation).c_str());
      }) {
    // A layer sees its first call, which need not be the recording's.
    mEngine.Reset();
}

void Watch::Take(const contract::Event& event) { mEngine.Take(event); }

} // namespace layer
