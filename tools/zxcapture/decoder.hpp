// Filters and decodes frames with the engine.
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

    // Whether the frame passes; if so, record() and layers() are those of it.
    bool passes(const Frame& frame);

    [[nodiscard]] const ether_ctt& record() const { return filter_->frame; }
    [[nodiscard]] const Layers& layers() const { return layers_; }

    // Has the engine log the fields of the frame that passed last, as far as they are there.
    void dump(const Frame& frame);

    // Bytes of the payload that the frame, which passed last, has of its packet.
    [[nodiscard]] std::size_t payload_there(const Frame& frame) const;

private:
    [[nodiscard]] bool has_exact_addresses() const;
    void decode_ipv6();
    void dump_what_is_there();
    void provide_payload(const Frame& frame);

    const Wanted wanted_;
    const std::string texts_[6];  // what the filter points to
    Depth needed_ = Depth::none;  // by what is filtered
    bool ports_alone_ = false;
    std::unique_ptr<frame_filter_ctt> filter_;            // its record is the one of every frame
    std::array<std::uint8_t, ZXFRAME_READABLE> start_{};  // of the frame, with zeros behind it
    Layers layers_;
};

}  // namespace capture
