// Captures from live interfaces with libpcap, through a ring of the kernel.
#include <net/if.h>
#include <poll.h>

#include <array>

#include "common/failure.hpp"
#include "filter/expression.hpp"
#include "source/pcap.hpp"
#include "source/source.hpp"
#include "stop.hpp"

namespace capture {
namespace {

using tools::Failure;

// The kernel hands frames over at the latest after this time, or when a block of its ring is full.
// libpcap's immediate mode would hand over each frame at once, but in a ring that holds less and is
// read more often.
constexpr int kDeliveryMs = 20;

class InterfaceSource : public Source {
public:
    InterfaceSource(const Live& live, const Selection& selection);
    Got next(Frame& frame) override;
    [[nodiscard]] int link() const override { return link_; }
    [[nodiscard]] std::optional<Drops> drops() override;

private:
    void request(const Live& live, const Selection& selection);
    void activate();
    void filter(const std::string& expression);
    [[nodiscard]] bool wait() const;
    [[nodiscard]] bool is_after_stop(const timespec& time) const;
    [[noreturn]] void fail(const std::string& reason) const;

    const std::string name_;
    Pcap pcap_;
    int link_ = DLT_EN10MB;
    int descriptor_ = -1;                 // readable when there are frames; of pcap_
    bool is_gone_ = false;                // the interface; its last frames may still come
    std::optional<timespec> stopped_at_;  // when the signal was noticed
};

void check_interface(const std::string& name) {
    // libpcap also captures from other things, such as USB, which have names of their own.
    if (name != kAnyInterface && if_nametoindex(name.c_str()) == 0) {
        throw Failure("there is no network interface " + name);
    }
}

InterfaceSource::InterfaceSource(const Live& live, const Selection& selection)
    : name_(live.interface) {
    check_interface(name_);
    char reason[PCAP_ERRBUF_SIZE] = "";
    pcap_.reset(pcap_create(name_.c_str(), reason));
    if (pcap_ == nullptr) {
        fail(reason);
    }
    request(live, selection);
    activate();
    if (name_ == kAnyInterface && pcap_set_datalink(pcap_.get(), DLT_LINUX_SLL2) != 0) {
        fail(pcap_geterr(pcap_.get()));
    }
    link_ = known_link(pcap_.get(), "the interface " + name_);
    if (!selection.expression.empty()) {
        filter(selection.expression);
    }
    if (pcap_setnonblock(pcap_.get(), 1, reason) != 0) {
        fail(reason);
    }
    descriptor_ = pcap_get_selectable_fd(pcap_.get());
}

void InterfaceSource::request(const Live& live, const Selection& selection) {
    pcap_t* const pcap = pcap_.get();
    pcap_set_snaplen(pcap, static_cast<int>(selection.snapshot_length));
    pcap_set_promisc(pcap, live.promiscuous ? 1 : 0);
    pcap_set_timeout(pcap, kDeliveryMs);
    pcap_set_buffer_size(pcap, static_cast<int>(live.buffer_kib << 10U));
    if (pcap_set_tstamp_precision(pcap, PCAP_TSTAMP_PRECISION_NANO) != 0) {
        fail("it has no times with nanoseconds");
    }
}

void InterfaceSource::activate() {
    const int result = pcap_activate(pcap_.get());
    if (result == PCAP_ERROR_PERM_DENIED) {
        throw Failure("capturing from " + name_ + " needs root or the capability CAP_NET_RAW");
    }
    if (result == PCAP_ERROR_IFACE_NOT_UP) {
        throw Failure("the interface " + name_ + " is down");
    }
    const std::string reason = pcap_geterr(pcap_.get());
    if (result < 0) {
        fail(reason.empty() ? pcap_statustostr(result) : reason);
    }
    if (result > 0) {
        std::fprintf(stderr, "warning: %s\n",
                     reason.empty() ? pcap_statustostr(result) : reason.c_str());
    }
}

void InterfaceSource::filter(const std::string& expression) {
    bpf_u_int32 network = 0;
    bpf_u_int32 netmask = 0;  // also if the interface has no address
    char reason[PCAP_ERRBUF_SIZE];
    if (pcap_lookupnet(name_.c_str(), &network, &netmask, reason) != 0) {
        netmask = 0;
    }
    Expression(pcap_.get(), expression, netmask).install(pcap_.get());
}

void InterfaceSource::fail(const std::string& reason) const {
    throw Failure("cannot capture from " + name_ + ": " + reason);
}

Got InterfaceSource::next(Frame& frame) {
    for (bool has_idled = false;; has_idled = true) {
        if (stop_requested() && !stopped_at_) {
            clock_gettime(CLOCK_REALTIME, &stopped_at_.emplace());
        }
        if (has_idled && !wait()) {
            if (is_gone_) {
                throw Failure("the interface " + name_ + " has gone away");
            }
            if (stopped_at_) {
                return Got::end;
            }
        }
        pcap_pkthdr* header = nullptr;
        const u_char* bytes = nullptr;
        const int result = pcap_next_ex(pcap_.get(), &header, &bytes);
        if (result > 0) {
            frame = frame_of(*header, bytes, link_);
            return is_after_stop(frame.time) ? Got::end : Got::frame;
        }
        if (result < 0) {
            is_gone_ = name_ != kAnyInterface && if_nametoindex(name_.c_str()) == 0;
            if (!is_gone_) {
                fail(pcap_geterr(pcap_.get()));
            }
        }
        idle();
    }
}

// Returns whether there are frames. Those that arrived before a signal, or before the interface
// went away, are there after a few times the time that the kernel takes to hand them over.
bool InterfaceSource::wait() const {
    constexpr int kLastWaitMs = 4 * kDeliveryMs;
    pollfd wanted{descriptor_, POLLIN, 0};
    return poll(&wanted, 1, stopped_at_ || is_gone_ ? kLastWaitMs : kWaitMs) > 0 &&
           (wanted.revents & POLLIN) != 0;
}

bool InterfaceSource::is_after_stop(const timespec& time) const {
    return stopped_at_ &&
           (time.tv_sec > stopped_at_->tv_sec ||
            (time.tv_sec == stopped_at_->tv_sec && time.tv_nsec > stopped_at_->tv_nsec));
}

std::optional<Drops> InterfaceSource::drops() {
    pcap_stat stats{};
    if (pcap_stats(pcap_.get(), &stats) != 0) {
        return std::nullopt;
    }
    return Drops{stats.ps_drop, stats.ps_ifdrop};
}

}  // namespace

std::unique_ptr<Source> open_interface(const Live& live, const Selection& selection) {
    return std::make_unique<InterfaceSource>(live, selection);
}

}  // namespace capture
