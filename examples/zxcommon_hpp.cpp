// Passes messages to a worker with the classes of zxcommon.hpp, which free what they make and
// release what they lock.
#include <array>
#include <chrono>
#include <cstdio>
#include <string_view>
#include <thread>
#include <zxcommon.hpp>

namespace {

using namespace std::chrono_literals;

struct Printer {
    static void* work(void* argument);

    zxcommon::Fifo fifo{256, "messages"};
    zxcommon::Lock lock{"printed"};
    int printed = 0;                                  // guarded by the lock
    zxcommon::Thread worker{"printer", &work, this};  // last: it uses the members before it
};

// Returns false if there is no room: a full FIFO would overwrite messages that were not read yet.
bool print(Printer& printer, std::string_view text) {
    const auto size = static_cast<int>(text.size());
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    if (printer.fifo.left() < size + ZXFIFO_PREFIX_SIZE) {
        zxcommon::log({zxcommon::Level::warning, "PRINTER"}, "no room for %d bytes", size);
        return false;
    }
    return printer.fifo.message_in({bytes, text.size()}) == size;
}

void print_waiting(Printer& printer) {
    std::array<std::uint8_t, 64> room;
    while (printer.fifo.used() > 0) {
        const int length = printer.fifo.message_out(room);
        if (length < 0) {  // too long: the boundaries of the following messages are lost
            printer.fifo.reset();
            return;
        }
        std::printf("printed: %.*s\n", length, reinterpret_cast<const char*>(room.data()));
        const zxcommon::LockGuard guard(printer.lock);  // records this function and line
        ++printer.printed;
    }
}

void* Printer::work(void* argument) {
    auto& self = *static_cast<Printer*>(argument);
    zxcommon::run_worker(self.worker.get(), {5000, 1}, [&](zxcommon::StopRequest& stop) {
        while (!stop.seen()) {
            print_waiting(self);
            std::this_thread::sleep_for(1ms);
        }
        print_waiting(self);
    });
    return nullptr;
}

bool print_two_messages() {
    Printer printer;
    if (!printer.fifo || !printer.lock || !printer.worker || !printer.worker.start({5000, 1})) {
        return false;  // the reason is in the log
    }
    printer.worker.run();
    const bool is_printed = print(printer, "one") && print(printer, "two");
    return printer.worker.stop({5000, 1}) && is_printed;
}

}  // namespace

int main() {
    const bool is_done = print_two_messages();  // the worker has ended: it was a member
    std::puts(is_done ? "stopped" : "failed");
    return is_done ? 0 : 1;
}
