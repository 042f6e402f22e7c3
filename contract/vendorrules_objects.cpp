/// The vendor's operation tables, and what is made with them: metadata and buffers.
#include "contract/vendorrules.h"

namespace contract {
namespace {

constexpr uint32_t kAnyCount = 0xFFFFFFFF;

} // namespace

// --- Operation tables ---------------------------------------------------------------------------

void VendorRules::CheckOpenInfo(const Event& event, PendingCall& call) {
    const auto* info = event.At<ChiMetadataOpsOpenInfo>(event.Word(1));
    mChecks.Check(Rule::MetadataWords,
                  info == nullptr
                      ? event.Word(1) != 0
                      : info->reserved4 == 1 && info->reserved8 == 0 && info->reserved12 == 1,
                  "the words behind the camera id must be 1, 0, 1");
    if (info != nullptr) {
        call.camera = info->cameraId;
    }
}

void VendorRules::OpenedTable(const Event& event, const PendingCall& call, Objects<Table>& all) {
    const uint64_t handle = event.Result();
    if (handle == 0) {
        return;
    }
    Table* table = all.Find(handle);
    const bool isNew = table == nullptr;
    if (isNew) {
        table = &all.Add(handle, Table{});
    } else {
        ++table->given;
    }
    if (const auto* ops = event.At<ChiOfflineMetadataOps>(handle)) {
        table->makesSettings = ops->pCreateFromAndroid != nullptr;
    }
    table->camera = isNew || table->camera == call.camera ? call.camera : std::nullopt;
}

/// What was opened several times is closed as often: only the last closing has a table's serial.
void VendorRules::CloseTable(Objects<Table>& all, const PendingCall& call) {
    Table* const table = all.FindAny(call.key);
    const bool isLast = table != nullptr && table->serial == call.serial;
    all.FinishEnd(call, isLast);
    if (isLast && !mChecks.isLate && mMetadataOps.All().empty() && mBufferOps.All().empty()) {
        CheckAllReturned();
    }
}

// --- Metadata -----------------------------------------------------------------------------------

void VendorRules::CallMetadata(const Event& event, PendingCall& call) {
    const uint64_t first = event.Word(0);
    switch (event.Of()) {
    case Entry::MetadataOpsClose:
        mMetadataOps.BeginEnd(first, call);
        break;
    case Entry::MetadataCreate:
        mChecks.Expect(Rule::MetadataWords, "the source", Handle(event.Word(1)), Handle());
        mChecks.Expect(Rule::MetadataWords, "the last word", event.Word(2), uint64_t{0});
        mMetadataOps.Require(first);
        break;
    case Entry::MetadataCreateWithUsage:
        mMetadataOps.Require(first);
        break;
    case Entry::MetadataCreateFromAndroid:
        mChecks.Check(Rule::MetadataWords,
                      event.Word(2) == 0 && event.Word(3) == 0 && event.Word(4) == kAnyCount,
                      "the words are ", Got{event.Word(2)}, ", ", Got{event.Word(3)}, ", ",
                      Got{event.Word(4)}, " and must be ", Must{0}, ", ", Must{0}, ", ",
                      Must{kAnyCount});
        mMetadataOps.Require(first);
        break;
    case Entry::MetadataCreateAndroid:
        mChecks.Expect(Rule::MetadataWords, "the first word", event.Word(2), uint64_t{1});
        mMetadata.Require(event.Word(1));
        mMetadataOps.Require(first);
        break;
    case Entry::MetadataReleaseAndroid:
        mMetadataOps.Require(first);
        mAndroid.BeginEnd(event.Word(1), call);
        break;
    case Entry::MetadataDestroy:
        mMetadata.BeginEnd(first, call);
        break;
    case Entry::MetadataSetTag:
        SetMarkOf(event);
        break;
    case Entry::MetadataCopy:
        mMetadata.Require(first);
        mMetadata.Require(event.Word(1));
        break;
    default:
        mMetadata.Require(first);
        break;
    }
}

void VendorRules::ReturnOfMetadata(const Event& event, const PendingCall& call) {
    switch (event.Of()) {
    case Entry::MetadataOpsClose:
        CloseTable(mMetadataOps, call);
        break;
    case Entry::MetadataCreate:
    case Entry::MetadataCreateWithUsage:
    case Entry::MetadataCreateFromAndroid:
        MadeMetadata(event);
        break;
    case Entry::MetadataCreateAndroid:
        mAndroid.Adopt(event.Result(), Android{});
        break;
    case Entry::MetadataReleaseAndroid:
        mAndroid.FinishEnd(call, Worked(event));
        break;
    case Entry::MetadataDestroy:
        mMetadata.FinishEnd(call, Worked(event));
        break;
    default:
        break;
    }
}

void VendorRules::MadeMetadata(const Event& event) {
    const bool isThere = event.Result() != 0;
    if (event.Of() == Entry::MetadataCreateFromAndroid) {
        mSettings[mNextSettings++ % mSettings.size()] = {event.Thread(), event.Number(), isThere};
    }
    Metadata metadata;
    if (const Table* const table = mMetadataOps.FindAny(event.Word(0))) {
        metadata.camera = table->camera;
    }
    if (event.Of() == Entry::MetadataCreateWithUsage) {
        SetMetadata& ofHost = mSetMetadata[metadata.camera];
        ofHost.isGiven |= isThere;
        ofHost.refused += isThere ? 0 : 1;
    }
    mMetadata.Adopt(event.Result(), metadata);
}

/// A host at the desk marks the metadata of a request's sets.
void VendorRules::SetMarkOf(const Event& event) {
    Metadata* const metadata = mMetadata.Require(event.Word(0));
    const auto bytes = event.All<uint8_t>(event.Word(2));
    if (metadata != nullptr && event.Word(1) == kSetMarkTag && bytes.size() >= sizeof(SetMark)) {
        metadata->mark.emplace();
        std::memcpy(&*metadata->mark, bytes.data(), sizeof(SetMark));
    }
}

// --- Buffers ------------------------------------------------------------------------------------

/// The adapter passes on the null manager that a failed create left, so that null is taken in
/// silence.
void VendorRules::CallBuffers(const Event& event, PendingCall& call) {
    const uint64_t first = event.Word(0);
    switch (event.Of()) {
    case Entry::BufferOpsClose:
        mBufferOps.BeginEnd(first, call);
        break;
    case Entry::BufferManagerCreate:
        CheckManager(event);
        break;
    case Entry::BufferManagerDestroy:
        if (first != 0) {
            DestroyManager(first, call);
        }
        break;
    case Entry::GetImageBuffer:
        if (first != 0) {
            mManagers.Require(first);
        }
        break;
    case Entry::ReleaseImageBuffer:
        mImages.BeginEnd(first, call);
        break;
    case Entry::GetCPUAddress:
        mImages.Require(first);
        break;
    default:
        break;
    }
}

void VendorRules::ReturnOfBuffers(const Event& event, const PendingCall& call) {
    switch (event.Of()) {
    case Entry::BufferOpsClose:
        CloseTable(mBufferOps, call);
        break;
    case Entry::BufferManagerCreate:
        mManagers.Adopt(event.Result(), Manager{});
        break;
    case Entry::BufferManagerDestroy:
        mManagers.FinishEnd(call, true);
        break;
    case Entry::GetImageBuffer: {
        Image image;
        image.manager = event.Word(0);
        mImages.Adopt(event.Result(), image);
        break;
    }
    case Entry::ReleaseImageBuffer:
        mImages.FinishEnd(call, true);
        break;
    default:
        break;
    }
}

void VendorRules::CheckManager(const Event& event) {
    mBufferOps.Require(event.Word(0));
    const auto* data = event.At<ChiBufferManagerCreateData>(event.Word(2));
    if (!mChecks.Check(Rule::ManagerRecord, event.Word(1) != 0 && event.Word(2) != 0,
                       "the name or the create record is null") ||
        data == nullptr) {
        return;
    }
    mChecks.Expect(Rule::ManagerRecord, "the word at 16", data->reserved16, uint64_t{0x40002});
    mChecks.Expect(Rule::ManagerRecord, "the word at 24", data->reserved24, uint64_t{0x20022});
    mChecks.Expect(Rule::ManagerRecord, "the word at 40", data->reserved40, 32U);
    mChecks.Expect(Rule::ManagerRecord, "the word at 48", data->reserved48, 1U);
    mChecks.Expect(Rule::ManagerRecord, "the word at 52", data->reserved52, 5U);
    mChecks.Expect(Rule::ManagerRecord, "a word at 12, 32, 36 or 44",
                   data->reserved12 | data->reserved32 | data->reserved36 | data->reserved44, 0U);
}

/// Image buffers that outlive their manager go with it, against the contract.
void VendorRules::DestroyManager(uint64_t manager, PendingCall& call) {
    mManagers.BeginEnd(manager, call);
    std::vector<uint64_t> left;
    for (const auto& [handle, image] : mImages.All()) {
        if (image.manager == manager && !image.isGoing) {
            left.push_back(handle);
        }
    }
    for (const uint64_t handle : left) {
        mImages.Remove(handle);
    }
    mChecks.Expect(Rule::ImageReleased, "the number of image buffers left", left.size(), size_t{0});
}

} // namespace contract
