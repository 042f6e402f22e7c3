/// How the load function binds the vendor's and the device's libraries, and the callbacks that hand
/// their functions on.

#include "tests/support/device.h"

#include <csignal>
#include <dlfcn.h>
#include <unistd.h>

namespace {

using namespace test;

constexpr const char kOffline[] = "/vendor/lib64/hw/com.qti.chi.offline.so";
constexpr const char kCamera[] = "/vendor/lib64/hw/camera.qcom.so";
constexpr const char kUtils[] = "/vendor/lib64/libcamxcommonutils.so";
constexpr const char kExtension[] = "/odm/lib64/libextensionlayer.so";

/// A symbol of a device library that is open already.
void* SymbolOf(const std::string& path, const char* symbol) {
    return dlsym(dlopen(path.c_str(), RTLD_NOW), symbol);
}

/// The device's calls by their names, opened libraries by their paths.
Texts Steps(Device& device) {
    Texts steps;
    for (const standin::Call& call : device->Calls()) {
        steps.push_back(call.text.empty() ? standin::EntryName(call.entry) : call.text);
        EXPECT_TRUE(call.entry != Entry::LibraryOpen || call.args == Words{2}) << "RTLD_NOW";
    }
    return steps;
}

Texts Errors() {
    Texts lines = LogLines();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("E "); });
    return lines;
}

TEST(Load, BindsTheLibrariesInOrderLogsTheContextAndKeepsTwoHandles) {
    Device device;
    void* extension = device.Load();
    const std::string log = Log();
    EXPECT_EQ(Steps(device), (Texts{kOffline, "OpenContext", kCamera, kUtils, "OfflineLogEntry",
                                    "SetOfflineLoggerOps", kExtension}));
    EXPECT_EQ(extension, SymbolOf(kExtension, "ExtensionProcessResultMeta"));
    EXPECT_NE(Args(Entry::OfflineLogEntry), Words{0});
    EXPECT_EQ(Args(Entry::SetOfflineLoggerOps), Args(Entry::OfflineLogEntry));
    Camera camera{device};
    EXPECT_EQ(Args(Entry::OpenContext), (Words{0, 512}));
    const auto* context =
        reinterpret_cast<const ChiOfflineInterface*>(Args(Entry::OpenMetadataOps)[0]);
    EXPECT_EQ(log, Printed("I LoadOfflineLib: Load Offline Camera interfaces\n"
                           "I LoadOfflineLib: OfflineCameraContext %p, size:%d, name:%s\n"
                           "I LoadVeltoCallbackInt: Velto Calllback interfaces",
                           context, context->size, context->pName));
    device->ClearRecords();
    device.Load(); // Keeps the handles of the camera module and of the extension.
    EXPECT_EQ(Steps(device),
              (Texts{kOffline, "OpenContext", kUtils, "OfflineLogEntry", "SetOfflineLoggerOps"}));
}

TEST(Load, LogsANullOfflineContextWithoutReadingIt) {
    Device device;
    device->Fail(Entry::OpenContext, 0);
    EXPECT_NE(device.Load(), nullptr);
    EXPECT_EQ(LastLog("LoadOfflineLib"), "I OfflineCameraContext (nil), size:0, name:(null)");
}

// --- What a device may lack. Each case runs in a process of its own.

struct Lack {
    std::string library;
    std::string what;  ///< Of the variant without one symbol; empty where the library is missing.
    std::string error; ///< Function and message; empty where nothing is logged.
};

void PrintTo(const Lack& lack, std::ostream* out) {
    *out << lack.library.substr(lack.library.rfind('/') + 1) << ' ' << lack.what;
}

void Script(const Lack& lack) {
    if (lack.what.empty()) {
        StandinControl()->RefuseLibrary(lack.library);
    } else {
        const std::string file = lack.library.substr(lack.library.rfind('/') + 1);
        const std::string stem = file.substr(0, file.size() - 3);
        StandinControl()->UseVariant(lack.library, stem + ".no-" + lack.what + ".so");
    }
}

class SoftLack : public testing::TestWithParam<Lack> {};

TEST_P(SoftLack, IsLoggedOnceOrNotAtAllAndTheRestIsBound) {
    const Lack& lack = GetParam();
    Device device;
    Script(lack);
    EXPECT_NE(device.Load(), nullptr);
    EXPECT_EQ(Errors(), lack.error.empty() ? Texts{} : Texts{"E " + lack.error});
    const size_t withOffline = lack.library == kOffline ? 0 : 1;
    EXPECT_EQ(CountLogged("I", "OfflineCameraContext"), withOffline);
    EXPECT_EQ(device->CallCount(Entry::SetOfflineLoggerOps), lack.library == kUtils ? 0U : 1U);
    const PlatFormIntCallbacks table = device.library.Table(0);
    EXPECT_EQ(table.GetNCSCallback(nullptr) == nullptr, lack.what == "ncs");
    EXPECT_EQ(table.GetHWCallback(nullptr) == nullptr, lack.what == "hw");
    EXPECT_EQ(table.GetPerfCallback(nullptr) == nullptr, lack.what == "perf");
    EXPECT_EQ(table.EnumerateSensorModes(0, 0, nullptr), 0U);
    EXPECT_EQ(table.ExtensionProcessResultMeta(0, nullptr), 0U);
    int settings = 0;
    EXPECT_EQ(table.CreateSensorInitSettings(nullptr, settings, 9), 0);
    EXPECT_EQ(settings, 9) << "the program's own library fills it";
    Camera camera{device};
    EXPECT_EQ(device->CountAlive().metadataOps, withOffline);
}

