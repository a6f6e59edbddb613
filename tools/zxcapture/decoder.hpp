// Filters and decodes frames with the frame engine, zxframe.
#pragma once

#include <array>
#include <memory>
#include <string>

#include "frame.hpp"
#include "layers.hpp"
#include "options.hpp"
#include "zxframe.h"

namespace capture {

class Decoder {
public:
    explicit Decoder(const Wanted& wanted);

    // True if the frame passes. Then record() and layers() describe it.
    bool passes(const Frame& frame);

    [[nodiscard]] const ether_ctt& record() const { return filter_->frame; }
    [[nodiscard]] const Layers& layers() const { return layers_; }

    // The engine logs the fields of the frame that passed last, as far as they were captured.
    void dump(const Frame& frame);

    // Bytes of the payload that were captured of the frame that passed last.
    [[nodiscard]] std::size_t captured_payload(const Frame& frame) const;

private:
    [[nodiscard]] bool has_exact_addresses() const;
    void decode_ipv6();
    void dump_captured_headers();
    void copy_payload(const Frame& frame);

    const Wanted wanted_;
    const std::string texts_[6];        // the filter points to them
    Depth needed_depth_ = Depth::none;  // the innermost header that a filter needs
    bool filters_ports_only_ = false;
    std::unique_ptr<frame_filter_ctt> filter_;            // its record is used for every frame
    std::array<std::uint8_t, ZXFRAME_READABLE> start_{};  // the start of a frame, then zeros
    Layers layers_;
};

}  // namespace capture
