/// JSON whose mistakes are reported with file and line.
#pragma once

#include "kit/nearest.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace standin {

/// What is wrong, as in "night.json:7: 'frames' is 13, and must be a whole number from 1 to 12".
using InputError = std::invalid_argument;

/// Texts as a message lists them.
template <class Texts> std::string Joined(const Texts& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        joined += (joined.empty() ? "" : ", ") + text;
    }
    return joined.empty() ? "none" : joined;
}

/// A value in a file. The members that read throw InputError where the value is not what they want.
class Located {
  public:
    /// Parses a file. Throws InputError, also for a key that stands twice.
    static Located Read(const std::string& file);

    std::string Where() const; ///< As in "night.json:7".
    [[noreturn]] void Fail(const std::string& wanted) const;
    [[noreturn]] void Refuse(const std::string& problem) const; ///< The same without the value.

    /// Must be an object with no other keys than these.
    void AllowKeys(const std::vector<std::string>& keys) const;
    bool Has(const std::string& key) const { return mValue->contains(key); }
    Located operator[](const std::string& key) const;
    std::vector<Located> Items() const; ///< Of an array.

    /// The value of a key, or the fallback where the object lacks it.
    uint32_t Number(const std::string& key, uint32_t fallback, uint32_t from, uint32_t to,
                    uint32_t unit = 1) const;
    bool Flag(const std::string& key, bool fallback) const;
    /// What `read` makes of each item of the key's array, which may be empty or not.
    template <class T, class Read> std::vector<T> List(const std::string& key,
                                                       const std::vector<T>& fallback, Read read,
                                                       bool mayBeEmpty = true) const {
        if (!Has(key)) {
            return fallback;
        }
        const std::vector<Located> items = (*this)[key].Items();
        if (items.empty() && !mayBeEmpty) {
            (*this)[key].Fail("must not be empty");
        }
        std::vector<T> list;
        std::transform(items.begin(), items.end(), std::back_inserter(list), read);
        return list;
    }

    template <class T>
    T Choice(const std::string& key, T fallback, const std::map<std::string, T>& choices) const {
        return Has(key) ? (*this)[key].Choice(choices) : fallback;
    }

    std::string Text() const;
    /// One of the map's names.
    template <class T> T Choice(const std::map<std::string, T>& choices) const {
        std::string names;
        for (const auto& [name, value] : choices) {
            if (*mValue == name) {
                return value;
            }
            names += (names.empty() ? "\"" : ", \"") + name + "\"";
        }
        const std::string got = mValue->is_string() ? mValue->get<std::string>() : "";
        Fail("must be one of " + names + kit::DidYouMean(got, choices, kit::kName));
    }

  private:
    struct File {
        std::string name;
        nlohmann::json content;
        std::map<std::string, size_t> lines; ///< By the value's pointer.
    };
    Located(std::shared_ptr<const File> file, const nlohmann::json* value, std::string pointer)
        : mFile(std::move(file)), mValue(value), mPointer(std::move(pointer)) {}

    std::shared_ptr<const File> mFile;
    const nlohmann::json* mValue;
    std::string mPointer;
};

} // namespace standin
