/// Reads the settings' file and the properties.
#include "layer/settings.h"

#include <android/log.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

/// Android's C library has it: the value's length. Null elsewhere.
extern "C" __attribute__((weak)) int
GetSystemProperty(const char* name, char* value) __asm__("__system_property_get");

namespace layer {
namespace {

constexpr uint32_t kLeastMebibytes = 2;
constexpr uint32_t kMostMebibytes = 4096;

struct Key {
    const char* name;
    /// Takes a value. What it returns is wrong with that, null for nothing.
    const char* (*set)(Settings& settings, const std::string& value);
    const char* property = nullptr; ///< Wins over the file.
};

template <std::string Settings::*Member>
const char* SetPath(Settings& settings, const std::string& value) {
    settings.*Member = value;
    return nullptr;
}

const char* SetSize(Settings& settings, const std::string& value) {
    char* end = nullptr;
    const unsigned long size = strtoul(value.c_str(), &end, 10);
    if (value.find_first_not_of("0123456789") != value.npos || size < kLeastMebibytes ||
        size > kMostMebibytes) {
        return "must be a number of MiB from 2 to 4096";
    }
    settings.mebibytes = static_cast<uint32_t>(size);
    return nullptr;
}

const char* SetPixels(Settings& settings, const std::string& value) {
    settings.wholePixels = value == "whole";
    return settings.wholePixels || value == "hash" ? nullptr : "must be 'hash' or 'whole'";
}

const char* SetWatch(Settings& settings, const std::string& value) {
    settings.watch = value == "on";
    return settings.watch || value == "off" ? nullptr : "must be 'on' or 'off'";
}

constexpr std::array kKeys{
    Key{"adapter", SetPath<&Settings::adapter>},
    Key{"vendor", SetPath<&Settings::vendor>},
    Key{"record", SetPath<&Settings::record>, "vendor.oemlayer.layer.record"},
    Key{"size", SetSize, "vendor.oemlayer.layer.size"},
    Key{"pixels", SetPixels},
    Key{"watch", SetWatch, "vendor.oemlayer.layer.watch"},
};

std::string Trimmed(const std::string& text) {
    constexpr const char kBlanks[] = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    return first == text.npos ? "" : text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

/// \returns what is wrong with a line, empty for nothing.
std::string ReadLine(std::string line, Settings& settings) {
    line = Trimmed(line.substr(0, line.find('#')));
    if (line.empty()) {
        return {};
    }
    const size_t equals = line.find('=');
    const std::string name = Trimmed(line.substr(0, equals));
    const std::string value = equals == line.npos ? "" : Trimmed(line.substr(equals + 1));
    if (value.empty()) {
        return "'" + line + "' must be 'key = value'";
    }
    const auto* const key = std::find_if(kKeys.begin(), kKeys.end(),
                                         [&](const Key& each) { return each.name == name; });
    if (key == kKeys.end()) {
        return "there is no setting '" + name + "'";
    }
    const char* const problem = key->set(settings, value);
    return problem == nullptr ? "" : name + " " + problem + ", not '" + value + "'";
}

/// \returns whether all of the file is right. What it says of the real libraries holds either way.
bool ReadFile(const std::string& path, Settings& settings) {
    FILE* const file = fopen(path.c_str(), "re");
    if (file == nullptr) {
        const int reason = errno; // Logging may change it.
        Log(reason == ENOENT ? ANDROID_LOG_INFO : ANDROID_LOG_ERROR, "%s: %s", path.c_str(),
            strerror(reason));
        return reason == ENOENT;
    }
    bool isRight = true;
    char* line = nullptr;
    size_t room = 0;
    for (unsigned number = 1; getline(&line, &room, file) >= 0; ++number) {
        if (const std::string problem = ReadLine(line, settings); isRight && !problem.empty()) {
            Log(ANDROID_LOG_ERROR, "%s:%u: %s", path.c_str(), number, problem.c_str());
            isRight = false;
        }
    }
    if (isRight && ferror(file) != 0) { // A folder, for one.
        Log(ANDROID_LOG_ERROR, "%s: %s", path.c_str(), strerror(errno));
        isRight = false;
    }
    free(line);
    (void)fclose(file);
    return isRight;
}

bool ReadProperties(Settings& settings) {
    bool areRight = true;
    for (const Key& key : kKeys) {
        char value[92] = {}; // PROP_VALUE_MAX
        if (GetSystemProperty == nullptr || key.property == nullptr ||
            GetSystemProperty(key.property, value) <= 0) {
            continue;
        }
        if (const char* const problem = key.set(settings, value)) {
            Log(ANDROID_LOG_ERROR, "property %s %s, not '%s'", key.property, problem, value);
            areRight = false;
        }
    }
    return areRight;
}

} // namespace

Settings ReadSettings(const std::string& folder) {
    Settings settings;
    const char* const named = getenv("OEMLAYER_LAYER_SETTINGS");
    const bool fileIsRight =
        ReadFile(named == nullptr ? folder + "/oemlayer.layer.conf" : named, settings);
    if (!ReadProperties(settings) || !fileIsRight) {
        settings.record.clear();
        settings.watch = false;
    }
    return settings;
}

void Log(int priority, const char* format, ...) {
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    __android_log_write(priority, kTag, line);
}

} // namespace layer
