/// Who is who, event by event.
#include "view/serials.h"

#include <array>
#include <map>
#include <string>
#include <unordered_map>

namespace view {
namespace {

using contract::Entry;
using contract::Event;
using contract::Field;
using contract::Kind;
using contract::Object;

/// An object's value, and its name as long as the object lives.
struct Known {
    uint64_t word;
    Name name;
};

/// Which argument ends with the call.
struct Ending {
    size_t argument;
    Entry entry;
    Object object;
};
constexpr Ending kEndings[] = {
    {0, Entry::CloseSession, Object::Session},
    {0, Entry::MetadataDestroy, Object::Metadata},
    {1, Entry::DestroyMetadata, Object::Metadata},
    {1, Entry::MetadataReleaseAndroid, Object::AndroidMetadata},
    {1, Entry::ReleaseAndroidMetadata, Object::AndroidMetadata},
    {0, Entry::ReleaseImageBuffer, Object::Image},
    {1, Entry::GiveImageBuffer, Object::Image},
    {0, Entry::BufferManagerDestroy, Object::Manager},
    {0, Entry::MetadataOpsClose, Object::MetadataTable},
    {0, Entry::BufferOpsClose, Object::BufferTable},
    {1, Entry::RequestComplete, Object::Request},
};

const Ending* EndingOf(Entry entry) {
    for (const Ending& ending : kEndings) {
        if (ending.entry == entry) {
            return &ending;
        }
    }
    return nullptr;
}

class Namer : public Visitor {
  public:
    explicit Namer(std::vector<Name>& names) : mNames(names) {}

    void Take(const Event& event) {
        mEvent = &event;
        mOwn.clear();
        // A return's objects are those of its call, whoever has got their values meanwhile.
        const auto call = event.IsCall() ? mCalls.end() : mCalls.find(event.Header().call);
        if (call != mCalls.end()) {
            mOwn = std::move(call->second);
            mCalls.erase(call);
        }
        view::Walk(event, {}, *this);
        if (!event.IsCall()) {
            End(event);
        } else if (event.Of() != Entry::Pixels) {
            mCalls.emplace(event.Number(), std::move(mOwn));
        }
    }

    void OnValue(const Value& value) override {
        const Field& field = *value.field;
        if (field.kind != Kind::Object) {
            return;
        }
        // An argument is born with the call, a result with the return.
        const bool isResult = &field == mEvent->Text().result;
        const bool isBorn = field.isBorn && isResult == !mEvent->IsCall();
        mNames.push_back(Find(field.object, value.word, isBorn));
    }

  private:
    using Alive = std::unordered_map<uint64_t, uint32_t>;

    Alive& Of(Object object) { return mAlive[static_cast<size_t>(object)]; }

    Name Find(Object object, uint64_t word, bool isBorn) {
        if (word == 0) {
            return {object, 0};
        }
        const bool mayBeImage = object == Object::Buffer || object == Object::Other;
        if (mayBeImage && Of(Object::Image).count(word) != 0) {
            object = Object::Image;
        }
        for (const Known& known : mOwn) {
            if (!isBorn && known.word == word && known.name.object == object) {
                return known.name;
            }
        }
        uint32_t& serial = Of(object)[word];
        const bool isNew = isBorn || serial == 0;
        if (isNew) {
            serial = ++mCounts[static_cast<size_t>(object)];
        }
        if (isNew && object == Object::Stream && mEvent->Of() == Entry::ConfigureStreams) {
            mStreams[mEvent->Word(0)].push_back({word, {object, serial}});
        }
        mOwn.push_back({word, {object, serial}});
        return mOwn.back().name;
    }

    void End(const Event& event) {
        const Ending* const ending = EndingOf(event.Of());
        if (ending == nullptr) {
            return;
        }
        const uint64_t word = event.Word(ending->argument);
        const auto found = Of(ending->object).find(word);
        if (found != Of(ending->object).end() &&
            found->second == Find(ending->object, word, false).serial) {
            Of(ending->object).erase(found);
        }
        if (event.Of() == Entry::CloseSession) {
            EndStreamsOf(word);
        }
    }

    /// The adapter's own, that its configuration had first: who gets their memory is another one.
    void EndStreamsOf(uint64_t session) {
        for (const Known& stream : mStreams[session]) {
            const auto found = Of(Object::Stream).find(stream.word);
            if (found != Of(Object::Stream).end() && found->second == stream.name.serial) {
                Of(Object::Stream).erase(found);
            }
        }
        mStreams.erase(session);
    }

    std::vector<Name>& mNames;
    std::array<Alive, static_cast<size_t>(Object::Count)> mAlive;
    std::array<uint32_t, static_cast<size_t>(Object::Count)> mCounts{};
    std::unordered_map<uint64_t, std::vector<Known>> mCalls;   ///< That are open, by their numbers.
    std::unordered_map<uint64_t, std::vector<Known>> mStreams; ///< Of open sessions.
    std::vector<Known> mOwn;                                   ///< Of the event and its call.
    const Event* mEvent = nullptr;
};

} // namespace

Serials::Serials(const std::vector<Event>& events) : mEvents(&events) {
    Namer namer(mNames);
    std::map<uint32_t, uint32_t> threads;
    mStarts.push_back(0);
    for (const Event& event : events) {
        namer.Take(event);
        mStarts.push_back(mNames.size());
        uint32_t& thread = threads[event.Thread()];
        if (thread == 0) {
            thread = ++mThreadCount;
        }
        mThreads.push_back(thread);
    }
}

std::string TextOf(const Name& name) {
    return name.serial == 0 ? "null"
                            : std::string(NameOf(name.object)) + " " + std::to_string(name.serial);
}

} // namespace view
