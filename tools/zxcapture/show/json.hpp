// Prints an object of JSON for each frame, on a line of its own.
#pragma once

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>
#include <vector>

#include "show/field_table.hpp"
#include "show/printer.hpp"

namespace capture {

// The members are the fields that the frame has, of those that are wanted, in their order. A field
// that is a list is an array. All others are numbers, true, false, or texts.
class Json : public Printer {
public:
    explicit Json(std::vector<const Field*> wanted) : wanted_(std::move(wanted)) {}

    void add(const Frame& frame, const Packet& packet, std::uint64_t number,
             Output& output) override;

private:
    void add_field(const Field& field);
    void add_value(Notation notation, const Value& value);

    const std::vector<const Field*> wanted_;
    // This writer makes no tree first: with one, an object takes five times as long.
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
    Values values_;
    std::string text_;
};

}  // namespace capture
