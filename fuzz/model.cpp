/// What must happen, call by call, and the comparison with what did.
#include "fuzz/model.h"

#include "adapterlayer/qcomadaptee.h"
#include "fuzz/check.h"

#include <algorithm>
#include <utility>

namespace fuzz {

namespace {

/// What a session has for each of its inputs is as large, for six of them, as one format record.
size_t AsFormats(const Session& session) {
    using Info = OemLayer::QcomAdaptee::StreamPrivateInfo;
    return session.inputs.size() * sizeof(Info) == sizeof(ChiInputFormat) ? 1 : 0;
}

Camera::Identity IdentityOf(const Request& request) {
    const auto& identity = request.wrapper.identity;
    return {identity.pOutStream, identity.cameraId, identity.featureName};
}

const Camera::Chain* FindChain(const Camera& camera, const Camera::Identity& identity) {
    for (const auto& [stream, chains] : camera.chains) {
        for (const Camera::Chain& chain : chains) {
            if (chain.first == identity) {
                return &chain;
            }
        }
    }
    return nullptr;
}

bool IsRaw(const camera3_stream* stream) {
    return stream->format == HAL_PIXEL_FORMAT_RAW10 || stream->format == HAL_PIXEL_FORMAT_RAW16;
}

/// What a request to the session feeds in each set. The output's record is the host's own, and is
/// fed, too, where the host has made an input of it.
std::vector<const camera3_stream*> FedStreams(const Session& session, const Request& request) {
    std::vector<const camera3_stream*> fed;
    if (!session.isListed) {
        return fed;
    }
    for (const camera3_stream& input : session.inputs) {
        fed.push_back(&input);
    }
    if (session.pOutput->stream_type == CAMERA3_STREAM_INPUT) {
        fed.push_back(session.pOutput);
    }
    std::erase_if(fed, [&](const camera3_stream* stream) {
        const bool isYuv = stream->format == HAL_PIXEL_FORMAT_YCBCR_420_888;
        return !IsRaw(stream) && !(isYuv && request.wrapper.yuvInput == 1);
    });
    return fed;
}

} // namespace

Answered Model::Call(Entry entry) {
    ++calls[static_cast<size_t>(entry)];
    standin::Fault& fault = script.faults[entry];
    if (fault.times == 0) {
        return {.works = true};
    }
    const bool works = fault.wait != 0;
    --(works ? fault.wait : fault.times);
    return {works, works ? 0 : static_cast<uint32_t>(fault.result)};
}

// --- Cameras

void Model::Create(Camera& camera) {
    camera = {.id = camera.id, .slots = camera.slots, .exists = true};
    const size_t rows = Call(Entry::GetKeyCount) ? kConfigRows : 0;
    Call(Entry::GetValuesCount);
    for (size_t i = 0; i < rows && Call(Entry::GetList); ++i) {
    }
    camera.hasMetadata = Interface(Entry::OpenMetadataOps);
    camera.hasBuffers = Interface(Entry::OpenBufferOps);
    alive.metadataOps += camera.hasMetadata ? 1 : 0;
    alive.bufferOps += camera.hasBuffers ? 1 : 0;
}

void Model::Destroy(Camera& camera) {
    TearDown(camera);
    Flush(camera);
    alive.metadataOps -= Metadata(camera, Entry::MetadataOpsClose) ? 1 : 0;
    alive.bufferOps -= Buffers(camera, Entry::BufferOpsClose) ? 1 : 0;
    Lose(&camera);
    left.sessions += camera.hasZeroRecord ? 1 : 0;
    camera.exists = false;
}

/// Requests that are never heard of again: those of a session, or those of a camera.
void Model::Lose(const void* owner) {
    for (Request& request : requests) {
        if (request.state == Request::InFlight &&
            (request.session == owner || request.camera == owner)) {
            request.state = Request::Free;
        }
    }
}

void Model::Flush(Camera& camera) {
    for (const auto& [stream, chains] : camera.chains) {
        for (const auto& [identity, session] : chains) {
            Close(camera, session);
        }
    }
    camera.chains.clear();
}

void Model::Close(Camera& camera, Session* session) {
    if (session == nullptr) {
        camera.hasZeroRecord = camera.hasZeroRecord && !HasInterface(Entry::CloseSession);
    } else if (Interface(Entry::CloseSession)) {
        --alive.sessions;
        --left.sessions;
        left.formats -= AsFormats(*session);
        Lose(session);
        std::erase_if(camera.links, [session](const auto& link) { return link.second == session; });
    }
}

/// Images that go may be those of any request in flight.
void Model::TakeImages() {
    for (const Request& request : requests) {
        Breaks(Rule::ImageAlive, request.state == Request::InFlight);
    }
}

void Model::TearDown(Camera& camera) {
    TakeImages();
    for (const auto& [stream, manager] : camera.managers) {
        // The call is what breaks the rule, whether or not the device heeds it.
        Breaks(Rule::ImageReleased, manager.images != 0);
        if (Buffers(camera, Entry::BufferManagerDestroy) && manager.isThere) {
            --alive.bufferManagers;
            alive.imageBuffers -= manager.images;
        }
    }
    camera.managers.clear();
}

bool Model::GetImage(Camera& camera, const camera3_stream& stream, bool isImage) {
    auto known = camera.managers.find(&stream);
    if (known == camera.managers.end() && camera.hasBuffers && Has(Entry::BufferManagerCreate)) {
        known = camera.managers.emplace(&stream, Camera::Manager{}).first;
        known->second.isThere = Call(Entry::BufferManagerCreate);
        alive.bufferManagers += known->second.isThere ? 1 : 0;
    }
    if (!Buffers(camera, Entry::GetImageBuffer) || !isImage || known == camera.managers.end() ||
        !known->second.isThere) {
        return false;
    }
    ++alive.imageBuffers;
    ++known->second.images;
    return true;
}

void Model::ReleaseImage(Camera& camera, const camera3_stream& stream) {
    TakeImages();
    if (Buffers(camera, Entry::ReleaseImageBuffer)) {
        --alive.imageBuffers;
        --camera.managers.at(&stream).images;
    }
}

// --- Sessions

Session* Model::FindSession(Camera& camera, const Request& request) {
    // A new stream has two attempts.
    const Camera::Identity identity = IdentityOf(request);
    const bool isNew = !camera.chains.contains(request.wrapper.identity.pOutStream);
    for (int i = isNew ? 0 : 1; i < 2 && FindChain(camera, identity) == nullptr; ++i) {
        Generate(camera, request);
    }
    const Camera::Chain* const chain = FindChain(camera, identity);
    return chain != nullptr ? chain->second : nullptr;
}

void Model::Generate(Camera& camera, const Request& request) {
    camera3_stream* const output = request.wrapper.identity.pOutStream;
    if (output == nullptr || output->stream_type == CAMERA3_STREAM_INPUT || output->width == 0 ||
        output->height == 0) {
        return;
    }
    auto& chains = camera.chains[output];
    if (!request.hasPrivData || request.privData.inputStreams.empty()) {
        return;
    }
    Session* const session = Open(camera, request);
    if (Configure(camera, session, request)) {
        chains.emplace_back(IdentityOf(request), session);
    } else {
        ++left.chains;
    }
}

/// \returns null for handle 0.
Session* Model::Open(Camera& camera, const Request& request) {
    if (!HasInterface(Entry::OpenSession)) {
        return nullptr;
    }
    if (!Call(Entry::OpenSession)) {
        left.sessions += camera.hasZeroRecord ? 1 : 0; // Replaced, and the vendor has it.
        camera.hasZeroRecord = true;
        return nullptr;
    }
    ++alive.sessions;
    ++left.sessions;
    Session& session = mSessions.emplace_back();
    const bool isNew = camera.links.try_emplace(IdentityOf(request), &session).second;
    return isNew ? &session : nullptr;
}

bool Model::Configure(Camera& camera, Session* session, const Request& request) {
    if (session == nullptr) {
        return HasInterface(Entry::ConfigureStreams);
    }
    session->isListed = true;
    for (const camera3_stream* stream : request.privData.inputStreams) {
        session->inputs.push_back(*stream);
        session->isListed = session->isListed && stream->stream_type == CAMERA3_STREAM_OUTPUT;
    }
    left.formats += AsFormats(*session);
    session->pOutput = request.wrapper.identity.pOutStream;
    const bool hasSettings = Metadata(camera, Entry::MetadataCreateFromAndroid);
    alive.metadata += hasSettings ? 1 : 0;
    Breaks(Rule::SessionSettings, !hasSettings);
    Breaks(Rule::StreamTypes,
           session->isListed && session->pOutput->stream_type != CAMERA3_STREAM_OUTPUT);
    const bool succeeds = Interface(Entry::ConfigureStreams);
    // Else they are kept until a close that never comes.
    if (succeeds && hasSettings && Metadata(camera, Entry::MetadataDestroy)) {
        --alive.metadata;
    }
    return succeeds;
}

// --- Submission

Request* Model::NewRequest(Camera& camera) {
    for (Request& request : requests) {
        if (request.state == Request::Free) {
            request = {.camera = &camera, .state = Request::Reserved};
            request.privData.owner = &request;
            return &request;
        }
    }
    return nullptr;
}

uint32_t Model::Submit(Request& request) {
    request.status = Start(request);
    if (request.status != 0) {
        request.state = Request::Free;
    }
    return request.status;
}

uint32_t Model::Start(Request& request) {
    Camera& camera = *request.camera;
    if (!request.hasWrapper) {
        return 4;
    }
    camera.table = request.table;
    camera.framework = request.framework;
    if (request.wrapper.numBuffers > OemLayer::kMaxInputSets) {
        return 4;
    }
    if (request.hasOutput && Interface(Entry::TranslateToChiBuffer)) {
        request.buffer = {static_cast<uint32_t>(request.output.status),
                          request.output.stream != nullptr};
    }
    Session* const session = FindSession(camera, request);
    if (!request.hasPrivData) {
        ++left.buffers;
        return 4;
    }
    if (session == nullptr || !Feed(*session, request)) {
        return 4;
    }
    request.metadata =
        Metadata(camera, Entry::MetadataCreate) ? Request::Alive : Request::NoMetadata;
    alive.metadata += request.metadata == Request::Alive ? 1 : 0;
    Tolerate(*session, request);
    if (!Interface(Entry::ExecuteRequest)) {
        return 1;
    }
    request.session = session;
    request.state = Request::InFlight;
    request.execution = mExecutions++;
    request.asks = script.asksForFrameworkBuffers;
    request.waits = script.delivery == standin::Delivery::ByHand;
    if (!request.waits) {
        Deliver(request, script.shape);
    }
    return 0;
}

/// Takes the request's records from the heap. \returns false where it has too many inputs.
bool Model::Feed(const Session& session, Request& request) {
    const auto fed = FedStreams(session, request);
    const uint32_t sets = request.wrapper.numBuffers;
    if (fed.size() * sets > OemLayer::kMaxInputBuffers) {
        return false;
    }
    request.firstIsRaw = sets != 0 && !fed.empty() && IsRaw(fed[0]) ? 1 : 0;
    request.capacity = std::max(2 * sets, static_cast<uint32_t>(fed.size()));
    ++left.requests;
    left.buffers += 1 + request.capacity;
    left.formats += static_cast<size_t>(std::count_if(fed.begin(), fed.end(), IsRaw)) * sets;
    return true;
}

/// What the vendor may object to in a request that is as the host made it.
void Model::Tolerate(const Session& session, const Request& request) {
    for (uint32_t i = 0; i < request.wrapper.numBuffers; ++i) {
        Breaks(Rule::SetMetadata, request.wrapper.pChiMetadataHandles[i] == nullptr);
    }
    for (const camera3_stream* stream : FedStreams(session, request)) {
        const camera3_stream& image = *request.pRawImage;
        const bool isOutput = stream == session.pOutput;
        Breaks(Rule::ImageAlive, !request.hasImages);
        Breaks(Rule::InputManager, !request.ownManagers);
        Breaks(Rule::Memory, isOutput || (IsRaw(stream) && (stream->format != image.format ||
                                                            stream->width != image.width ||
                                                            stream->height != image.height)));
        Breaks(Rule::InputStream, isOutput);
        Breaks(Rule::InputFormat, isOutput);
        Breaks(Rule::FilterPattern, isOutput);
    }
    Breaks(Rule::Output, request.buffer.hasStream
                             ? request.output.stream != session.pOutput
                             : request.hasOutput && request.output.stream == nullptr);
}

// --- Results

void Model::Deliver(Request& request, Shape withShape) {
    request.waits = false;
    if (request.asks && request.session->isListed) {
        AskFramework(request);
    }
    const std::vector<Buffer> one{request.buffer};
    const std::vector<Buffer> bad{{CAMERA3_BUFFER_STATUS_ERROR, request.buffer.hasStream}};
    using D = Delivered;
    const std::vector<Delivered> results[] = {
        {{.metadata = D::Output}, {.buffers = one}},
        {{.buffers = one, .partials = 1}, {.metadata = D::Output}},
        {{.buffers = one, .metadata = D::Output}},
        {{.metadata = D::Output, .partials = 2}, {.buffers = one, .partials = 1}, {}},
        {{.buffers = bad, .metadata = D::Output}},
        {{.buffers = one, .metadata = D::Output, .hasSecond = true}},
    };
    for (const Delivered& result : results[static_cast<size_t>(withShape)]) {
        Receive(request, result);
    }
}

void Model::Receive(Request& request, const Delivered& result) {
    if (!result.hasMain) {
        return;
    }
    Delivered seen = result;
    if (seen.metadata == Delivered::Output && request.metadata == Request::NoMetadata) {
        seen.metadata = Delivered::None;
    }
    if (seen.hasSecond) {
        Report(request, seen);
    }
    request.received += static_cast<uint32_t>(seen.buffers.size());
    if (!seen.buffers.empty() || seen.metadata != Delivered::None) {
        Report(request, seen);
    }
    // The request's own is destroyed by the first result with any.
    if (seen.metadata != Delivered::None && request.metadata == Request::Alive) {
        request.metadata = Request::Forgotten;
        if (Metadata(*request.camera, Entry::MetadataDestroy)) {
            request.metadata = Request::Destroyed;
            --alive.metadata;
        }
    }
    if (request.received == 1 && seen.partials == 0) {
        Complete(request, seen);
    }
}

void Model::Report(Request& request, const Delivered& result) {
    Event event{Event::Result, All, request.wrapper.rtFrameNumber};
    event.buffers.resize(std::min<size_t>(result.buffers.size(), 8));
    for (size_t i = 0; i < event.buffers.size(); ++i) {
        if (result.hasArray && Interface(Entry::TranslateFromChiBuffer)) {
            event.buffers[i] = result.buffers[i];
        }
    }
    if (result.metadata != Delivered::None) {
        event.hasMetadata = Metadata(*request.camera, Entry::MetadataCreateAndroid);
        if (result.metadata == Delivered::Output && request.metadata == Request::Destroyed) {
            broken.insert(Rule::MetadataAlive);
            event.hasMetadata = false;
        }
        alive.androidMetadata += event.hasMetadata ? 1 : 0;
    }
    event.partial = event.hasMetadata ? request.privData.partialResultBase + 255 : 0;
    if (!event.buffers.empty() || event.hasMetadata) {
        Emit(request, event);
    }
}

void Model::Complete(Request& request, const Delivered& result) {
    // The array's first buffer decides, whether it is counted or not.
    const uint32_t first = result.buffers.empty() ? result.surplus : result.buffers[0].status;
    const bool isBad = result.hasArray && first != 0;
    Emit(request, {Event::Release, All});
    // As many format records are freed as buffers came: one.
    left.formats -= request.firstIsRaw;
    left.buffers -= 1 + request.capacity;
    --left.requests;
    Emit(request, {Event::Complete, All, isBad ? 1U : 0U});
    request.state = Request::Free;
}

/// The host is told by the table that its last submission brought.
void Model::Emit(Request& request, const Event& event) {
    if (!HasCallback(request.camera->table, event.kind)) {
        return;
    }
    request.expected.push_back(event);
    request.expected.back().table = request.camera->table;
    if (request.nested != nullptr && request.nestedAt == event.kind) {
        Submit(*std::exchange(request.nested, nullptr));
    }
}

/// One buffer of the framework's takes the place of the output, where there is one.
void Model::AskFramework(Request& request) {
    if (request.camera->framework == Framework::Answers && answer.result == 0 &&
        answer.returned != 0 && answer.count != 0) {
        request.buffer = {};
        if (Interface(Entry::TranslateToChiBuffer)) {
            request.buffer = {static_cast<uint32_t>(answer.status), true};
        }
    }
}

// --- The checks

void Model::CheckRequests() {
    for (Request& request : requests) {
        const auto [seen, expected] =
            std::mismatch(request.seen.begin(), request.seen.end(), request.expected.begin(),
                          request.expected.end());
        if (seen != request.seen.end() || expected != request.expected.end()) {
            Fail("the host was told of %zu events, and must be of %zu; number %td differs",
                 request.seen.size(), request.expected.size(), seen - request.seen.begin());
        }
        if (request.returned.has_value()) {
            Expect("a submission's status", *request.returned, request.status);
            request.returned.reset();
        }
        // One whose parent is over can no longer be submitted.
        if (request.state == Request::Free && request.nested != nullptr) {
            std::exchange(request.nested, nullptr)->state = Request::Free;
        }
    }
}

void Model::CheckDevice() const {
    for (uint32_t i = 0; i < calls.size(); ++i) {
        const auto entry = static_cast<Entry>(i);
        Expect(standin::EntryName(entry), StandinControl()->CallCount(entry), calls[i]);
    }
    const standin::Alive now = StandinControl()->CountAlive();
    if (now != alive) {
        Fail("alive are %zu sessions, %zu + %zu metadata, %zu managers, %zu images, %zu + %zu "
             "tables, "
             "and must be %zu, %zu + %zu, %zu, %zu, %zu + %zu",
             now.sessions, now.metadata, now.androidMetadata, now.bufferManagers, now.imageBuffers,
             now.metadataOps, now.bufferOps, alive.sessions, alive.metadata, alive.androidMetadata,
             alive.bufferManagers, alive.imageBuffers, alive.metadataOps, alive.bufferOps);
    }
    for (const std::string& violation : StandinControl()->Violations()) {
        // What is left whenever there is no camera, `alive` has in numbers.
        const bool isLeft = violation.find(": at the end: ") != violation.npos;
        const bool isExpected = std::any_of(broken.begin(), broken.end(), [&](Rule rule) {
            return violation.starts_with(contract::TextOf(rule).number + std::string(" "));
        });
        Check(isLeft || isExpected, violation.c_str());
    }
}

void CheckHeap(const std::map<size_t, size_t>& blocks, const Left& left) {
    using OemLayer::QcomAdaptee;
    constexpr size_t kRequest = sizeof(QcomAdaptee::OfflineRequest);
    Left seen{};
    for (const auto& [size, count] : blocks) {
        if (size == sizeof(ChiInputFormat)) {
            seen.formats += count;
        } else if (size == sizeof(QcomAdaptee::PrivateSessionInfo)) {
            seen.sessions += count;
        } else if (size >= kRequest && (size - kRequest) % sizeof(ChiStreamBuffer) == 0) {
            seen.requests += count; // Such a block holds the request's input array, too.
            seen.buffers += count * ((size - kRequest) / sizeof(ChiStreamBuffer));
        } else if (size % sizeof(ChiStreamBuffer) == 0) {
            seen.buffers += count * size / sizeof(ChiStreamBuffer);
        } else if (left.sessions == 0 && left.chains == 0) {
            Fail("%zu blocks of %zu bytes stay", count, size);
        }
    }
    Expect("the number of format records that stay", seen.formats, left.formats);
    Expect("the number of session records that stay", seen.sessions, left.sessions);
    Expect("the number of requests that stay", seen.requests, left.requests);
    Expect("the number of buffer records that stay", seen.buffers, left.buffers);
}

} // namespace fuzz
