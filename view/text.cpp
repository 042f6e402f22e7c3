/// Words for values.
#include "view/text.h"

#include <cstdio>

namespace view {
namespace {

using contract::Kind;

constexpr size_t kMostBytes = 32; // Of a row, in a line.

std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        const bool isPlain = c >= ' ' && c <= '~' && c != '"' && c != '\\';
        quoted += isPlain ? std::string(1, c) : "\\x" + Hex(static_cast<uint8_t>(c)).substr(2);
    }
    return quoted + "\"";
}

std::string TextOfBytes(std::span<const std::byte> bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < bytes.size() && i < kMostBytes; ++i) {
        const auto byte = static_cast<uint8_t>(bytes[i]);
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text + (bytes.size() > kMostBytes ? "..." : "");
}

/// One line of an event.
class Line : public Visitor {
  public:
    explicit Line(const contract::Event& event) : mEvent(event), mText(event.Text().name) {
        mText += "(";
    }

    void OnValue(const Value& value) override {
        if (value.field == mEvent.Text().result && mDepth == 0 && !mEvent.IsCall()) {
            mText += ") -> " + TextOf(value);
            mIsEnded = true;
        } else if (mDepth == 0 || (mDepth == 1 && IsWorthIt(value))) {
            mText += mIsFirst ? "" : ", ";
            const std::string name =
                mDepth == 0 && value.field->kind == Kind::Object && value.name.serial != 0
                    ? ""
                    : value.field->name;
            mText += name + (name.empty() ? "" : " ") + TextOf(value);
            mIsFirst = false;
        }
    }
    void OnRecord(const Value& /*value*/, size_t /*index*/, size_t /*count*/) override {
        if (++mDepth == 1) {
            mText += " {";
            mIsFirst = true;
        }
    }
    void OnEnd() override {
        if (--mDepth == 0) {
            mText += "}";
            mIsFirst = false;
        }
    }

    std::string Text() const { return mText + (mIsEnded ? "" : ")"); }

  private:
    static bool IsWorthIt(const Value& value) {
        return value.field->kind != Kind::Record &&
               value.field->object != contract::Object::Other &&
               (value.word != 0 || !value.text.empty() || !value.bytes.empty());
    }

    const contract::Event& mEvent;
    std::string mText;
    int mDepth = 0;
    bool mIsFirst = true;
    bool mIsEnded = false;
};

} // namespace

std::string TextOf(const Value& value) {
    if (!value.bytes.empty()) {
        return TextOfBytes(value.bytes);
    }
    switch (value.field->kind) {
    case Kind::Number:
        return std::to_string(value.word);
    case Kind::Signed:
        return std::to_string(static_cast<int64_t>(value.word));
    case Kind::Word:
        return Hex(value.word);
    case Kind::Text:
        return value.word == 0 ? "null" : Quoted(value.text);
    case Kind::TextObject:
        return Quoted(value.text);
    case Kind::Object:
        return TextOf(value.name);
    case Kind::Record:
        return value.word == 0 ? "null" : "there";
    case Kind::Pointers:
        return "list";
    }
    return {};
}

std::string LineOf(const Serials& serials, size_t event) {
    const contract::Event& it = serials.Events()[event];
    Line line(it);
    serials.Walk(event, line);
    return line.Text();
}

std::string Hex(uint64_t word) {
    char text[24];
    (void)snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(word));
    return text;
}

std::string Count(uint64_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string ShellWord(const std::string& word) {
    constexpr char kPlain[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./=+,:";
    if (!word.empty() && word.find_first_not_of(kPlain) == word.npos) {
        return word;
    }
    std::string quoted = "'";
    for (const char c : word) {
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quoted + "'";
}

} // namespace view
