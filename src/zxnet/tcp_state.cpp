#include "zxnet.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <array>
#include <cstring>
#include <string_view>

#include "internal/fixed_text.hpp"
#include "zxnet/messages.hpp"

namespace {

constexpr char kUnanswered[] = "getsockopt TCP_INFO failed";

// The texts of the TCP states. The first one is for numbers that are no state.
constexpr std::array<std::string_view, 12> tcpstate_text = {
    "tcpstate (?):unkonw",
    "tcpstate (1-established):all is ok(client-state,server-state )",
    "tcpstate (2-syn_send):syn is send(client-state when send connect request)",
    "tcpstate (3-syn_recv):syn is received(server-state when received connect request)",
    "tcpstate (4-fin_wait1):fin is first-send(client-state,server-state when  first-sendfin pkt)",
    "tcpstate (5-fin_wait2):fin is first-acked(client-state,server-state when first-recv fin-ack "
    "pkt)",
    "tcpstate (6-time_wait):",
    "tcpstate (7-close):",
    "tcpstate (8-close_wait):",
    "tcpstate (9-last_ack):",
    "tcpstate (10-listen):",
    "tcpstate (11-closing):",
};
static_assert(tcpstate_text[5].size() + 1 == ZXNET_TCP_STATE_TEXT_SIZE);
static_assert(sizeof kUnanswered <= ZXNET_TCP_STATE_TEXT_SIZE);
static_assert(sizeof(tcp_info) <= ZXNET_TCP_INFO_SIZE);

char* put_text(std::uint32_t state, char* out) {
    const std::string_view text = tcpstate_text[state < tcpstate_text.size() ? state : 0];
    std::memset(out, 0, zx::kClearedSize);
    std::memcpy(out, text.data(), text.size() + 1);
    return out;
}

}  // namespace

extern "C" int32_t zxnet_api_isTcpStateOK(int fd, void* info, char* text) {
    std::uint8_t own_info[ZXNET_TCP_INFO_SIZE];
    char own_text[ZXNET_TCP_STATE_TEXT_SIZE];
    auto* const answer = info != nullptr ? static_cast<std::uint8_t*>(info) : own_info;
    std::memset(answer, 0, ZXNET_TCP_INFO_SIZE);
    socklen_t size = ZXNET_TCP_INFO_SIZE;
    if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, answer, &size) < 0) {
        if (text != nullptr) {
            std::memcpy(text, kUnanswered, sizeof kUnanswered);
        }
        ZX_LOG(error, "getsockopt TCP_INFO failed");
        return 0;
    }
    const std::uint8_t state = answer[0];
    if (state == TCP_ESTABLISHED) {
        return 1;
    }
    const char* const described = put_text(state, text != nullptr ? text : own_text);
    ZX_LOG(warning, "The TCP connection is abnormal %s", described);
    return 0;
}

extern "C" char* zxnet_api_getTcpStateString(uint32_t state, char* out) {
    return ZX_ARE_GIVEN({out, "out"}) ? put_text(state, out) : nullptr;
}
