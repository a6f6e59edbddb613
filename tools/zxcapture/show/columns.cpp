#include "show/columns.hpp"

namespace capture {

void Columns::add(const Frame& frame, const Packet& packet, std::uint64_t number, Output& output) {
    const Headers headers(frame, packet, number);
    line_.clear();
    for (const Field* const field : wanted_) {
        add_column(*field, headers);
        line_ += '\t';
    }
    line_.back() = '\n';
    output.add(line_);
}

void Columns::add_column(const Field& field, const Headers& headers) {
    values_.clear();
    if (headers.has(field.layer)) {
        field.read(headers, values_);
    }
    for (std::size_t i = 0; i < values_.size(); ++i) {
        if (i > 0) {
            line_ += ',';
        }
        append_value(line_, field.notation, values_[i]);
    }
}

}  // namespace capture
