/// What made-up events tell of requests, sessions and threads where things go wrong.
#include "tests/support/script.h"
#include "view/story.h"

#include <gtest/gtest.h>

namespace {

using contract::Entry;
using test::Script;

/// As in "opened 2 closed 9": the microseconds of what there is.
std::string MomentsOf(const std::vector<std::pair<const char*, std::optional<view::Moment>>>& all) {
    std::string text;
    for (const auto& [name, moment] : all) {
        if (moment.has_value()) {
            text += (text.empty() ? "" : " ") + (name + (" " + std::to_string(*moment / 1000)));
        }
    }
    return text;
}

std::string LineOf(const view::Request& it) {
    return MomentsOf({{"submitted", it.submitted},
                      {"returned", it.returned},
                      {"metadata", it.metadata},
                      {"buffer", it.buffer},
                      {"released", it.released},
                      {"completed", it.completed},
                      {"lost", it.lost}});
}

std::string LineOf(const view::Session& it) {
    return it.name + " of " + it.feature + " " + std::to_string(it.serial) + ": " +
           MomentsOf({{"asked", it.asked},
                      {"opened", it.opened},
                      {"configured", it.configured},
                      {"closed", it.closed}});
}

std::string LineOf(const view::Thread& it) {
    return it.name + (it.open.empty() ? "" : ", open " + std::to_string(it.open.size()));
}

template <class T> std::string LinesOf(const std::vector<T>& all) {
    std::string lines;
    for (const T& each : all) {
        lines += (lines.empty() ? "" : "; ") + LineOf(each);
    }
    return lines;
}

ChiOfflineSessionCallbacks g_callbacks;

uint64_t AskForSession(Script& script) {
    ChiOfflineSessionCreateInfo info{"Vendors", 0, &g_callbacks};
    return script.Call(Entry::OpenSession, {0x1, contract::WordOf(&info)},
                       [&](contract::Writer& writer) {
                           contract::Capture<Entry::OpenSession>::Call(writer, nullptr, &info);
                       });
}

void Open(Script& script, uint64_t handle) { script.Return(AskForSession(script), handle); }

void Execute(Script& script, uint64_t data) {
    ChiOfflineExecuteRequest request{.pPrivateData = reinterpret_cast<void*>(data)};
    const uint64_t call =
        script.Call(Entry::ExecuteRequest, {0x5000, 0x8}, [&](contract::Writer& writer) {
            writer.Put(contract::kRecordOf<ChiOfflineExecuteRequest>, reinterpret_cast<void*>(0x8),
                       &request, sizeof request);
        });
    script.Return(call);
}

void Deliver(Script& script, uint64_t data, const ChiOfflineResultBlock& block) {
    ChiOfflineCaptureResultInfo info{.pResult = const_cast<ChiOfflineResultBlock*>(&block),
                                     .pPrivateData = reinterpret_cast<void*>(data)};
    const uint64_t callbacks = contract::WordOf(&g_callbacks);
    script.Return(script.Call(Entry::ProcessCaptureResult, {callbacks, 1, contract::WordOf(&info)},
                              [&](contract::Writer& writer) {
                                  writer.Put(&info);
                                  writer.Put(&block);
                              }));
}

struct Case {
    const char* what;
    void (*play)(Script& script);
    const char *requests, *sessions, *threads;
};

void ExpectEach(const std::vector<Case>& cases) {
    for (const Case& each : cases) {
        Script script;
        each.play(script);
        const view::Serials serials(script.Events());
        const view::Story story(serials);
        EXPECT_EQ(LinesOf(story.Requests()), each.requests) << each.what;
        EXPECT_EQ(LinesOf(story.Sessions()), each.sessions) << each.what;
        EXPECT_EQ(LinesOf(story.Threads()), each.threads) << each.what;
    }
}

TEST(Story, KeepsTheFirstMomentOfEachKindAndNoneAfterALoss) {
    ExpectEach({
        {"released twice",
         [](auto& it) {
             it.Return(it.Submit(0, 1, 7));
             it.Both(Entry::ReleaseRtBuffers, {0, 1}), it.Both(Entry::ReleaseRtBuffers, {0, 1});
         },
         "submitted 1 returned 2 released 3", "", "host camera 0"},
        {"flushed before",
         [](auto& it) {
             it.Return(it.Submit(0, 1, 7));
             it.Both(Entry::Flush), it.Both(Entry::Flush);
             it.Both(Entry::ReleaseRtBuffers, {0, 1}), it.Both(Entry::RequestComplete, {0, 1});
         },
         "submitted 1 returned 2 lost 4", "", "host camera 0"},
        {"refused, and flushed",
         [](auto& it) { it.Return(it.Submit(0, 1, 7), 22), it.Both(Entry::Flush); },
         "submitted 1 returned 2", "", "host camera 0"},
    });
}

TEST(Story, HasSessionsWithWhatSucceeded) {
    ExpectEach({
        {"refused", [](auto& it) { Open(it, 0); }, "", "Vendors of Vendors 0: asked 1", "host"},
        {"not configured",
         [](auto& it) { Open(it, 0x5000), it.Both(Entry::ConfigureStreams, {0x5000}, 22); }, "",
         "Vendors of Vendors 1: asked 1 opened 2", "host"},
        {"not closed",
         [](auto& it) { Open(it, 0x5000), it.Both(Entry::CloseSession, {0x5000}, 22); }, "",
         "Vendors of Vendors 1: asked 1 opened 2", "host"},
        {"closed at the second attempt",
         [](auto& it) {
             Open(it, 0x5000), it.Both(Entry::CloseSession, {0x5000}, 22);
             it.Both(Entry::CloseSession, {0x5000}), it.Both(Entry::CloseSession, {0x5000});
         },
         "", "Vendors of Vendors 1: asked 1 opened 2 closed 6", "host"},
        {"closed without one", [](auto& it) { it.Both(Entry::CloseSession, {0}); }, "", "", "host"},
        {"of a request",
         [](auto& it) {
             const uint64_t call = it.Submit(0, 1, 7);
             Open(it, 0x5000), it.Return(call);
         },
         "submitted 1 returned 4", "Vendors of Night 1: asked 2 opened 3", "host camera 0"},
    });
}

TEST(Story, TakesReturnsForTheEndOfTheirOwnCalls) {
    ExpectEach({
        {"of the outer one",
         [](auto& it) {
             const uint64_t call = it.Call(Entry::LogMap);
             it.Call(Entry::Copy), it.Call(Entry::Flush), it.Return(call);
         },
         "", "", "host"},
        {"of one that has ended",
         [](auto& it) {
             const uint64_t call = it.Call(Entry::LogMap);
             it.Return(call), it.Call(Entry::Copy), it.Return(call);
         },
         "", "", "host, open 1"},
    });
}

TEST(Story, NamesThreadsForWhatTheyDo) {
    static const ChiOfflineResultBlock kNothing{};
    ExpectEach({
        {"two of a camera, and one of both",
         [](auto& it) {
             it.thread = 1, it.Return(it.Submit(3, 1, 7));
             it.thread = 2, it.Return(it.Submit(3, 2, 8));
             it.thread = 3, it.Both(Entry::LogMap);
             it.thread = 4, it.Both(Entry::LogMap);
             it.thread = 5, it.Return(it.Submit(4, 3, 9));
         },
         "submitted 1 returned 2; submitted 3 returned 4; submitted 9 returned 10", "",
         "host camera 3, thread 0; host camera 3, thread 1; host; host, thread 4; host camera 4"},
        {"a result within a call, and one of the vendor's own accord",
         [](auto& it) {
             Open(it, 0x5000);
             const uint64_t call = it.Call(Entry::Flush);
             Deliver(it, 1, kNothing), it.Return(call);
             it.thread = 2, Deliver(it, 1, kNothing), it.Both(Entry::LogMap);
             it.thread = 3, it.Both(Entry::ProcessNotify);
         },
         "", "Vendors of Vendors 1: asked 1 opened 2",
         "host; vendor session 1, Vendors; vendor, thread 3"},
    });
}

/// Where the host's side is not recorded, an execution is the submission.
TEST(Story, OfTheVendorsSideAloneEndsWithTheLastResult) {
    static const ChiOfflineResultBlock kPartial{.numBuffers = 1, .numPartialMetadata = 1};
    static const ChiOfflineResultBlock kMetadata{.pMetadata = reinterpret_cast<void*>(1)};
    static const ChiOfflineResultBlock kBuffer{.numBuffers = 1};
    ExpectEach({
        {"all",
         [](auto& it) {
             Open(it, 0x5000), Execute(it, 9);
             it.thread = 2, Deliver(it, 9, kPartial), Deliver(it, 9, kMetadata),
             Deliver(it, 9, kBuffer);
         },
         "submitted 3 returned 4 metadata 7 buffer 5 completed 7",
         "Vendors of Vendors 1: asked 1 opened 2", "host; vendor session 1, Vendors"},
        {"a part alone",
         [](auto& it) {
             Open(it, 0x5000), Execute(it, 9), it.thread = 2, Deliver(it, 9, kPartial);
         },
         "submitted 3 returned 4 buffer 5", "Vendors of Vendors 1: asked 1 opened 2",
         "host; vendor session 1, Vendors"},
        {"another's",
         [](auto& it) { Open(it, 0x5000), Execute(it, 9), it.thread = 2, Deliver(it, 8, kBuffer); },
         "submitted 3 returned 4", "Vendors of Vendors 1: asked 1 opened 2",
         "host; vendor session 1, Vendors"},
    });
}

} // namespace
