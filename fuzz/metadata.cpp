/// Metadata, in the vendor's form and in Android's.

#include "fuzz/scene.h"

#include <cstring>

namespace fuzz {

namespace {

/// What was made is there if it must come, and then is alive.
void* Made(void* made, bool comes, size_t& alive, const char* what) {
    Expect(what, made != nullptr, comes);
    alive += comes ? 1 : 0;
    return made;
}

} // namespace

void* CreateWithUsage(Scene& scene, HostCamera& camera) {
    const bool comes = scene.model.Metadata(camera, Entry::MetadataCreateWithUsage);
    const uint32_t tags[] = {1, 2};
    return Made(camera.slots.CreateWithUsage(&camera.slots, tags, 2, scene.Byte()), comes,
                scene.model.alive.metadata, "the presence of metadata");
}

void MakeStep(Scene& scene) {
    HostCamera& camera = scene.PickCamera();
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
    HostCamera& camera = scene.PickCamera();
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
    HostCamera& camera = scene.PickCamera();
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
