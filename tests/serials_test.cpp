/// Who is who in made-up events, and where two of them differ.
#include "tests/support/script.h"
#include "view/diff.h"
#include "view/text.h"

#include <gtest/gtest.h>

namespace {

using contract::Entry;
using contract::Object;
using test::Script;
using Texts = std::vector<std::string>;

/// The names of an event's objects, but for what is null.
Texts NamesOf(const view::Serials& serials, uint64_t event) {
    Texts names;
    for (const view::Name& name : serials.Of(event - 1)) {
        if (name.serial != 0) {
            names.push_back(view::TextOf(name));
        }
    }
    return names;
}

struct EndingCase {
    Entry entry;
    size_t argument; ///< That ends, with the call.
    const char* name;
};

TEST(Serials, OfAValueAreNewOnesWhenItsObjectHasEnded) {
    const EndingCase cases[] = {
        {Entry::CloseSession, 0, "session"},
        {Entry::MetadataDestroy, 0, "metadata"},
        {Entry::DestroyMetadata, 1, "metadata"},
        {Entry::MetadataReleaseAndroid, 1, "android"},
        {Entry::ReleaseAndroidMetadata, 1, "android"},
        {Entry::ReleaseImageBuffer, 0, "image"},
        {Entry::GiveImageBuffer, 1, "image"},
        {Entry::BufferManagerDestroy, 0, "manager"},
        {Entry::MetadataOpsClose, 0, "metadata-table"},
        {Entry::BufferOpsClose, 0, "buffer-table"},
        {Entry::RequestComplete, 1, "request"},
        {Entry::ReleaseRtBuffers, 1, nullptr}, // Lives on.
    };
    for (const EndingCase& each : cases) {
        Script script;
        std::vector<uint64_t> words(each.argument + 1);
        words.back() = 0x5000;
        const uint64_t call = script.Call(each.entry, words); // 1
        script.Call(each.entry, words);                       // 2, before it has ended.
        script.Return(call);                                  // 3
        script.Call(each.entry, words);                       // 4
        const view::Serials serials(script.Events());
        const std::string name = each.name == nullptr ? "request" : each.name;
        const auto text = [&](int serial) { return Texts{name + " " + std::to_string(serial)}; };
        EXPECT_EQ(NamesOf(serials, 1), text(1));
        EXPECT_EQ(NamesOf(serials, 2), text(1));
        EXPECT_EQ(NamesOf(serials, 3), text(1)) << "a return names what its call named";
        EXPECT_EQ(NamesOf(serials, 4), text(each.name == nullptr ? 1 : 2)) << name;
    }
}

/// The vendor may give a session's handle away again before its closing has returned.
TEST(Serials, OfANewObjectOutliveTheLateEndOfTheOldOne) {
    Script script;
    script.Both(Entry::OpenSession, {0x1}, 0x5000);                    // 1
    const uint64_t close = script.Call(Entry::CloseSession, {0x5000}); // 3
    script.thread = 2;
    script.Both(Entry::OpenSession, {0x1}, 0x5000); // 4
    script.thread = 1;
    script.Return(close);                       // 6
    script.Call(Entry::CloseSession, {0x5000}); // 7
    const view::Serials serials(script.Events());
    EXPECT_EQ(NamesOf(serials, 2), (Texts{"interface 1", "session 1"}));
    EXPECT_EQ(NamesOf(serials, 5), (Texts{"interface 1", "session 2"}));
    EXPECT_EQ(NamesOf(serials, 6), Texts{"session 1"});
    EXPECT_EQ(NamesOf(serials, 7), Texts{"session 2"});
}

TEST(Serials, OfAnImageAreItsNameWhereverItGoes) {
    Script script;
    script.Call(Entry::LogMap, {0, 0x7000});           // 1
    script.Both(Entry::GetImageBuffer, {0x1}, 0x7000); // 2
    script.Both(Entry::LogMap, {0, 0x7000, 0x7001});   // 4
    script.Both(Entry::ReleaseImageBuffer, {0x7000});  // 6
    script.Call(Entry::LogMap, {0, 0x7000});           // 8
    script.Both(Entry::MetadataDestroy, {0x7000});     // 9: another kind.
    const view::Serials serials(script.Events());
    EXPECT_EQ(NamesOf(serials, 1), Texts{"address 1"});
    EXPECT_EQ(NamesOf(serials, 2), Texts{"manager 1"});
    EXPECT_EQ(NamesOf(serials, 4), (Texts{"image 1", "address 2"}));
    EXPECT_EQ(NamesOf(serials, 8), Texts{"address 1"});
    EXPECT_EQ(NamesOf(serials, 9), Texts{"metadata 1"});
}

TEST(Serials, OfARequestAreNewWithEachSubmissionAndNotWithItsReturn) {
    Script script;
    script.Return(script.Submit(0, 0xa00, 101));         // 1
    script.Call(Entry::ReleaseRtBuffers, {0, 0xa00});    // 3
    const uint64_t again = script.Submit(0, 0xa00, 102); // 4
    script.Return(again);                                // 5
    const view::Serials serials(script.Events());
    for (const auto& [event, name] : {std::pair(1, "request 1"),
                                      {2, "request 1"},
                                      {3, "request 1"},
                                      {4, "request 2"},
                                      {5, "request 2"}}) {
        EXPECT_EQ(NamesOf(serials, event), Texts{name}) << event;
    }
}

/// Its streams' memory may be another's as soon as it is closed.
TEST(Serials, OfASessionsStreamsEndWithIt) {
    ChiStream stream{};
    ChiStream* streams[] = {&stream};
    ChiOfflineSessionConfigInfo config{.numStreams = 1, .ppChiStreams = streams};
    const auto configure = [&](Script& script, uint64_t session) {
        return script.Call(Entry::ConfigureStreams, {session, contract::WordOf(&config)},
                           [&](contract::Writer& writer) {
                               contract::Capture<Entry::ConfigureStreams>::Call(writer, session,
                                                                                &config);
                           });
    };
    Script script;
    configure(script, 0x5000);                  // 1
    configure(script, 0x6000);                  // 2: who had it first, keeps it.
    script.Both(Entry::CloseSession, {0x6000}); // 3
    configure(script, 0x7000);                  // 5
    script.Both(Entry::CloseSession, {0x5000}); // 6
    configure(script, 0x8000);                  // 8
    const view::Serials serials(script.Events());
    const auto nameIn = [&](uint64_t event) { return NamesOf(serials, event).back(); };
    EXPECT_EQ(nameIn(1), "stream 1");
    EXPECT_EQ(nameIn(2), "stream 1");
    EXPECT_EQ(nameIn(5), "stream 1");
    EXPECT_EQ(nameIn(8), "stream 2");
}

// --- Differences --------------------------------------------------------------------------------

struct DifferenceCase {
    const char* what;
    void (*one)(Script& script);
    void (*other)(Script& script);
    const char* expected; ///< As `DifferenceOf` has it.
};

/// The thread, both events, what comes before, and the field; or "alike".
std::string DifferenceOf(const Script& one, const Script& other) {
    const view::Serials ofOne(one.Events());
    const view::Serials ofOther(other.Events());
    const view::Story story(ofOne);
    const view::Story another(ofOther);
    const auto found = view::FindDifference(story, another);
    if (!found.has_value()) {
        return "alike";
    }
    const auto number = [](const std::optional<size_t>& index) {
        return index.has_value() ? std::to_string(*index + 1) : "none";
    };
    std::string text = found->name + ": " + number(found->one) + ", " + number(found->other);
    for (const size_t before : found->before) {
        text += (before == found->before.front() ? " after " : " ") + number(before);
    }
    return text + (found->path.empty()
                       ? ""
                       : "; " + found->path + ": " + found->inOne + ", " + found->inOther);
}

/// Of a thread of the vendor's, as none has another name.
void Notify(Script& script, uint32_t thread, unsigned count) {
    script.thread = thread;
    for (unsigned i = 0; i < count; ++i) {
        script.Both(Entry::ProcessNotify, {0x9000, i});
    }
}

/// Brings results of the one session, which gives each thread that does so the same name.
void Deliver(Script& script, uint32_t thread, unsigned count) {
    static ChiOfflineSessionCallbacks callbacks;
    if (script.Events().empty()) {
        ChiOfflineSessionCreateInfo info{"Night", 0, &callbacks};
        const uint64_t call = script.Call(
            Entry::OpenSession, {0x1, contract::WordOf(&info)}, [&](contract::Writer& writer) {
                contract::Capture<Entry::OpenSession>::Call(writer, nullptr, &info);
            });
        script.Return(call, 0x5000);
    }
    script.thread = thread;
    for (unsigned i = 0; i < count; ++i) {
        script.Both(Entry::ProcessCaptureResult, {contract::WordOf(&callbacks), i});
    }
}

void SubmitOn(Script& script, uint32_t thread, uint32_t camera) {
    script.thread = thread;
    script.Return(script.Submit(camera, 0xa00 + camera, 101));
}

TEST(Diff, PairsThreadsByTheirNamesAndTheRestInTheirOrder) {
    static const DifferenceCase kCases[] = {
        {"other order, by name", [](auto& it) { SubmitOn(it, 1, 0), SubmitOn(it, 2, 1); },
         [](auto& it) { SubmitOn(it, 1, 1), SubmitOn(it, 2, 0); }, "alike"},
        {"in their order", [](auto& it) { Notify(it, 1, 1), Notify(it, 2, 2); },
         [](auto& it) { Notify(it, 8, 1), Notify(it, 7, 2); }, "alike"},
        {"of one name, in their order", [](auto& it) { Deliver(it, 2, 1), Deliver(it, 3, 2); },
         [](auto& it) { Deliver(it, 8, 1), Deliver(it, 7, 2); }, "alike"},
        {"of one name, one less", [](auto& it) { Deliver(it, 2, 1), Deliver(it, 3, 1); },
         [](auto& it) { Deliver(it, 2, 1); }, "vendor session 1, Night: 5, none"},
        {"calls once more", [](auto& it) { Notify(it, 1, 1); },
         [](auto& it) { Notify(it, 1, 1), it.Call(Entry::ProcessNotify); },
         "vendor, thread 1: none, 3 after 1 2"},
        {"ends early", [](auto& it) { Notify(it, 1, 4); }, [](auto& it) { Notify(it, 1, 3); },
         "vendor, thread 1: 7, none after 3 4 5 6"},
        {"goes on", [](auto& it) { Notify(it, 1, 1); }, [](auto& it) { Notify(it, 1, 2); },
         "vendor, thread 1: none, 3 after 1 2"},
        {"one thread more", [](auto& it) { Notify(it, 1, 1); },
         [](auto& it) { Notify(it, 1, 1), Notify(it, 2, 1); }, "vendor, thread 2: none, 3"},
        {"one thread less", [](auto& it) { Notify(it, 1, 1), Notify(it, 2, 1); },
         [](auto& it) { Notify(it, 1, 1); }, "vendor, thread 2: 3, none"},
        {"both go on, the second one first", [](auto& it) { Notify(it, 1, 1), Notify(it, 2, 1); },
         [](auto& it) { Notify(it, 1, 1), Notify(it, 2, 2), Notify(it, 1, 1); },
         "vendor, thread 2: none, 5 after 3 4"},
        {"another entry", [](auto& it) { it.Call(Entry::LogMap); },
         [](auto& it) { it.Call(Entry::Flush); }, "host: 1, 1"},
        {"call and return", [](auto& it) { it.Call(Entry::LogMap), it.Call(Entry::LogMap); },
         [](auto& it) { it.Both(Entry::LogMap); }, "host: 2, 2 after 1"},
    };
    for (const DifferenceCase& each : kCases) {
        Script one;
        Script other;
        each.one(one);
        each.other(other);
        EXPECT_EQ(DifferenceOf(one, other), each.expected) << each.what;
    }
}

void CopyTwice(Script& script, uint64_t first, uint64_t second) {
    script.Both(Entry::MetadataCopy, {0x1000, 0x2000});
    script.Both(Entry::MetadataCopy, {first, second});
}

void Tag(Script& script, uint32_t camera, uint64_t metadata) {
    script.thread = camera + 1;
    script.Return(script.Submit(camera, 0xa00 + camera, 101));
    script.Both(Entry::GetTag, {camera, metadata});
}

void CreateWithTag(Script& script, uint32_t tag) {
    script.Call(Entry::CreateWithUsage, {0, 0x8, 5, 5}, [&](contract::Writer& writer) {
        writer.Put(contract::kRecordOf<uint32_t>, reinterpret_cast<void*>(0x8), &tag, sizeof tag);
    });
}

/// \param name null for a call whose record was not recorded
void OpenWith(Script& script, const char* name) {
    ChiOfflineSessionCreateInfo info{name, 0, nullptr};
    script.Call(Entry::OpenSession, {0x1, 0x8}, [&](contract::Writer& writer) {
        if (name != nullptr) {
            writer.Put(contract::kRecordOf<ChiOfflineSessionCreateInfo>,
                       reinterpret_cast<void*>(0x8), &info, sizeof info);
            writer.PutText(name);
        }
    });
}

TEST(Diff, TakesObjectsForTheSameThatStoodForEachOther) {
    static const DifferenceCase kCases[] = {
        {"other values", [](auto& it) { CopyTwice(it, 0x2000, 0x1000); },
         [](auto& it) { CopyTwice(it, 0x2000, 0x1000); }, "alike"},
        {"the other one", [](auto& it) { CopyTwice(it, 0x1000, 0x2000); },
         [](auto& it) { CopyTwice(it, 0x2000, 0x2000); },
         "host: 3, 3 after 1 2; first: metadata 1, metadata 2"},
        {"a new one here", [](auto& it) { CopyTwice(it, 0x3000, 0x2000); },
         [](auto& it) { CopyTwice(it, 0x1000, 0x2000); },
         "host: 3, 3 after 1 2; first: metadata 3, metadata 1"},
        {"a new one there", [](auto& it) { CopyTwice(it, 0x1000, 0x2000); },
         [](auto& it) { CopyTwice(it, 0x3000, 0x2000); },
         "host: 3, 3 after 1 2; first: metadata 1, metadata 3"},
        {"another one of its number",
         [](auto& it) { Tag(it, 0, 0x1000), Tag(it, 1, 0x2000), Tag(it, 0, 0x1000); },
         [](auto& it) { Tag(it, 1, 0x2000), Tag(it, 0, 0x1000), Tag(it, 0, 0x2000); },
         "host camera 0: 11, 11 after 3 4 9 10; metadata: metadata 1, metadata 1, which is another "
         "one"},
        {"a row there alone",
         [](auto& it) {
             it.Call(Entry::CreateWithUsage, {0, 0x8, 5, 5});
         },
         [](auto& it) { CreateWithTag(it, 5); }, "host: 1, 1; tags[0]: nothing, 5"},
        {"a row here alone", [](auto& it) { CreateWithTag(it, 5); },
         [](auto& it) {
             it.Call(Entry::CreateWithUsage, {0, 0x8, 5, 5});
         },
         "host: 1, 1; tags[0]: 5, nothing"},
        {"a last record there alone", [](auto& it) { OpenWith(it, nullptr); },
         [](auto& it) { OpenWith(it, "Night"); },
         "host: 1, 1; info.pSessionName: nothing, \"Night\""},
        {"nothing there", [](auto& it) { CopyTwice(it, 0x1000, 0x2000); },
         [](auto& it) { CopyTwice(it, 0x1000, 0); },
         "host: 3, 3 after 1 2; second: metadata 2, null"},
        {"opaque",
         [](auto& it) {
             it.Both(Entry::LogMap, {0, 0x1, 0x2});
         },
         [](auto& it) {
             it.Both(Entry::LogMap, {0, 0x3, 0x3});
         },
         "alike"},
        {"opaque or null",
         [](auto& it) {
             it.Both(Entry::LogMap, {0, 0x1, 0x2});
         },
         [](auto& it) {
             it.Both(Entry::LogMap, {0, 0x1, 0});
         },
         "host: 1, 1; third: address 2, null"},
        {"a number", [](auto& it) { it.Both(Entry::LogMap, {5}); },
         [](auto& it) { it.Both(Entry::LogMap, {UINT64_MAX}); }, "host: 1, 1; first: 5, -1"},
        {"a result", [](auto& it) { it.Both(Entry::Destroy, {}, 0); },
         [](auto& it) { it.Both(Entry::Destroy, {}, 19); }, "host: 2, 2 after 1; status: 0, 19"},
        {"a table that is lent",
         [](auto& it) {
             it.Both(Entry::CreateWithUsage, {0, 0x1});
         },
         [](auto& it) {
             it.Both(Entry::CreateWithUsage, {0, 0x2});
         },
         "alike"},
        {"a feature", [](auto& it) { it.Submit(0, 0xa00, 101, "Night"); },
         [](auto& it) { it.Submit(0, 0xa00, 101, "Nighx"); },
         "host camera 0: 1, 1; request.featureName: \"Night\", \"Nighx\""},
    };
    for (const DifferenceCase& each : kCases) {
        Script one;
        Script other;
        each.one(one);
        each.other(other);
        EXPECT_EQ(DifferenceOf(one, other), each.expected) << each.what;
    }
}

} // namespace