/// An error whose message starts with the name of the function that logs it.
std::string Named(const std::string& function, const std::string& rest) {
    return function + ": " + function + ": " + rest;
}

INSTANTIATE_TEST_SUITE_P(
    Load, SoftLack,
    testing::Values(
        Lack{kOffline, "", ""}, Lack{kOffline, "context", ""},
        Lack{kCamera, "ncs", Named("LoadVeltoCallbackInt", "NCSCallback dlsym failed!")},
        Lack{kCamera, "hw", Named("LoadVeltoCallbackInt", "HWCallback dlsym failed!")},
        Lack{kCamera, "perf", Named("LoadVeltoCallbackInt", "PerfCallback dlsym failed!")},
        Lack{kUtils, "", std::string("LoadOfflineLoggerLib: dlopen ") + kUtils + " failed."},
        Lack{kUtils, "log-entry", "LoadOfflineLoggerLib: dlsym ChiOfflineLogEntry failed."}));

constexpr int kLoggedBefore = 42;
std::string g_expectedError;

/// On SIGABRT: whether exactly the error was logged by then becomes the exit code.
void ExitOnAbort(int) { _exit(Errors() == Texts{"E " + g_expectedError} ? kLoggedBefore : 1); }

/// Does in a child process what must end it.
void ExpectAbort(
    const Lack& lack, void (*act)(Device&) = [](Device& device) { device.Load(); }) {
    SCOPED_TRACE(lack.error);
    const auto run = [&](void (*onAbort)(int)) {
        g_expectedError = lack.error;
        std::signal(SIGABRT, onAbort);
        Device device;
        Script(lack);
        act(device);
        _exit(0);
    };
    EXPECT_EXIT(run(SIG_DFL), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(run(ExitOnAbort), testing::ExitedWithCode(kLoggedBefore), "");
}

TEST(HardLack, IsLoggedAndThenAbortsTheLoad) {
    ExpectAbort({kCamera, "", Named("GetCamxLibHandle", "dlopen camera.qcom.so failed!")});
    ExpectAbort({kExtension, "", Named("GetExtensionLibHandle", "dlopen camera.qcom.so failed!")});
    ExpectAbort(
        {kCamera, "sensor-modes", Named("LoadCamxFunc", "OemEnumerateSensorModes dlsym failed!")});
    ExpectAbort({kExtension, "result-meta",
                 Named("LoadCamxFunc", "ExtensionProcessResultMeta dlsym failed!")});
}

TEST(HardLack, ACallBeforeTheLoadIsLoggedAndThenAborts) {
    ExpectAbort(
        {"", "", Named("EnumerateSensorModes", "pEnumerateSensorModesCb is NULL!")},
        [](Device& device) { device.library.Table(0).EnumerateSensorModes(0, 0, nullptr); });
    ExpectAbort(
        {"", "", Named("ExtensionProcessResultMeta", "pExtensionProcessResultMetaCb is NULL!")},
        [](Device& device) { device.library.Table(0).ExtensionProcessResultMeta(0, nullptr); });
}

TEST(HardLack, YieldsOneWhereTheSignalIsIgnored) {
    std::signal(SIGABRT, SIG_IGN);
    Device device;
    const PlatFormIntCallbacks table = device.library.Table(0);
    EXPECT_EQ(table.EnumerateSensorModes(7, 7, nullptr), 1U);
    EXPECT_EQ(table.ExtensionProcessResultMeta(7, nullptr), 1U);
    device->RefuseLibrary(kExtension);
    EXPECT_EQ(Address(device.Load()), 1U);
}

TEST(Bound, AreTheCameraModulesSettersAndFunctionsWhoseResultsComeBackWithoutACamera) {
    Device device;
    device->Fail(Entry::EnumerateSensorModes, 0x80000001);
    device->Fail(Entry::ExtensionProcessResultMeta, 0x80000002);
    device->Fail(Entry::CreateSensorInitSettings, static_cast<uint64_t>(-5));
    PlatFormIntCallbacks table = device.library.Table(11);
    EXPECT_EQ(table.GetPerfCallback(nullptr), nullptr) << "not bound yet";
    device.Load();
    EXPECT_EQ(table.GetNCSCallback(nullptr), SymbolOf(kCamera, "SetVeltoNCSCallback"));
    EXPECT_EQ(table.GetHWCallback(nullptr), SymbolOf(kCamera, "SetVeltoHWCallback"));
    EXPECT_EQ(table.GetPerfCallback(nullptr), SymbolOf(kCamera, "SetVeltoPerfCallback"));
    int settings = 0;
    void* metadata = &settings;
    EXPECT_EQ(table.EnumerateSensorModes(21, 22, &table), 0x80000001);
    EXPECT_EQ(table.ExtensionProcessResultMeta(23, &metadata), 0x80000002);
    EXPECT_EQ(table.CreateSensorInitSettings(&table, settings, 24), -5);
    EXPECT_EQ(Args(Entry::EnumerateSensorModes), (Words{21, 22, Address(&table)}));
    EXPECT_EQ(Args(Entry::ExtensionProcessResultMeta), (Words{23, Address(&metadata)}));
    EXPECT_EQ(Args(Entry::CreateSensorInitSettings), (Words{Address(&settings), 24}));
}

} // namespace
