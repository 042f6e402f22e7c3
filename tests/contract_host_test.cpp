/// The host's rules: each is seen failing, alone, and holding where all but seems wrong.
/// And what the watch over both sides forgets, or has not seen.

#include "tests/support/conduct.h"

#include <span>

namespace {

using namespace test;

/// One request of a host, and the library's part in it, as events alone.
struct Watched {
    Conduct vendor;
    contract::Tap& tap = vendor.tap;
    PlatFormIntCallbacks table = {.cameraId = 0};
    PlatFormIntCallbacks otherTable = {.cameraId = 1};
    camera3_stream stream = MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888);
    buffer_handle_t handle = nullptr;
    buffer_handle_t otherHandle = nullptr;
    camera3_stream_buffer buffers[2] = {{.stream = &stream, .buffer = &handle},
                                        {.stream = &stream, .buffer = &handle}};
    camera3_capture_result both = {.frame_number = 101,
                                   .result = static_cast<camera_metadata*>(MadeUp(0x4000)),
                                   .num_output_buffers = 1,
                                   .output_buffers = buffers,
                                   .partial_result = 257};
    OemLayer::RequestPrivData privData = {.partialResultBase = 2};
    OemLayer::RequestPrivData* pPrivData = &privData;
    OemLayer::RequestPrivData* pReported = &privData;
    OemLayer::OfflineDataWraper wrapper = {.rtFrameNumber = 101, .identity = {&stream, 0, ""}};
    OemLayer::OfflineDataWraper* pWrapper = &wrapper;
    camera3_stream_buffer output = buffers[0];
    camera3_stream_buffer* pOutput = &output;
    camera3_stream_buffer lent = {.stream = &stream, .buffer = &otherHandle};
    OemLayer::OffCamApplicationCallbacks callbacks = {[](auto...) {}, [](auto...) {},
                                                      [](auto...) {}};

    explicit Watched(contract::Tap* into = nullptr) : vendor(into) {
        vendor.block.pMetadata = MadeUp(0x4D);
    }
    static void ReportToNobody(Watched& watched) {
        watched.pPrivData = watched.pReported = nullptr;
    }
    static void ReportLent(Watched& watched) { watched.buffers[0] = watched.lent; }

    /// Submits, with what comes before the S during the call, and then the rest. M is a result, R
    /// the release, C the completion with a status, S the submission's return with its own, L a
    /// buffer that the framework lends, F the flush of the camera and G that of another one, K the
    /// creation of that, X the end of the camera. Small letters are the vendor's.
    void Play(const std::string& calls) {
        using contract::Entry;
        const size_t end = calls.find('S');
        const uint32_t status = end == calls.npos ? 0 : calls[end + 1] - '0';
        const auto submit = [&] {
            Receive(end == calls.npos ? "" : calls.substr(0, end));
            return status;
        };
        tap.Around<Entry::SubmitRequestFromRT>(
            submit, &table, static_cast<void*>(pWrapper), static_cast<void*>(pPrivData),
            static_cast<void*>(pOutput), static_cast<void*>(&callbacks));
        Receive(end == calls.npos ? calls : calls.substr(end + 2));
    }
    void Receive(std::string_view calls) {
        using contract::Entry;
        const auto nothing = [] {};
        for (size_t i = 0; i < calls.size(); ++i) {
            if (calls[i] == 'M') {
                tap.Around<Entry::CaptureResult>(nothing, 0U, pReported, &both);
            } else if (calls[i] == 'R') {
                tap.Around<Entry::ReleaseRtBuffers>(nothing, 0U, pReported);
            } else if (calls[i] == 'C') {
                const uint32_t status = calls[++i] - '0';
                tap.Around<Entry::RequestComplete>(nothing, 0U, pReported, status);
            } else if (calls[i] == 'L') {
                Lend();
            } else if (calls[i] == 'F' || calls[i] == 'G') {
                tap.Around<Entry::Flush>(nothing, calls[i] == 'F' ? &table : &otherTable);
            } else if (calls[i] == 'K') {
                tap.Around<Entry::Create>([] { return MadeUp(0x4B); }, &otherTable);
            } else if (calls[i] == 'X') {
                tap.Around<Entry::Destroy>([] { return int64_t{0}; }, &table);
            } else {
                vendor.Play(calls.substr(i, 1));
            }
        }
    }
    void Lend() {
        const camera3_buffer_request wanted = {lent.stream, 1};
        uint32_t returned = 1;
        camera3_stream_buffer_ret answer = {
            .stream = lent.stream, .num_output_buffers = 1, .output_buffers = &lent};
        tap.Around<contract::Entry::RequestStreamBuffers>([] { return 0; }, 0U, 1U, &wanted,
                                                          &returned, &answer);
    }
};

