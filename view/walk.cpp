/// The one place that knows how events hold what their fields describe.
#include "view/walk.h"

#include <algorithm>

namespace view {
namespace {

using contract::Event;
using contract::Field;
using contract::Kind;
using contract::Object;
using contract::Record;

constexpr Field kNumber{.name = "", .kind = Kind::Number, .size = sizeof(uint32_t)};
constexpr Field kSigned{.name = "", .kind = Kind::Signed, .size = sizeof(int32_t)};
constexpr Field kBytes{.name = "", .kind = Kind::Word, .size = 1};
/// All rows of pointers are streams'.
constexpr Field kStream{
    .name = "", .kind = Kind::Object, .object = Object::Stream, .record = Record::Stream};

uint64_t WordAt(const std::byte* place, const Field& field) {
    uint64_t word = 0;
    std::memcpy(&word, place, std::min<size_t>(field.size, sizeof word));
    if (field.kind == Kind::Signed && field.size < sizeof word) {
        const unsigned unused = 8U * static_cast<unsigned>(sizeof word - field.size);
        word = static_cast<uint64_t>(static_cast<int64_t>(word << unused) >> unused);
    }
    return word;
}

class Walker {
  public:
    Walker(const Event& event, std::span<const Name> names, Visitor& visitor)
        : mEvent(event), mNames(names), mVisitor(visitor) {}

    void Arguments() {
        const contract::EntryText& text = mEvent.Text();
        for (size_t i = 0; i < text.arguments.size(); ++i) {
            const Field& field = text.arguments[i];
            // What a call fills is not yet in it.
            One({.field = &field, .word = mEvent.Word(i)}, !field.isOut || !mEvent.IsCall());
        }
        if (!mEvent.IsCall() && text.result != nullptr) {
            One({.field = text.result, .word = mEvent.Result()}, true);
        }
    }

  private:
    /// A value, and what is behind it.
    void One(Value value, bool goesOn) {
        const Field& field = *value.field;
        if (field.kind == Kind::Text) {
            value.text = mEvent.TextAt(value.word);
        } else if (field.kind == Kind::TextObject) {
            value.text = mEvent.TextAt(value.place);
        } else if (field.kind == Kind::Object && mNext < mNames.size()) {
            value.name = mNames[mNext++];
        }
        mVisitor.OnValue(value);
        const bool isList = field.kind == Kind::Pointers;
        const Record record = isList ? Record::Pointers : field.record;
        const uint64_t address = isList ? value.place : value.word;
        if (goesOn && record != Record::None && address != 0) {
            Behind(value, record, address);
        }
    }

    void Behind(const Value& value, Record record, uint64_t address) {
        const auto bytes = mEvent.Find(record, address);
        if (bytes.empty()) {
            return;
        }
        if (IsPlainRow(record)) {
            mVisitor.OnRecord(value, 0, 1);
            Row(record, bytes, address);
            mVisitor.OnEnd();
            return;
        }
        const contract::RecordText& text = TextOf(record);
        const size_t count = bytes.size() / text.size;
        for (size_t i = 0; i < count; ++i) {
            mVisitor.OnRecord(value, i, count);
            for (const Field& member : text.members) {
                Member(member, bytes.data() + i * text.size, address + i * text.size);
            }
            mVisitor.OnEnd();
        }
    }

    void Row(Record record, std::span<const std::byte> bytes, uint64_t address) {
        if (record == Record::Bytes || record == Record::Text) {
            One({.field = &kBytes, .place = address, .bytes = bytes}, false);
            return;
        }
        const Field& field = record == Record::Pointers ? kStream
                             : record == Record::Signed ? kSigned
                                                        : kNumber;
        Each(field, bytes.data(), address, bytes.size() / field.size);
    }

    void Each(const Field& field, const std::byte* place, uint64_t address, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            One({.field = &field,
                 .isInRow = true,
                 .index = i,
                 .word = WordAt(place + i * field.size, field),
                 .place = address + i * field.size},
                true);
        }
    }

    void Member(const Field& field, const std::byte* record, uint64_t address) {
        const std::byte* const place = record + field.offset;
        size_t count = field.count;
        if (field.count > 1 || field.isReserved) {
            while (count > 0 && WordAt(place + (count - 1) * field.size, field) == 0) {
                --count;
            }
        }
        if (field.count > 1) {
            Each(field, place, address + field.offset, count);
        } else if (count > 0) {
            const bool isInPlace = field.kind == Kind::TextObject || field.kind == Kind::Pointers;
            One({.field = &field,
                 .word = isInPlace ? 0 : WordAt(place, field),
                 .place = address + field.offset},
                true);
        }
    }

    const Event& mEvent;
    const std::span<const Name> mNames;
    Visitor& mVisitor;
    size_t mNext = 0; ///< Of the names.
};

} // namespace

Visitor::~Visitor() = default;

bool IsPlainRow(Record record) { return record != Record::None && TextOf(record).members.empty(); }

void Walk(const Event& event, std::span<const Name> names, Visitor& visitor) {
    Walker(event, names, visitor).Arguments();
}

} // namespace view
