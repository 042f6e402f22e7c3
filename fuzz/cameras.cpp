/// The host's cameras with their images and metadata, and the calls that need no camera.

#include "fuzz/scene.h"

#include <algorithm>
#include <cstring>

namespace fuzz {

Camera& Scene::PickCamera() {
    Camera& camera = Pick(cameras);
    if (!camera.exists) {
        Trace("Create %u", camera.id);
        PlatformIntContext(&camera.slots, camera.id);
        model.Create(camera);
        Check(camera.slots.Create(&camera.slots, camera.id) != nullptr, "there is no camera");
    }
    return camera;
}

namespace {

void* GetImage(Scene& scene, Camera& camera, size_t stream) {
    const bool comes = scene.model.GetImage(camera, g_inputs[stream], stream < kImages);
    void* const image = camera.slots.GetImageBuffer(&camera.slots, &g_inputs[stream]);
    Expect("the presence of an image", image != nullptr, comes);
    if (image != nullptr) {
        camera.images.push_back({image, stream});
    }
    return image;
}

void ReleaseImage(Scene& scene, Camera& camera) {
    const Image image = scene.Take(camera.images);
    scene.model.ReleaseImage(camera, g_inputs[image.stream]);
    camera.slots.ReleaseImageBuffer(&camera.slots, image.handle);
}

/// A host that is careful gives its images back first.
void TearDown(Scene& scene, Camera& camera) {
    const bool isCareful = !scene.Flag();
    StandinControl()->SetTracePoints(scene.Flag());
    Trace("TearDown %u, careful %d", camera.id, isCareful);
    while (isCareful && !camera.images.empty()) {
        ReleaseImage(scene, camera);
    }
    camera.images.clear();
    scene.model.TearDown(camera);
    camera.slots.TearDownResource(&camera.slots);
    Expect("the number of open sections", g_platform.openSections, 0);
}

} // namespace

void* ImageFor(Scene& scene, Camera& camera, size_t stream) {
    const auto known =
        std::find_if(camera.images.begin(), camera.images.end(),
                     [stream](const Image& image) { return image.stream == stream; });
    return known != camera.images.end() ? known->handle : GetImage(scene, camera, stream);
}

void Destroy(Scene& scene, Camera& camera) {
    TearDown(scene, camera);
    Trace("Destroy %u", camera.id);
    scene.model.Destroy(camera);
    Expect("what Destroy returns", camera.slots.Destroy(&camera.slots), 0);
}

void DestroyStep(Scene& scene) { Destroy(scene, scene.PickCamera()); }

void TearDownStep(Scene& scene) { TearDown(scene, scene.PickCamera()); }

void FlushStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    Trace("Flush %u", camera.id);
    scene.model.Flush(camera);
    camera.slots.Flush(&camera.slots);
}

void ImageStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    void* const image = GetImage(scene, camera, scene.Below(std::size(kInputs)));
    if (image != nullptr) {
        const bool isThere = scene.model.Buffers(camera, Entry::GetCPUAddress);
        void* const address = camera.slots.GetCPUAddress(&camera.slots, image);
        Expect("the presence of memory", address != nullptr, isThere);
    }
}

void ReleaseImageStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    if (!camera.images.empty()) {
        ReleaseImage(scene, camera);
    }
}

void TranslateStep(Scene& scene) {
    PlatFormIntCallbacks* const table = &scene.PickCamera().slots;
    const camera3_stream_buffer source{
        .stream = &g_outputs[0], .buffer = &g_handle, .status = scene.Byte()};
    ChiStreamBuffer chi{};
    camera3_stream_buffer back{};
    const Answered to = scene.model.Interface(Entry::TranslateToChiBuffer);
    const Answered from = scene.model.Interface(Entry::TranslateFromChiBuffer);
    Expect("the status of a translation to the vendor",
           table->TranslateToBuffer(table, &source, &chi), to.status);
    Expect("the status of a translation from the vendor",
           table->TranslateFromBuffer(table, &chi, &back), from.status);
    Check(!to.works || !from.works ||
              (back.stream == source.stream && back.buffer == source.buffer &&
               back.status == source.status),
          "a buffer comes back as another one");
}