constexpr Row<Watched> kHostRows[]{
    {Rule::ResultFrame, "MRC0", kHolds, // The request's is not known,
     [](Watched& watched) {
         watched.pWrapper = nullptr;
         watched.both.frame_number = 5;
     }},
    {Rule::LateResult, "MRC0M", kHolds, Watched::ReportToNobody}, // or nobody's.
    {Rule::ResultContent, "M", "metadata 0x4000 and 1 buffers at (nil)",
     [](Watched& watched) { watched.both.output_buffers = nullptr; }},
    {Rule::ResultBuffer, "MRC0", "stream <stream> and buffer <buffer> must be <stream> and (nil)",
     [](Watched& watched) { watched.pOutput = nullptr; }},
    {Rule::ResultBuffer, "LMRC0", kHolds, Watched::ReportLent},
    {Rule::ResultBuffer, "MRC0",
     "stream <stream> and buffer <other> must be <stream> and <buffer>", // It was lent once,
     [](Watched& watched) {
         Watched::ReportLent(watched);
         watched.Play("LMRC0");
     }},
    {Rule::ResultBuffer, "LMRC0", // or for another stream.
     "stream <request> and buffer <other> must be <stream> and <buffer>",
     [](Watched& watched) {
         watched.lent.stream = reinterpret_cast<camera3_stream*>(&watched.privData);
         Watched::ReportLent(watched);
     }},
    {Rule::Reports, "oceS0rMRC0", kHolds},
    {Rule::Reports, "oceS0rMRC0", "1 metadata and 1 buffers, and must be 0 and 1",
     [](Watched& watched) { watched.vendor.block.pMetadata = nullptr; }},
    {Rule::Reports, "oceS0rMRC0", "1 metadata and 0 buffers, and must be 1 and 1",
     [](Watched& watched) { watched.both.num_output_buffers = 0; }},
    {Rule::Reports, "oceS0rMRC0", kHolds, // There is nothing in the second block,
     [](Watched& watched) { watched.vendor.info.pSecondResult = &watched.vendor.secondBlock; }},
    {Rule::Reports, "oceS0rMMRC0", kHolds, // or there is.
     [](Watched& watched) {
         watched.vendor.info.pSecondResult = &watched.vendor.secondBlock;
         watched.vendor.secondBlock.pMetadata = MadeUp(0x4D);
     }},
    {Rule::Reports, "oceS0rMMRC0", kHolds,
     [](Watched& watched) {
         watched.vendor.info.pSecondResult = &watched.vendor.secondBlock;
         watched.vendor.secondBlock.pBuffers = &watched.vendor.brought;
     }},
    {Rule::Reports, "RC0", kHolds,
     [](Watched& watched) { watched.callbacks.captureResult = nullptr; }},
    {Rule::Release, "MC0", kHolds,
     [](Watched& watched) { watched.callbacks.releaseRtBuffers = nullptr; }},
    {Rule::CompletionStatus, "oceS0rMRC0", "the status is 0 and must be 1",
     [](Watched& watched) { watched.vendor.brought.bufferStatus = 1; }},
    {Rule::CompletionStatus, "oceS0rMRC0", kHolds, // What the vendor brought counts,
     [](Watched& watched) { watched.buffers[0].status = CAMERA3_BUFFER_STATUS_ERROR; }},
    {Rule::CompletionStatus, "MRC0", kHolds, // and may be a later result without.
     [](Watched& watched) { watched.buffers[0].status = CAMERA3_BUFFER_STATUS_ERROR; }},
    {Rule::Refusal, "S4", kHolds, Watched::ReportToNobody},
    {Rule::LateResult, "MRC0FM", "a result after the completion"},
    {Rule::AfterClose, "XS4R", "a release"},
    {Rule::AfterClose, "FM", "a result"},
    {Rule::AfterClose, "GMRC0", kHolds},
    {Rule::ResultFrame, "MRC0", "the frame number is 5 and must be 101",
     [](Watched& watched) { watched.both.frame_number = 5; }},
    {Rule::ResultPartial, "MRC0", "the partial number is 2 and must be 257",
     [](Watched& watched) { watched.both.partial_result = 2; }},
    {Rule::ResultPartial, "M", "the partial number is 257 and must be 0",
     [](Watched& watched) { watched.both.result = nullptr; }},
    {Rule::ResultContent, "M", "metadata (nil) and 0 buffers at (nil)",
     [](Watched& watched) { watched.both = {.frame_number = 101}; }},
    {Rule::ResultContent, "M", "metadata 0x4000 and 2 buffers at <buffers>",
     [](Watched& watched) { watched.both.num_output_buffers = 2; }},
    {Rule::ResultBuffer, "MRC0", "stream <stream> and buffer <other> must be <stream> and <buffer>",
     [](Watched& watched) { watched.buffers[0].buffer = &watched.otherHandle; }},
    {Rule::ResultBuffer, "MRC0", "stream (nil) and buffer <buffer> must be <stream> and <buffer>",
     [](Watched& watched) { watched.buffers[0].stream = nullptr; }},
    {Rule::Reports, "MRC0", "no buffer before the completion",
     [](Watched& watched) { watched.both.num_output_buffers = 0; }},
    {Rule::LateResult, "MRC0M", "a result after the completion"},
    {Rule::Release, "RMRC0", "the number of releases is 2 and must be 1"},
    {Rule::Release, "MRC0R", "a release after the completion"},
    {Rule::Release, "MC0", "a completion without a release"},
    {Rule::Completion, "MRC0C0", "a completion after the completion"},
    {Rule::CompletionStatus, "MRC2", "the status is 2 and must be 1",
     [](Watched& watched) { watched.buffers[0].status = CAMERA3_BUFFER_STATUS_ERROR; }},
    {Rule::CompletionStatus, "MRC1", "the status is 1 and must be 0"},
    {Rule::Refusal, "MRC0S4", "status 4 after 3 callbacks"},
    {Rule::Refusal, "S4M", "a result after status 4"},
    {Rule::AfterClose, "MRC0XR", "a release"},
};

