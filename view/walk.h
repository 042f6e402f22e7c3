/// Goes over the values of an event: its arguments, what it returns, and the members of the records
/// behind them, wherever the event has those.
#pragma once

#include "contract/event.h"

#include <span>
#include <string_view>

namespace view {

/// An object as views name it: the serial within its kind, 0 for none.
struct Name {
    contract::Object object = contract::Object::None;
    uint32_t serial = 0;

    bool operator==(const Name&) const = default;
};

/// An argument, a result, a member of a record, or one of several such in a row.
struct Value {
    const contract::Field* field;
    bool isInRow = false;             ///< One of an array, or of plain values in a row.
    size_t index = 0;                 ///< Among them.
    uint64_t word = 0;                ///< A number, or an address. Negative ones are the full word.
    uint64_t place = 0;               ///< Where it lay; 0 for an argument or a result.
    Name name;                        ///< Of an object, where the walk knows the names.
    std::string_view text;            ///< Of a text, as far as it is recorded.
    std::span<const std::byte> bytes; ///< Of a row of bytes, which is one value.
};

/// Is told of each value in its order. The values are valid during the call alone.
class Visitor {
  public:
    Visitor() = default;
    Visitor(const Visitor&) = default;
    Visitor& operator=(const Visitor&) = default;
    virtual ~Visitor();
    virtual void OnValue(const Value& value) = 0;
    /// What follows until `OnEnd` lies behind this value: the members of the record `index` of
    /// `count` in a row, or plain values in a row, which have the index 0 of 1.
    virtual void OnRecord(const Value& /*value*/, size_t /*index*/, size_t /*count*/) {}
    virtual void OnEnd() {}
};

/// What says nothing is left out: reserved words that are 0, and the zeros at an array's end.
/// \param names of the event's objects in the walk's order (see Serials); may be empty.
void Walk(const contract::Event& event, std::span<const Name> names, Visitor& visitor);

/// Whether what is behind a value lies in a row as plain numbers, bytes or texts.
bool IsPlainRow(contract::Record record);

} // namespace view
