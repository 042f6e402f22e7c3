/// Builds an event's JSON from a walk.
#include "view/json.h"

#include "view/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>

namespace view {
namespace {

using contract::Event;
using contract::Kind;
using nlohmann::ordered_json;

/// Members behind which records lie in a row, be it a row of one.
constexpr std::array kRows{std::string_view("pInputs"),  std::string_view("pBuffers"),
                           std::string_view("requests"), std::string_view("answers"),
                           std::string_view("returned"), std::string_view("output_buffers")};

bool IsRow(const Value& value) {
    return IsPlainRow(value.field->record) ||
           std::find(kRows.begin(), kRows.end(), value.field->name) != kRows.end();
}

/// JSON is UTF-8; a recorded text may be anything, and a char may have a sign or not.
std::string Printable(std::string_view text) {
    std::string printable;
    for (const char c : text) {
        printable += static_cast<uint8_t>(c) < 0x80 ? std::string(1, c) : "?";
    }
    return printable;
}

class Builder : public Visitor {
  public:
    explicit Builder(const Event& event) : mEvent(event) {}

    void OnValue(const Value& value) override {
        if (value.field == mEvent.Text().result && mOpen.size() == 1) {
            mOpen = {&result};
            result = Of(value);
            mLast = &result;
            return;
        }
        ordered_json& into = *mOpen.back();
        if (!value.bytes.empty()) {
            into = Bytes(value.bytes);
            mLast = &into;
        } else if (into.is_array()) {
            into.push_back(Of(value));
            mLast = &into.back();
        } else if (value.isInRow) {
            ordered_json& array = into[value.field->name];
            array.push_back(Of(value));
            mLast = &array.back();
        } else {
            mLast = &(into[value.field->name] = Of(value));
        }
    }

    void OnRecord(const Value& value, size_t index, size_t /*count*/) override {
        if (index == 0) {
            const bool isObject = value.field->kind == Kind::Object;
            mRows.push_back(isObject ? &(*mLast)["record"] : mLast);
            const bool isRow = IsRow(value) || value.field->kind == Kind::Pointers;
            *mRows.back() = isRow && !isObject ? ordered_json::array() : ordered_json::object();
        } else {
            mRows.push_back(mEnded);
        }
        ordered_json& row = *mRows.back();
        const bool isPlain = IsPlainRow(value.field->record) || value.field->kind == Kind::Pointers;
        if (row.is_array() && !isPlain) {
            row.push_back(ordered_json::object());
            mOpen.push_back(&row.back());
        } else {
            mOpen.push_back(&row);
        }
    }

    void OnEnd() override {
        mOpen.pop_back();
        mEnded = mRows.back();
        mRows.pop_back();
    }

    ordered_json arguments = ordered_json::object();
    ordered_json result;

  private:
    static ordered_json Of(const Value& value) {
        switch (value.field->kind) {
        case Kind::Number:
            return value.word;
        case Kind::Signed:
            return static_cast<int64_t>(value.word);
        case Kind::Word:
            return Hex(value.word);
        case Kind::Text:
            return value.word == 0 ? ordered_json() : ordered_json(Printable(value.text));
        case Kind::TextObject:
            return Printable(value.text);
        case Kind::Pointers:
            return ordered_json::array();
        case Kind::Record:
            return value.word == 0 ? ordered_json() : ordered_json{{"address", Hex(value.word)}};
        case Kind::Object:
            return value.word == 0 ? ordered_json()
                                   : ordered_json{{NameOf(value.name.object), value.name.serial},
                                                  {"value", Hex(value.word)}};
        }
        return {};
    }

    static ordered_json Bytes(std::span<const std::byte> bytes) {
        ordered_json array = ordered_json::array();
        for (const std::byte byte : bytes) {
            array.push_back(static_cast<unsigned>(byte));
        }
        return array;
    }

    const Event& mEvent;
    std::vector<ordered_json*> mOpen{&arguments}; ///< What values go into, from the outermost.
    std::vector<ordered_json*> mRows;             ///< What the open records are rows of.
    ordered_json* mLast = nullptr;                ///< The last value.
    ordered_json* mEnded = nullptr;               ///< The last row that a record ended of.
};

} // namespace

std::string JsonOf(const Story& story, size_t index, Moment start) {
    const Event& event = story.Events()[index];
    Builder builder(event);
    story.Serials().Walk(index, builder);
    const Subject& subject = story.SubjectOf(index);
    ordered_json json{
        {"number", event.Number()},
        {"time", static_cast<double>(static_cast<int64_t>(event.Time() - start)) / 1e3},
        {"thread", story.Serials().ThreadOf(index)},
        {"side", NameOf(event.Text().side)},
        {"phase", event.IsCall() ? "call" : "return"},
        {"entry", event.Text().name}};
    if (!event.IsCall()) {
        json["call"] = event.Header().call;
    }
    if (subject.camera.has_value()) {
        json["camera"] = *subject.camera;
    }
    if (subject.session != 0) {
        json["session"] = subject.session;
    }
    if (subject.request != 0) {
        json["request"] = subject.request;
    }
    if (event.Header().isCut != 0) {
        json["cut"] = true;
    }
    json["args"] = std::move(builder.arguments);
    if (!event.IsCall() && event.Text().result != nullptr) {
        json["result"] = std::move(builder.result);
    }
    return json.dump();
}

bool WriteJson(FILE* out, const Story& story, Moment start) {
    for (size_t i = 0; i < story.Events().size(); ++i) {
        const std::string line = JsonOf(story, i, start) + "\n";
        if (fwrite(line.data(), 1, line.size(), out) != line.size()) {
            return false;
        }
    }
    return fflush(out) == 0;
}

} // namespace view
