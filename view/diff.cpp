/// Compares events in pairs, value by value.
#include "view/diff.h"

#include "view/report.h"
#include "view/text.h"

#include <algorithm>
#include <cstdio>
#include <unordered_map>

namespace view {
namespace {

using contract::Event;
using contract::Kind;
using contract::Object;

constexpr size_t kNone = SIZE_MAX;
constexpr size_t kBefore = 4; // Events of the thread that are shown before the difference.

class Leaves : public Visitor {
  public:
    void OnValue(const Value& value) override { all.push_back(value); }

    std::vector<Value> all;
};

/// The same, with the values' paths; slow, for the event that differs.
class Paths : public Visitor {
  public:
    void OnValue(const Value& value) override {
        std::string own = value.field->name;
        own += value.isInRow ? "[" + std::to_string(value.index) + "]" : "";
        const bool hasDot = !mPath.empty() && !own.empty() && own.front() != '[';
        all.push_back(mPath + (hasDot ? "." : "") + own);
    }
    void OnRecord(const Value&, size_t index, size_t count) override {
        mOuter.push_back(mPath);
        // The value that it lies behind, or its sibling's, came last at this depth.
        if (index == 0) {
            mBehind.push_back(all.back());
        }
        mPath = mBehind.back() + (count > 1 ? "[" + std::to_string(index) + "]" : "");
        mIsLast.push_back(index + 1 == count);
    }
    void OnEnd() override {
        mPath = mOuter.back();
        mOuter.pop_back();
        if (mIsLast.back()) {
            mBehind.pop_back();
        }
        mIsLast.pop_back();
    }

    std::vector<std::string> all;

  private:
    std::string mPath;
    std::vector<std::string> mOuter;
    std::vector<std::string> mBehind;
    std::vector<bool> mIsLast;
};

/// Nothing but null or not can be told from run to run.
bool IsAnonymous(Object object) {
    return object == Object::Function || object == Object::Memory || object == Object::Other;
}

class Comparer {
  public:
    Comparer(const Story& one, const Story& other) : mOne(one), mOther(other) {}

    std::optional<Difference> Find() {
        const Threads ofOne = ByThread(mOne);
        const Threads ofOther = ByThread(mOther);
        const std::vector<size_t> pairs = Pair(mOne.Threads(), mOther.Threads());
        std::vector<size_t> compared(ofOne.size());
        for (size_t i = 0; i < mOne.Events().size(); ++i) {
            const size_t thread = mOne.Serials().ThreadOf(i) - 1;
            const size_t nth = compared[thread]++;
            const size_t pair = pairs[thread];
            const bool isThere = pair != kNone && nth < ofOther[pair].size();
            Difference difference;
            difference.one = i;
            if (isThere) {
                difference.other = ofOther[pair][nth];
            }
            if (!isThere || !AreAlike(difference)) {
                difference.name = mOne.Threads()[thread].name;
                difference.before = Before(ofOne[thread], nth);
                return difference;
            }
        }
        return FindSurplus(ofOne, ofOther, pairs);
    }

  private:
    using Threads = std::vector<std::vector<size_t>>; ///< Indices of events.

    static Threads ByThread(const Story& story) {
        Threads threads(story.Serials().CountThreads());
        for (size_t i = 0; i < story.Events().size(); ++i) {
            threads[story.Serials().ThreadOf(i) - 1].push_back(i);
        }
        return threads;
    }

    static std::vector<size_t> Before(const std::vector<size_t>& events, size_t nth) {
        const size_t first = nth - std::min(nth, kBefore);
        return {events.begin() + static_cast<std::ptrdiff_t>(first),
                events.begin() + static_cast<std::ptrdiff_t>(nth)};
    }

    using Named = std::unordered_map<std::string, size_t>;

    /// The threads by their names; kNone for a name that several have.
    static Named ByName(const std::vector<Thread>& threads) {
        Named named;
        for (size_t i = 0; i < threads.size(); ++i) {
            const auto [found, isNew] = named.try_emplace(threads[i].name, i);
            found->second = isNew ? i : kNone;
        }
        return named;
    }

    /// Whom one's threads are compared with: those of the same name, where that is nobody else's,
    /// and the rest in their order.
    static std::vector<size_t> Pair(const std::vector<Thread>& one,
                                    const std::vector<Thread>& other) {
        const Named ofOne = ByName(one);
        const Named ofOther = ByName(other);
        std::vector<size_t> pairs;
        std::vector<bool> isTaken(other.size());
        for (const Thread& thread : one) {
            const auto found = ofOther.find(thread.name);
            const bool isOnly = ofOne.at(thread.name) != kNone && found != ofOther.end();
            pairs.push_back(isOnly ? found->second : kNone);
            if (pairs.back() != kNone) {
                isTaken[pairs.back()] = true;
            }
        }
        auto rest = isTaken.begin();
        for (size_t& pair : pairs) {
            rest = std::find(rest, isTaken.end(), false);
            if (pair == kNone && rest != isTaken.end()) {
                pair = static_cast<size_t>(rest - isTaken.begin());
                *rest = true;
            }
        }
        return pairs;
    }

    /// The first event of the other recording that one has not.
    std::optional<Difference> FindSurplus(const Threads& ofOne, const Threads& ofOther,
                                          const std::vector<size_t>& pairs) const {
        std::vector<size_t> back(ofOther.size(), kNone); // The pairs, from the other side.
        for (size_t i = 0; i < pairs.size(); ++i) {
            if (pairs[i] != kNone) {
                back[pairs[i]] = i;
            }
        }
        std::optional<Difference> first;
        for (size_t thread = 0; thread < ofOther.size(); ++thread) {
            const size_t one = back[thread];
            const size_t count = one < ofOne.size() ? ofOne[one].size() : 0;
            const auto& events = ofOther[thread];
            if (count < events.size() && (!first || events[count] < *first->other)) {
                first.emplace();
                first->name = mOther.Threads()[thread].name;
                first->other = events[count];
                first->before = count == 0 ? std::vector<size_t>() : Before(ofOne[one], count);
            }
        }
        return first;
    }