/// What no request of the host's is at fault for.
constexpr Row<Watched> kEndRows[]{
    {Rule::LateResult, "M", "captureResult: a result for a request that is none, <request>",
     [](Watched& watched) { watched.pPrivData = nullptr; }},
    {Rule::SessionClosed, "oS0X", "at the end: 1 session left, such as 0x4d \"Night\""},
    {Rule::SessionClosed, "KoS0X", kHolds}, // Another camera may close it.
    {Rule::TableOpen, "TS0X", kHolds},
};

/// `where` is how the values begin.
void ExpectViolations(std::span<const Row<Watched>> rows, const std::string& where = "") {
    for (const Row<Watched>& row : rows) {
        Watched watched;
        row.change(watched);
        watched.Play(row.calls);
        ExpectViolation(row, where,
                        {{"<stream>", &watched.stream},
                         {"<request>", &watched.privData},
                         {"<buffer>", &watched.handle},
                         {"<other>", &watched.otherHandle},
                         {"<buffers>", watched.buffers}});
    }
}

TEST(Contract, RulesOfTheHostAreSeenFailing) {
    ExpectViolations(kHostRows, "camera 0, frame 101: ");
    ExpectViolations(kEndRows);
}

/// What is over is forgotten in the end, and not what is under way with its private data.
TEST(Contract, ForgetsRequestsThatAreLongOver) {
    constexpr size_t kMore = 1025; // Than are remembered.
    Watched watched;
    Conduct& vendor = watched.vendor;
    std::vector<OemLayer::RequestPrivData> records(kMore + 1, watched.privData);
    const auto use = [&](size_t index) {
        watched.pPrivData = watched.pReported = &records[index];
        vendor.request.pPrivateData = vendor.info.pPrivateData = &records[index];
    };
    use(kMore);
    vendor.Play("ocere");
    watched.Play("MRC0");
    watched.Play(""); // Once more, and under way.
    for (size_t i = 0; i < kMore; ++i) {
        use(i);
        vendor.Play("er");
        watched.Play("MRC0");
    }
    use(kMore);
    watched.Receive("rMRC0");
    EXPECT_EQ(vendor.device->Violations(), Texts());
    for (const size_t index : {size_t{0}, kMore - 1}) {
        use(index);
        watched.Receive("rM");
    }
    Texts numbers;
    for (const std::string& violation : vendor.device->Violations()) {
        numbers.push_back(violation.substr(0, violation.find(' ')));
        EXPECT_EQ(violation.find("none") != violation.npos, numbers.size() == 2) << violation;
    }
    EXPECT_EQ(numbers, (Texts{"R6", "H6", "R8", "H6"}));
}

