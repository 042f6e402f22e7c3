/// Follows a parser, so that each value knows its line.
#include "standin/located_json.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace standin {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

/// Parses a text, and notes on which line each value starts, in the order of the text. A member of
/// an object starts with its key.
class LineFinder {
  public:
    explicit LineFinder(const std::string& text) : mText(text), mStream(text) {}

    ordered_json Parse() {
        const auto follow = [this](int /*depth*/, auto event, const ordered_json& parsed) {
            Follow(event, parsed);
            return true;
        };
        return ordered_json::parse(mStream, follow);
    }

    size_t Line() const {
        // The parser has read one character past a number.
        const std::streamoff read = mStream.rdbuf()->pubseekoff(0, std::ios::cur, std::ios::in);
        const auto end = read < 1 ? mText.end() : mText.begin() + (read - 1);
        return 1 + static_cast<size_t>(std::count(mText.begin(), end, '\n'));
    }

    /// Gives the lines to what was parsed, by each value's pointer.
    void Place(const ordered_json& value, const std::string& pointer,
               std::map<std::string, size_t>& lines) {
        lines[pointer] = mLines.at(mPlaced++);
        if (value.is_structured()) {
            for (const auto& [step, child] : value.items()) {
                Place(child, std::string(pointer).append("/").append(step), lines);
            }
        }
    }

  private:
    void Follow(ordered_json::parse_event_t event, const ordered_json& parsed) {
        using Event = ordered_json::parse_event_t;
        if (event == Event::object_start) {
            mKeys.emplace_back();
        } else if (event == Event::object_end) {
            mKeys.pop_back();
        } else if (event == Event::key && !mKeys.back().insert(parsed).second) {
            throw InputError(Quoted(parsed) + " stands there twice");
        }
        const bool isEnd = event == Event::object_end || event == Event::array_end;
        if (!isEnd && !std::exchange(mIsAfterKey, event == Event::key)) {
            mLines.push_back(Line());
        }
    }

    const std::string& mText;
    std::istringstream mStream;
    std::vector<std::set<std::string>> mKeys; ///< Of the objects that are open.
    bool mIsAfterKey = false;
    std::vector<size_t> mLines;
    size_t mPlaced = 0;
};

} // namespace

Located Located::Read(const std::string& file) {
    std::ifstream in(file);
    if (!in.is_open() || std::filesystem::is_directory(file)) {
        throw InputError(file + ": the file cannot be read");
    }
    const std::string text(std::istreambuf_iterator<char>(in), {});
    const auto result = std::make_shared<File>(File{file, {}, {}});
    LineFinder finder(text);
    const auto place = [&] { return file + ":" + std::to_string(finder.Line()) + ": "; };
    try {
        const ordered_json content = finder.Parse();
        finder.Place(content, "", result->lines);
        result->content = content;
    } catch (const json::parse_error& error) {
        const std::string message = error.what(); // After the parser's own name and place.
        throw InputError(place() + message.substr(message.find(": ") + 2));
    } catch (const InputError& error) {
        throw InputError(place() + error.what());
    }
    return {result, &result->content, ""};
}

void Located::Fail(const std::string& wanted) const {
    const std::string what = mPointer.empty() ? "the file's content" : mPointer.substr(1);
    Refuse(what + " is " + mValue->dump() + ", and " + wanted);
}

void Located::Refuse(const std::string& problem) const {
    throw InputError(Where() + ": " + problem);
}

std::string Located::Where() const {
    return mFile->name + ":" + std::to_string(mFile->lines.at(mPointer));
}

void Located::AllowKeys(const std::vector<std::string>& keys) const {
    const std::string names = Joined(keys);
    if (!mValue->is_object()) {
        Fail("must be an object with some of the keys " + names);
    }
    for (const auto& [key, value] : mValue->items()) {
        if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
            (*this)[key].Refuse(Quoted(key) + " is not among the keys that there are: " + names +
                                kit::DidYouMean(key, keys));
        }
    }
}

Located Located::operator[](const std::string& key) const {
    if (!Has(key)) {
        Fail("must have the key " + Quoted(key));
    }
    return {mFile, &mValue->at(key), mPointer + "/" + key};
}

std::vector<Located> Located::Items() const {
    if (!mValue->is_array()) {
        Fail("must be an array");
    }
    std::vector<Located> items;
    for (const json& item : *mValue) {
        items.push_back({mFile, &item, mPointer + "/" + std::to_string(items.size())});
    }
    return items;
}

uint32_t Located::Number(const std::string& key, uint32_t fallback, uint32_t from, uint32_t to,
                         uint32_t unit) const {
    if (!Has(key)) {
        return fallback;
    }
    const json& value = mValue->at(key);
    const bool isNumber = value.is_number_unsigned();
    const auto number = isNumber ? value.get<uint64_t>() : 0;
    if (!isNumber || number < from || number > to || number % unit != 0) {
        const std::string kind = unit == 1 ? "whole number" : "multiple of " + std::to_string(unit);
        (*this)[key].Fail("must be a " + kind + " from " + std::to_string(from) + " to " +
                          std::to_string(to));
    }
    return static_cast<uint32_t>(number);
}

bool Located::Flag(const std::string& key, bool fallback) const {
    if (Has(key) && !mValue->at(key).is_boolean()) {
        (*this)[key].Fail("must be true or false");
    }
    return Has(key) ? mValue->at(key).get<bool>() : fallback;
}

std::string Located::Text() const {
    if (!mValue->is_string()) {
        Fail("must be a text in quotes");
    }
    return mValue->get<std::string>();
}

} // namespace standin
