/// Texts, and the log as texts.
#include "tests/support/device.h"

#include <cstdarg>
#include <cstdio>

namespace test {

size_t CountLogged(const std::string& letter, const std::string& start) {
    auto logs = StandinControl()->Logs();
    return std::erase_if(logs, [&](const standin::LogRecord& record) {
        return record.letter == letter && record.message.starts_with(start);
    });
}

Texts LogLines(const std::string& function) {
    Texts lines;
    for (const standin::LogRecord& record : StandinControl()->Logs()) {
        const std::string name = function.empty() ? record.function + ": " : "";
        if (function.empty() || record.function == function) {
            lines.push_back(record.letter + " " + name + record.message);
        }
    }
    return lines;
}

std::string Log(const std::string& function) {
    std::string log;
    for (const std::string& line : LogLines(function)) {
        log += (log.empty() ? "" : "\n") + line;
    }
    return log;
}

std::string Printed(const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string WithName(std::string text, const void* address, const std::string& name) {
    for (const std::string& form : {Printed("%p", address), std::to_string(Address(address))}) {
        for (size_t at = 0; address != nullptr && (at = text.find(form)) != text.npos;) {
            text.replace(at, form.size(), name);
        }
    }
    return text;
}

void Request::GiveBack(Camera& camera) {
    if (const auto taken = std::exchange(mTaken, std::nullopt)) {
        camera->ReleaseImageBuffer(camera.Table(), taken->first);
        camera->MetadataDestroy(camera.Table(), taken->second);
    }
    for (const Event& event : Events()) {
        if (event.result.result != nullptr) {
            auto* metadata = const_cast<camera_metadata*>(event.result.result);
            camera->ReleaseAndroidMetadata(camera.Table(), metadata);
        }
    }
}

} // namespace test
