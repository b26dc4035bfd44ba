#pragma once

// The key list of a wire record: for each JSON key, the record property it is read from (requests) or written to
// (replies), in the order the encoder inserts or the decoder reads them. Every record of the protocol has exactly
// one key list, a specialisation of KeyList<Record> in QueryKeys.h, ResponseKeys.h or SharedTransferKeys.h, and the
// one generic encoder and decoder of WireCodec.h work from it, so that the keys can be checked by reading tables.

#include <string_view>

namespace messages {

template<typename Record, typename Property>
struct Key {
    std::string_view key;
    Property Record::*property;
};

template<typename Record, typename Property>
Key(std::string_view, Property Record::*) -> Key<Record, Property>;

// Specialised once per record with one member, `static constexpr std::tuple keys { Key { ... }, ... }`.
template<typename Record>
struct KeyList;

}
