#include "host/faults.h"

#include "adapterlayer/oemlayer_host.h"

#include <algorithm>

namespace host {
namespace {

using standin::Control;
using standin::Entry;

constexpr char kOfflineLibrary[] = "/vendor/lib64/hw/com.qti.chi.offline.so";
constexpr char kCameraModule[] = "/vendor/lib64/hw/camera.qcom.so";
constexpr char kUtilities[] = "/vendor/lib64/libcamxcommonutils.so";
constexpr char kExtension[] = "/odm/lib64/libextensionlayer.so";

constexpr char kNoPerformance[] = "camera.qcom.no-perf.so";
constexpr char kNoSensorModes[] = "camera.qcom.no-sensor-modes.so";
constexpr char kNoLogEntry[] = "libcamxcommonutils.no-log-entry.so";

constexpr uint64_t kNoObject = 0;
constexpr uint64_t kFailure = 1;

template <Entry Name, uint64_t Result> void Fail(Control& device, Plan& /*plan*/) {
    device.Fail(Name, Result);
}

template <Entry Name> void Miss(Control& device, Plan& /*plan*/) { device.SetMissing(Name); }

template <const auto& Path> void Refuse(Control& device, Plan& plan) {
    device.RefuseLibrary(Path);
    plan.endsInAbort = std::string(Path) == kExtension;
}

template <const auto& Path, const auto& File> void Replace(Control& device, Plan& plan) {
    device.UseVariant(Path, File);
    plan.endsInAbort = std::string(File) == kNoSensorModes;
}

} // namespace

const std::vector<Fault>& Faults() {
    static const std::vector<Fault> faults{
        {"open-fails", "opening a session yields handle 0", Fail<Entry::OpenSession, kNoObject>},
        {"open-missing", "the vendor has no entry to open sessions", Miss<Entry::OpenSession>},
        {"configure-fails-once", "configuring fails the first time",
         [](Control& device, Plan&) { device.Fail(Entry::ConfigureStreams, kFailure, 1, 1); }},
        {"configure-fails", "configuring always fails", Fail<Entry::ConfigureStreams, kFailure>},
        {"configure-missing", "the vendor has no entry to configure sessions",
         Miss<Entry::ConfigureStreams>},
        {"execute-fails", "the vendor refuses every request",
         Fail<Entry::ExecuteRequest, kFailure>},
        {"execute-missing", "the vendor has no entry for requests", Miss<Entry::ExecuteRequest>},
        {"translate-missing", "output buffers cannot be translated for the vendor",
         Miss<Entry::TranslateToChiBuffer>},
        {"translate-back-missing", "output buffers cannot be translated back",
         Miss<Entry::TranslateFromChiBuffer>},
        {"metadata-create-fails", "the vendor makes no metadata for the output",
         Fail<Entry::MetadataCreate, kNoObject>},
        {"metadata-translate-fails", "the output's metadata cannot be translated back",
         Fail<Entry::MetadataCreateAndroid, kNoObject>},
        {"error-buffer", "every buffer comes back with an error status",
         [](Control&, Plan& plan) { plan.shape = standin::Shape::ErrorBuffer; }},
        {"close-fails", "the vendor closes no session", Fail<Entry::CloseSession, kFailure>},
        {"no-offline-library", "the offline library is not on the device", Refuse<kOfflineLibrary>},
        {"no-metadata-ops", "the vendor has no metadata operations",
         Fail<Entry::OpenMetadataOps, kNoObject>},
        {"no-buffer-ops", "the vendor has no buffer operations",
         Fail<Entry::OpenBufferOps, kNoObject>},
        {"no-perf-callback", "the camera module lacks the performance callback",
         Replace<kCameraModule, kNoPerformance>},
        {"no-utilities", "the vendor's utilities are not on the device", Refuse<kUtilities>},
        {"no-log-entry", "the vendor's utilities lack the logger",
         Replace<kUtilities, kNoLogEntry>},
        {"no-extension-library", "the extension library is not on the device (ends in SIGABRT)",
         Refuse<kExtension>},
        {"no-sensor-modes", "the camera module lacks the sensor modes (ends in SIGABRT)",
         Replace<kCameraModule, kNoSensorModes>},
        {"unknown-feature", "the last request is for a feature that the device does not list",
         [](Control&, Plan& plan) { plan.feature = "Twilight"; }},
        {"null-output", "requests come without an output buffer",
         [](Control&, Plan& plan) { plan.sendsOutput = false; }},
        {"too-many-sets", "requests announce 13 input sets, one more than there may be",
         [](Control&, Plan& plan) { plan.announcedSets = OemLayer::kMaxInputSets + 1; }},
        {"no-results",
         "the vendor accepts requests and never delivers (waits until the time is up)",
         [](Control& device, Plan&) { device.SetDelivery(standin::Delivery::ByHand); }},
        {"framework-buffers", "no fault: sessions ask the framework for their output buffers",
         [](Control& device, Plan& plan) {
             device.SetAsksForFrameworkBuffers(true);
             plan.lends = true;
         }},
    };
    return faults;
}

const Fault* FindFault(const std::string& name) {
    const auto found = std::find_if(Faults().begin(), Faults().end(),
                                    [&](const Fault& fault) { return fault.name == name; });
    return found == Faults().end() ? nullptr : &*found;
}

const std::map<std::string, standin::Shape>& Shapes() {
    using standin::Shape;
    static const std::map<std::string, Shape> shapes{
        {"metadata-first", Shape::MetadataFirst},
        {"buffers-first", Shape::BuffersFirst},
        {"together", Shape::Together},
        {"partials", Shape::Partials},
        {"error-buffer", Shape::ErrorBuffer},
        {"second-block", Shape::SecondBlock},
    };
    return shapes;
}

} // namespace host
