/// Calls into the adapter, with arguments made from the recorded ones.
#include "replay/world.h"
#include "standin/state.h"

#include <algorithm>
#include <iterator>

namespace replay {
namespace {

using contract::Record;
using OemLayer::OfflineDataWraper;
using OemLayer::RequestPrivData;
using standin::As;

// As much is recorded, and read, of one call.
constexpr uint32_t kMostValues = 4096;

/// A copy of what was lent, as long as it was, null where it was null. What is not recorded is 0.
class Lent {
  public:
    Lent(const Event& event, Record record, uint64_t address, size_t bytes)
        : mIsNull(address == 0), mBytes(std::max<size_t>(bytes, 8)) {
        const auto recorded = event.Find(record, address);
        std::copy_n(recorded.begin(), std::min(recorded.size(), mBytes.size()), mBytes.begin());
    }
    template <class T> T* As() { return mIsNull ? nullptr : reinterpret_cast<T*>(mBytes.data()); }

  private:
    bool mIsNull;
    std::vector<std::byte> mBytes;
};

/// The same, of one record.
template <class T> Lent LentRecord(const Call& call, size_t index) {
    return {call.call, contract::kRecordOf<T>, call.Word(index), sizeof(T)};
}

/// For entries that get nothing but words and vendor's handles behind the table.
template <class R, class... Args> void MakePlain(R (*entry)(PlatFormIntCallbacks*, Args...),
                                                 PlatFormIntCallbacks* table, const Call& call) {
    [&]<size_t... I>(std::index_sequence<I...>) {
        (void)entry(table, As<Args>(call.Word(I + 1))...);
    }
    (std::index_sequence_for<Args...>());
}

// --- A submission -------------------------------------------------------------------------------

void RefreshStreams(const Event& event, Objects& objects) {
    for (const auto* each = event.First(); each != nullptr; each = event.Next(each)) {
        if (each->record == Record::Stream && !Event::Bytes(each).empty()) {
            const auto* copy = reinterpret_cast<const ChiStream*>(Event::Bytes(each).data());
            objects.Refresh(each->address, *copy);
        }
    }
}

/// All bytes but those of the member, which is an object of this process.
void CopyAround(void* target, const void* source, size_t size, size_t member, size_t memberSize) {
    auto* const to = static_cast<std::byte*>(target);
    const auto* const from = static_cast<const std::byte*>(source);
    std::memcpy(to, from, member);
    std::memcpy(to + member + memberSize, from + member + memberSize, size - member - memberSize);
}

constexpr size_t kFeature = offsetof(OfflineDataWraper, identity) +
                            offsetof(OemLayer::OfflineSessionIdentitys, featureName);
constexpr size_t kInputs = offsetof(RequestPrivData, inputStreams);

void FillWrapper(OfflineDataWraper& wrapper, const Event& event, Objects& objects) {
    const auto* const recorded = event.At<OfflineDataWraper>(event.Word(1));
    if (recorded != nullptr) {
        CopyAround(&wrapper, recorded, sizeof wrapper, kFeature, sizeof(std::string));
        wrapper.identity.featureName = event.TextAt(event.Word(1) + kFeature);
        wrapper.identity.pOutStream = objects.StreamOf(wrapper.identity.pOutStream);
        wrapper.pCamera3CbOps = objects.FrameworkOf(wrapper.pCamera3CbOps);
    }
}

RequestPrivData* FillRequest(const Event& event, Objects& objects) {
    RequestPrivData* const own = objects.RequestOf(event.Word(2));
    if (own != nullptr) {
        CopyAround(own, event.At<RequestPrivData>(event.Word(2)), sizeof *own, kInputs,
                   sizeof(std::vector<camera3_stream*>));
        own->inputStreams.clear();
        for (const uint64_t stream : event.All<uint64_t>(event.Word(2) + kInputs)) {
            own->inputStreams.push_back(objects.StreamOf(As<camera3_stream*>(stream)));
        }
    }
    return own;
}

void Submit(const Call& call, PlatFormIntCallbacks* table, World& world) {
    for (const Event& piece : call.pixels) {
        const auto memory = world.vendor.MemoryOf(piece.Word(0));
        const auto bytes = piece.Find(Record::Bytes, piece.Word(3));
        if (piece.Word(1) <= memory.size() && bytes.size() <= memory.size() - piece.Word(1)) {
            std::memcpy(memory.data() + piece.Word(1), bytes.data(), bytes.size());
        }
    }
    RefreshStreams(call.call, world.objects);
    OfflineDataWraper wrapper{};
    FillWrapper(wrapper, call.call, world.objects);
    RequestPrivData* const request = FillRequest(call.call, world.objects);
    Lent output = LentRecord<camera3_stream_buffer>(call, 3);
    if (auto* const buffer = output.As<camera3_stream_buffer>()) {
        buffer->stream = world.objects.StreamOf(buffer->stream);
    }
    table->SubmitRequestFromRT(table, call.Word(1) == 0 ? nullptr : &wrapper, request,
                               output.As<void>(), world.objects.CallbacksOf(call.Word(4)));
}

// --- What the vendor calls ----------------------------------------------------------------------

/// A block of a result, with its buffers. The vendor may bring back the output buffer's own record.
struct Block {
    ChiOfflineResultBlock block{};
    std::vector<ChiStreamBuffer> buffers;
    bool isThere = false;