/// A watch that begins late, at the second event.
struct Late : contract::Follower {
    Texts found;
    contract::Engine engine{[this](const auto& violation) { found.push_back(LineOf(violation)); }};
    std::string problem;
    std::unique_ptr<contract::Tap> tap = contract::Tap::Open({.follower = this}, problem);

    Late() {
        tap->Call<contract::Entry::Pixels>(ChiImageBufferHandle(), uint64_t{0}, uint64_t{0},
                                           static_cast<const void*>(nullptr));
    }
    void Take(const contract::Event& event, bool /*isOwn*/) override {
        if (event.Number() > 1) {
            engine.Take(event);
        }
    }
    void Destroy(ChiMetadataHandle metadata) const {
        tap->Around<contract::Entry::MetadataDestroy>([] { return 0U; }, metadata);
    }
};

TEST(Contract, IsNotHeldAgainstObjectsFromBeforeTheWatch) {
    Late late;
    late.Destroy(MadeUp(0x4E));
    late.engine.CheckAllReturned();
    Watched watched(late.tap.get());
    watched.Receive("mX");
    EXPECT_EQ(late.found, Texts()) << "other cameras may be there";
    late.engine.CheckAllReturned();
    EXPECT_EQ(std::exchange(late.found, {}).size(), 1U) << "who asks is told";
    late.Destroy(MadeUp(0x4E));
    EXPECT_EQ(std::exchange(late.found, {}).size(), 1U) << "destroyed twice, and both were seen";
    late.Destroy(nullptr);
    EXPECT_EQ(late.found.size(), 1U) << "none at any time";
}

TEST(Contract, IsNotHeldAgainstRequestsFromBeforeTheWatch) {
    Late late;
    Watched watched(late.tap.get());
    Conduct::LeaveSetWithoutMetadata(watched.vendor);
    watched.vendor.brought.bufferHandle = &late;
    Watched::ReportLent(watched);
    watched.Receive("MqrxtuocrecerX");
    watched.Play("MRC0");
    EXPECT_EQ(late.found, Texts());
    watched.Receive("xr");
    EXPECT_EQ(late.found.size(), 1U) << "the session was seen closing";
}

/// An instant device answers at once and sees nothing; what is run after it is watched again.
TEST(Contract, IsNotWatchedByAnInstantDeviceUntilTheReset) {
    Device device;
    device->SetInstant(true);
    for (const size_t seen : {0U, 1U}) {
        Camera camera(device);
        Request request;
        request.UseVendorBuffers(camera);
        request.Submit(camera);
        device->WaitIdle();
        EXPECT_EQ(request.Events().back().kind, "complete");
        EXPECT_EQ(device->CallCount(Entry::ExecuteRequest), seen);
        request.GiveBack(camera);
        camera.Destroy();
        device->Reset();
    }
}

TEST(Contract, EveryRuleOfTheHostsSideHasARowHere) { ExpectARowForEach("H", kHostRows, kEndRows); }

} // namespace
