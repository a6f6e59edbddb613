#include "show/json.hpp"

namespace capture {
namespace {

rapidjson::SizeType size_of(std::string_view text) {
    return static_cast<rapidjson::SizeType>(text.size());
}

}  // namespace

void Json::add(const Frame& frame, const Packet& packet, std::uint64_t number, Output& output) {
    const Headers headers(frame, packet, number);
    buffer_.Clear();
    writer_.Reset(buffer_);
    writer_.StartObject();
    for (const Field* const field : wanted_) {
        values_.clear();
        if (headers.has(field->layer)) {
            field->read(headers, values_);
        }
        if (!values_.empty()) {
            add_field(*field);
        }
    }
    writer_.EndObject();
    buffer_.Put('\n');
    output.add({buffer_.GetString(), buffer_.GetSize()});
}

void Json::add_field(const Field& field) {
    writer_.Key(field.name.data(), size_of(field.name));
    if (!field.is_list) {
        add_value(field.notation, values_.front());
        return;
    }
    writer_.StartArray();
    for (const Value& value : values_) {
        add_value(field.notation, value);
    }
    writer_.EndArray();
}

void Json::add_value(Notation notation, const Value& value) {
    text_.clear();
    switch (notation) {
        case Notation::flag:
            writer_.Bool(value.number != 0);
            break;
        case Notation::time:
            append_value(text_, notation, value);
            writer_.RawValue(text_.data(), text_.size(), rapidjson::kNumberType);
            break;
        case Notation::flaw:
        case Notation::mac:
        case Notation::ipv4:
        case Notation::ipv6:
            append_value(text_, notation, value);
            writer_.String(text_.data(), size_of(text_));
            break;
        default:
            writer_.Uint64(value.number);
    }
}

}  // namespace capture