    /// Compares two events. Where they differ, `difference` gets the field.
    bool AreAlike(Difference& difference) {
        const Event& one = mOne.Events()[*difference.one];
        const Event& other = mOther.Events()[*difference.other];
        if (one.Of() != other.Of() || one.IsCall() != other.IsCall()) {
            return false;
        }
        Leaves ofOne;
        Leaves ofOther;
        mOne.Serials().Walk(*difference.one, ofOne);
        mOther.Serials().Walk(*difference.other, ofOther);
        const size_t count = std::min(ofOne.all.size(), ofOther.all.size());
        size_t i = 0;
        while (i < count && AreAlike(ofOne.all[i], ofOther.all[i])) {
            ++i;
        }
        if (i == count && ofOne.all.size() == ofOther.all.size()) {
            return true;
        }
        Describe(difference, ofOne.all, ofOther.all, i);
        return false;
    }

    bool AreAlike(const Value& one, const Value& other) {
        if (one.field != other.field || one.index != other.index || one.text != other.text ||
            !std::equal(one.bytes.begin(), one.bytes.end(), other.bytes.begin(),
                        other.bytes.end())) {
            return false;
        }
        const bool areBoth = (one.word == 0) == (other.word == 0);
        switch (one.field->kind) {
        case Kind::Text:
        case Kind::Record:
            return areBoth;
        case Kind::Object:
            return areBoth && one.name.object == other.name.object &&
                   (one.word == 0 || IsAnonymous(one.name.object) || AreOne(one.name, other.name));
        default:
            return one.word == other.word;
        }
    }

    /// Objects that appear together stand for each other from then on.
    bool AreOne(const Name& one, const Name& other) {
        const auto key = [](const Name& name) {
            return uint64_t{static_cast<uint8_t>(name.object)} << 32 | name.serial;
        };
        const auto there = mOthers.emplace(key(one), key(other)).first->second;
        const auto back = mOnes.emplace(key(other), key(one)).first->second;
        return there == key(other) && back == key(one);
    }

    /// The values from the index on differ: by the field itself, or in how far the records go.
    void Describe(Difference& difference, const std::vector<Value>& one,
                  const std::vector<Value>& other, size_t index) const {
        Paths ofOne;
        Paths ofOther;
        mOne.Serials().Walk(*difference.one, ofOne);
        mOther.Serials().Walk(*difference.other, ofOther);
        const auto has = [&](const std::vector<std::string>& paths, const std::string& path) {
            return std::find(paths.begin() + static_cast<std::ptrdiff_t>(index), paths.end(),
                             path) != paths.end();
        };
        const bool hasOne = index < one.size();
        const bool hasOther = index < other.size();
        const bool isSame = hasOne && hasOther && ofOne.all[index] == ofOther.all[index];
        const bool isOnlyInOther =
            hasOther && !isSame && (!hasOne || has(ofOther.all, ofOne.all[index]));
        difference.path = isOnlyInOther ? ofOther.all[index] : ofOne.all[index];
        difference.inOne = isOnlyInOther ? "nothing" : view::TextOf(one[index]);
        difference.inOther = isOnlyInOther || isSame ? view::TextOf(other[index]) : "nothing";
        if (isSame && difference.inOne == difference.inOther) {
            difference.inOther += ", which is another one";
        }
    }

    const Story& mOne;
    const Story& mOther;
    std::unordered_map<uint64_t, uint64_t> mOthers; ///< Who stands for whom, and back.
    std::unordered_map<uint64_t, uint64_t> mOnes;
};

/// An event's line, with its time where that is wanted.
std::string Line(const Story& story, size_t index, std::optional<Moment> start) {
    const Event& event = story.Events()[index];
    return "event " + std::to_string(event.Number()) +
           (start.has_value() ? " at " + Milliseconds(*start, event.Time()) + " ms" : "") +
           (event.IsCall() ? ": " : ": return of ") + LineOf(story.Serials(), index);
}

void PrintLine(const char* heading, const Story& story, std::optional<size_t> index,
               std::optional<Moment> start) {
    PrintFact(heading, index.has_value() ? Line(story, *index, start)
                                         : "nothing: this thread has no further event");
}

} // namespace

std::optional<Difference> FindDifference(const Story& one, const Story& other) {
    return Comparer(one, other).Find();
}

void PrintDifference(const std::optional<Difference>& difference, const Story& one,
                     const Story& other, std::optional<std::pair<Moment, Moment>> starts) {
    if (!difference.has_value()) {
        PrintFact("alike", Count(one.Events().size(), "event") + " of " +
                               Count(one.Threads().size(), "thread"));
        return;
    }
    const std::optional<Moment> ofOne = starts ? std::optional(starts->first) : std::nullopt;
    const std::optional<Moment> ofOther = starts ? std::optional(starts->second) : std::nullopt;
    PrintFact("differ", "on the thread " + difference->name);
    for (const size_t index : difference->before) {
        PrintFact("  before", Line(one, index, ofOne));
    }
    PrintLine("  first", one, difference->one, ofOne);
    PrintLine("  second", other, difference->other, ofOther);
    if (!difference->path.empty()) {
        PrintFact("  field", difference->path + ": " + Painted(Colour::Bad, difference->inOne) +
                                 " in the first, " + Painted(Colour::Bad, difference->inOther) +
                                 " in the second");
    }
}

} // namespace view
