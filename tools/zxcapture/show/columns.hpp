// Prints the fields that are wanted as columns: a line for each frame, with tabs in between.
#pragma once

#include <string>
#include <vector>

#include "show/field_table.hpp"
#include "show/printer.hpp"

namespace capture {

// A column is empty when the frame does not have the field. The values of a list have commas in
// between.
class Columns : public Printer {
public:
    explicit Columns(std::vector<const Field*> wanted) : wanted_(std::move(wanted)) {}

    void add(const Frame& frame, const Packet& packet, std::uint64_t number,
             Output& output) override;

private:
    void add_column(const Field& field, const Headers& headers);

    const std::vector<const Field*> wanted_;
    Values values_;
    std::string line_;
};

}  // namespace capture