/// For ids without camera, and for such as no camera can have, too.
void NoCameraStep(Scene& scene) {
    constexpr uint32_t kIds[] = {0, 7, 15, 1, 16, UINT32_MAX};
    PlatFormIntCallbacks table{};
    PlatformIntContext(&table, scene.Pick(kIds));
    PlatFormIntCallbacks* const argument = scene.Flag() ? &table : nullptr;
    table.ProcRequest(argument);
    Check(table.GetNCSCallback(argument) != nullptr && table.GetHWCallback(argument) != nullptr &&
              table.GetPerfCallback(argument) != nullptr,
          "the camera module has a function less");
    const auto statusOf = [&](Entry entry) { return scene.model.Call(entry).value_or(0); };
    int settings = 0;
    void* result = nullptr;
    const uint32_t status = statusOf(Entry::CreateSensorInitSettings);
    Expect("the status of the sensor's settings",
           static_cast<uint32_t>(table.CreateSensorInitSettings(argument, settings, 77)), status);
    Expect("the sensor's settings", settings, status == 0 ? 77 : 0);
    Expect("the status of the modes", table.EnumerateSensorModes(1, 2, nullptr),
           statusOf(Entry::EnumerateSensorModes));
    Expect("the status of the extension", table.ExtensionProcessResultMeta(1, &result),
           statusOf(Entry::ExtensionProcessResultMeta));
}

// --- Metadata, in the vendor's form and in Android's --------------------------------------------

namespace {

/// What was made is there if it must come, and then is alive.
void* Made(void* made, bool comes, size_t& alive, const char* what) {
    Expect(what, made != nullptr, comes);
    alive += comes ? 1 : 0;
    return made;
}

} // namespace

void* CreateWithUsage(Scene& scene, Camera& camera) {
    const bool comes = scene.model.Metadata(camera, Entry::MetadataCreateWithUsage);
    const uint32_t tags[] = {1, 2};
    return Made(camera.slots.CreateWithUsage(&camera.slots, tags, 2, scene.Byte()), comes,
                scene.model.alive.metadata, "the presence of metadata");
}

void MakeStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    void* made = nullptr;
    if (scene.Flag()) {
        made = CreateWithUsage(scene, camera);
    } else {
        // Android metadata that the vendor made, or the host, or none.
        void* const sources[] = {nullptr, g_memory,
                                 scene.android.empty() ? nullptr : scene.android[0]};
        void* const source = scene.Pick(sources);
        const bool comes =
            source != nullptr && scene.model.Metadata(camera, Entry::MetadataCreateFromAndroid);
        made = Made(camera.slots.CreateByAndroidMetadata(&camera.slots, source), comes,
                    scene.model.alive.metadata, "the presence of metadata from Android");
    }
    if (made != nullptr) {
        scene.metadata.push_back(made);
    }
}

void ReleaseAndroidStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    void* const object = scene.android.empty() ? nullptr : scene.Take(scene.android);
    // The presence of the one entry decides for the other.
    const bool isAsked = object != nullptr && scene.model.Has(Entry::MetadataCreateFromAndroid);
    const Answered answered =
        scene.model.Ask(isAsked && camera.hasMetadata, Entry::MetadataReleaseAndroid);
    scene.model.alive.androidMetadata -= answered.works ? 1 : 0;
    Expect("the status of a release", camera.slots.ReleaseAndroidMetadata(&camera.slots, object),
           answered.status);
}

/// An object from hand to hand, and its end.
void MetadataStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    if (scene.metadata.empty()) {
        return;
    }
    Model& model = scene.model;
    PlatFormIntCallbacks* const table = &camera.slots;
    void* const object = scene.Take(scene.metadata);
    const std::vector<uint8_t> value(1 + scene.Below(8), scene.Byte());
    // A new one each time: an object made from Android metadata has the tags that were left in it.
    const uint32_t tag = ++scene.lastTag;
    const Answered set = model.Metadata(camera, Entry::MetadataSetTag);
    Expect("the status of writing a tag",
           table->SetTag(table, object, tag, value.data(), uint32_t(value.size()), 0), set.status);
    Expect("the status of a copy", table->Copy(table, object, object, 0),
           model.Metadata(camera, Entry::MetadataCopy).status);
    const bool isThere = model.Metadata(camera, Entry::MetadataGetTag).works && set.works;
    uint32_t size = 0;
    const void* const data = table->GetTag(table, object, tag, &size, scene.Byte());
    Expect("a tag's size", size, isThere ? value.size() : 0);
    Check(isThere ? std::memcmp(data, value.data(), size) == 0 : data == nullptr,
          "a tag has another value");
    const Answered deleted = model.Metadata(camera, Entry::MetadataDeleteTag);
    Expect("the status of removing a tag", table->DeleteTag(table, object, tag),
           deleted.works && !set.works ? 1 : deleted.status);
    const bool comes = model.Metadata(camera, Entry::MetadataCreateAndroid);
    void* const made = Made(table->CreateAndroidMetadata(table, object, scene.Byte(), nullptr),
                            comes, model.alive.androidMetadata, "the presence of Android metadata");
    if (made != nullptr) {
        scene.android.push_back(made);
    }
    const Answered destroyed = model.Metadata(camera, Entry::MetadataDestroy);
    model.alive.metadata -= destroyed.works ? 1 : 0;
    Expect("the status of a destruction", table->MetadataDestroy(table, object), destroyed.status);
}

} // namespace fuzz