    Block(const Call& call, const ChiOfflineResultBlock* address, World& world) {
        const auto* const recorded = call.call.At<ChiOfflineResultBlock>(address);
        if (recorded == nullptr) {
            return;
        }
        isThere = true;
        block = *recorded;
        const auto all = call.call.All<ChiStreamBuffer>(recorded->pBuffers);
        buffers.assign(all.begin(), all.end());
        buffers.resize(std::max<size_t>(buffers.size(), 1));
        for (ChiStreamBuffer& buffer : buffers) {
            buffer.pStream = world.objects.StreamOf(buffer.pStream);
        }
        if (recorded->pBuffers != nullptr) {
            block.pBuffers = buffers.data();
            UseOutput(call, recorded->pBuffers, world);
        }
    }
    ChiOfflineResultBlock* Get() { return isThere ? &block : nullptr; }

  private:
    void UseOutput(const Call& call, const ChiStreamBuffer* recorded, World& world) {
        if (call.execution == nullptr) {
            return;
        }
        const Event& request = call.execution->call;
        const auto* execute = request.At<ChiOfflineExecuteRequest>(request.Word(1));
        const auto* output =
            execute == nullptr ? nullptr : request.At<ChiOfflineBufferSet>(execute->pOutput);
        ChiStreamBuffer* const own = world.vendor.ExecutionOf(call).output;
        if (output != nullptr && output->pBuffers == recorded && own != nullptr) {
            *own = buffers.front();
            block.pBuffers = own;
        }
    }
};

bool DeliverResult(const Call& call, const ChiOfflineSessionCallbacks* callbacks, World& world) {
    const auto* const recorded = call.call.At<ChiOfflineCaptureResultInfo>(call.Word(2));
    ChiOfflineCaptureResultInfo info{};
    if (recorded == nullptr) {
        callbacks->ProcessCaptureResultCb(callbacks, As<uint32_t>(call.Word(1)), nullptr);
        return true;
    }
    info.frameNumber = recorded->frameNumber;
    if (recorded->pPrivateData != nullptr) {
        info.pPrivateData = world.vendor.ExecutionOf(call).privateData;
        if (info.pPrivateData == nullptr) {
            return false;
        }
    }
    Block main(call, recorded->pResult, world);
    Block second(call, recorded->pSecondResult, world);
    info.pResult = main.Get();
    info.pSecondResult = second.Get();
    // A second block that repeats the buffers does so here, too.
    const auto* const first = call.call.At<ChiOfflineResultBlock>(recorded->pResult);
    const auto* const repeat = call.call.At<ChiOfflineResultBlock>(recorded->pSecondResult);
    if (first != nullptr && repeat != nullptr && first->pBuffers == repeat->pBuffers) {
        second.block.pBuffers = main.block.pBuffers;
    }
    callbacks->ProcessCaptureResultCb(callbacks, As<uint32_t>(call.Word(1)), &info);
    return true;
}

/// \returns false for one that asks for more than there is room for here. The adapter believes what
/// it is told, so that there is room for all of it; more records than were recorded are empty.
bool AskForBuffers(const Call& call, const ChiOfflineSessionCallbacks* callbacks, World& world) {
    constexpr uint32_t kMostAsked = 4096;
    const auto count = As<uint32_t>(call.Word(1));
    if (count > kMostAsked) {
        return false;
    }
    Lent requests(call.call, Record::QueryBuffer, call.Word(2),
                  sizeof(ChiOfflineQueryBuffer) * count);
    std::vector<ChiOfflineQueryStreamBuffer> answers(std::max<size_t>(count, 1));
    std::vector<std::vector<ChiStreamBuffer>> buffers(answers.size());
    for (size_t i = 0; i < count && call.Word(2) != 0; ++i) {
        ChiOfflineQueryBuffer& query = requests.As<ChiOfflineQueryBuffer>()[i];
        query.pStream = world.objects.StreamOf(query.pStream);
        if (query.numBuffers > kMostAsked) {
            return false;
        }
        buffers[i].resize(query.numBuffers);
        answers[i].pBuffers = buffers[i].data();
    }
    unsigned int returned = 0;
    callbacks->GetFrameworkBuffers(callbacks, count, requests.As<ChiOfflineQueryBuffer>(),
                                   call.Word(3) == 0 ? nullptr : &returned,
                                   call.Word(4) == 0 ? nullptr : answers.data());
    return true;
}

bool MakeVendors(const Call& call, World& world) {
    const auto* const callbacks = world.vendor.CallbacksOf(call);
    if (callbacks == nullptr) {
        return false;
    }
    if (call.Of() == Entry::ProcessCaptureResult) {
        return DeliverResult(call, callbacks, world);
    }
    if (call.Of() == Entry::GetFrameworkBuffers) {
        AskForBuffers(call, callbacks, world);
    } else {
        callbacks->ProcessNotifyCb(callbacks, As<uint32_t>(call.Word(1)),
                                   As<ChiOfflineMessageInfo*>(call.Word(2)));
    }
    return true;
}

// --- What the host calls ------------------------------------------------------------------------

/// Calls with records that are lent. \returns false for other calls.
bool MakeWithRecords(const Call& call, PlatFormIntCallbacks* table, World& world) {
    const auto word = [&](size_t index) { return call.Word(index); };
    switch (call.Of()) {
    case Entry::CreateWithUsage: {
        const auto count = As<uint32_t>(word(2));
        Lent tags(call.call, Record::Numbers, word(1),
                  sizeof(uint32_t) * std::min(count, kMostValues));
        (void)table->CreateWithUsage(table, tags.As<uint32_t>(), count, As<int>(word(3)));
        return true;
    }
    case Entry::GetTag: {
        uint32_t size = 0;
        (void)table->GetTag(table, As<void*>(word(1)), As<uint32_t>(word(2)),
                            word(3) == 0 ? nullptr : &size, As<uint8_t>(word(4)));
        return true;
    }
    case Entry::SetTag: {
        Lent data(call.call, Record::Bytes, word(3), std::min(As<uint32_t>(word(4)), kMostValues));
        (void)table->SetTag(table, As<void*>(word(1)), As<uint32_t>(word(2)), data.As<void>(),
                            As<uint32_t>(word(4)), As<uint32_t>(word(5)));
        return true;
    }
    case Entry::TakeImageBuffer:
        RefreshStreams(call.call, world.objects);
        (void)table->GetImageBuffer(table, world.objects.StreamOf(As<void*>(word(1))));
        return true;
    case Entry::SubmitRequestFromRT:
        Submit(call, table, world);
        return true;
    case Entry::TranslateToBuffer: {
        Lent source = LentRecord<camera3_stream_buffer>(call, 1);
        if (auto* const buffer = source.As<camera3_stream_buffer>()) {
            buffer->stream = world.objects.StreamOf(buffer->stream);
        }
        ChiStreamBuffer target{};
        (void)table->TranslateToBuffer(table, source.As<void>(), word(2) ? &target : nullptr);
        return true;
    }
    case Entry::TranslateFromBuffer: {
        Lent source = LentRecord<ChiStreamBuffer>(call, 1);
        if (auto* const buffer = source.As<ChiStreamBuffer>()) {
            buffer->pStream = world.objects.StreamOf(buffer->pStream);
        }
        camera3_stream_buffer target{};
        (void)table->TranslateFromBuffer(table, source.As<void>(), word(2) ? &target : nullptr);
        return true;
    }
    default:
        return false;
    }
}

/// Calls that need no camera.
bool MakeWithoutTable(const Call& call, World& world) {
    auto& any = world.tables.begin()->second;
    char text[] = "";
    int settings = 0;
    switch (call.Of()) {
    case Entry::LoadLib:
        (void)world.load.loadLib();
        return true;
    case Entry::LogMap:
        world.load.logMap(As<int>(call.Word(0)), call.Word(1) == 0 ? nullptr : text,
                          call.Word(2) == 0 ? nullptr : text);
        return true;
    case Entry::ProcRequest:
        any.ProcRequest(&any);
        return true;
    case Entry::CreateSensorInitSettings:
        (void)any.CreateSensorInitSettings(&any, settings, As<int>(call.Word(1)));
        return true;
    case Entry::EnumerateSensorModes:
        (void)any.EnumerateSensorModes(As<uint32_t>(call.Word(0)), As<uint32_t>(call.Word(1)),
                                       As<void*>(call.Word(2)));
        return true;
    case Entry::ExtensionProcessResultMeta:
        (void)any.ExtensionProcessResultMeta(As<uint32_t>(call.Word(0)), As<void**>(call.Word(1)));
        return true;
    default:
        return false;
    }
}

/// The rest: their words are all that there is.
void MakeOfTable(const Call& call, PlatFormIntCallbacks* table) {
    const auto make = [&](auto entry) { MakePlain(entry, table, call); };
    switch (call.Of()) {
    case Entry::Create:
        (void)table->Create(table, table->cameraId);
        break;
#define PLAIN(entry, member)                                                                       \
    case Entry::entry:                                                                             \
        make(table->member);                                                                       \
        break;
        PLAIN(GetNCSCallback, GetNCSCallback)
        PLAIN(GetHWCallback, GetHWCallback)
        PLAIN(GetPerfCallback, GetPerfCallback)
        PLAIN(Destroy, Destroy)
        PLAIN(Flush, Flush)
        PLAIN(TearDownResource, TearDownResource)
        PLAIN(CreateAndroidMetadata, CreateAndroidMetadata)
        PLAIN(CreateByAndroidMetadata, CreateByAndroidMetadata)
        PLAIN(ReleaseAndroidMetadata, ReleaseAndroidMetadata)
        PLAIN(Copy, Copy)
        PLAIN(DestroyMetadata, MetadataDestroy)
        PLAIN(DeleteTag, DeleteTag)
        PLAIN(GiveImageBuffer, ReleaseImageBuffer)
        PLAIN(MapImageBuffer, GetCPUAddress)
#undef PLAIN
    default:
        break;
    }
}

} // namespace

bool Make(const Call& call, World& world) {
    if (call.call.Text().side == contract::Side::Vendor) {
        return MakeVendors(call, world);
    }
    if (MakeWithoutTable(call, world)) {
        return true;
    }
    const auto found = world.tables.find(As<uint32_t>(call.Word(0)));
    if (found == world.tables.end()) {
        return false;
    }
    PlatFormIntCallbacks* const table = &found->second;
    if (!MakeWithRecords(call, table, world)) {
        MakeOfTable(call, table);
    }
    return true;
}

} // namespace replay
