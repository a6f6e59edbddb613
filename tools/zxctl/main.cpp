// zxctl: asks running programs about their locks, memory, queues, threads and log.
#include <clocale>

#include "commands.hpp"
#include "common/failure.hpp"
#include "options.hpp"

int main(int argc, char** argv) {
    const ctl::Options options = ctl::parse_options(argc, argv);
    // Which characters the terminal can show. Numbers keep the form of C, as JSON needs it.
    std::setlocale(LC_CTYPE, "");
    return tools::run("zxctl", [&] { ctl::run(options); });
}
