// The live buffers as a table of a status page.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "internal/args.hpp"
#include "internal/lock_guard.hpp"
#include "internal/log.hpp"
#include "zxmem/allocator.hpp"
#include "zxt.h"

using zx::mem::kTag;

namespace {

constexpr std::size_t kPieceSize = 1024;
constexpr std::uint32_t kMiddle = 10240;
constexpr std::uint32_t kHigh = 512000;

#define ZX_CELL(conversion) "<th align=\"left\">" conversion "</th><th align=\"left\"></th>"

// Appends to a text. Its owner made it long enough.
class Html {
public:
    explicit Html(char* text) : end_(text + std::strlen(text)) {}

    // Appends up to 1023 characters and cuts the rest.
    [[gnu::format(printf, 2, 3)]] void append(const char* fmt, ...) {
        char piece[kPieceSize];
        std::va_list args;
        va_start(args, fmt);
        std::vsnprintf(piece, sizeof piece, fmt, args);
        va_end(args);
        const std::size_t length = std::strlen(piece);
        std::memcpy(end_, piece, length + 1);
        end_ += length;
    }

private:
    char* end_;
};

const char* size_class(std::uint32_t size) {
    return size < kMiddle ? "nor" : size < kHigh ? "middle" : "high";
}

void append_row(Html& html, int number, const memnode_ctt& node) {
    char size[ZXT_UNIT_SIZE];
    html.append("<tr>");
    html.append(ZX_CELL("%08d"), number);
    html.append(ZX_CELL("%p"), node.buffer);
    html.append(ZX_CELL("%.128s"), node.name);
    html.append(ZX_CELL("%.16s"), node.time);
    html.append(ZX_CELL("%s"), size_class(node.size));
    html.append(ZX_CELL("%s"), zxt_innerapi_bit2str_64(size, node.size, 0));
    html.append(ZX_CELL("%s"), node.file);
    html.append(ZX_CELL("%d"), static_cast<int>(node.line));
    html.append("</tr>");
}

}  // namespace

extern "C" void zxmem_api_info(char* html, const char* text) {
    const bool is_tracking = zx::mem::zxmem_enable_dbg == 1;
    if (!ZX_ARE_GIVEN({html, "html"}) || (!is_tracking && !ZX_ARE_GIVEN({text, "text"}))) {
        return;
    }
    Html out(html);
    if (!is_tracking) {
        out.append("<h4 style=\"color:black;\">%s</h4>", text);
        return;
    }
    if (zx::mem::flag_init != 1) {
        out.append("<h4 style=\"color:black;\">Wait zxmem init...</h4>");
        ZX_LOG(error, "Must init  zxmem_zxlock_ctt  furst");
        return;
    }

    out.append("<table cellpadding=\"4\" cellspacing=\"0\">");
    out.append("<tbody style=\"color:black;\">");
    // Deliberate: the last cell is not closed.
    out.append("<tr>" ZX_CELL("NUM") ZX_CELL("ADDR") ZX_CELL("NAME") ZX_CELL("TIME") ZX_CELL("FALG")
                   ZX_CELL("SIZE") ZX_CELL("FILE") ZX_CELL("LINE") "<th align=\"left\"></tr>");
    std::uint64_t total = 0;
    {
        const zx::LockGuard guard(zx::mem::zxmem_zxlock_ctt, __func__, __LINE__);
        int number = 0;
        for (const memnode_ctt* node = zx::mem::first_memnode_ctt; node != nullptr;
             node = node->next) {
            append_row(out, ++number, *node);
            total += node->size;
        }
    }
    char size[ZXT_UNIT_SIZE];
    out.append("<h4 style=\"color:black;\">Toal memory leak:%s MB</h4>",
               zxt_innerapi_bit2str_64(size, total, 0));
    out.append("</tbody>");
    out.append("</table>");
}
