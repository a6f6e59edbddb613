// The sockets and files of inputs that were opened at the start of the relay.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "input/inputs.hpp"
#include "options.hpp"

namespace relay {

// They are opened before the relay changes its user and before the watchdog forks. An input that is
// closed and opened again, in a new worker perhaps, takes its socket from here. The main thread
// alone uses it.
class InputPool {
public:
    // Opens these inputs. Throws a Failure.
    void add(const std::vector<std::string>& urls, const std::string& interface);

    // Returns inputs with descriptors of their own. What the pool does not have is opened. Throws a
    // Failure.
    std::vector<OpenInput> take(const std::vector<std::string>& urls, const std::string& interface);

    // Tells that inputs that were taken are closed.
    void give_back(const std::vector<std::string>& urls, const std::string& interface);

    // Tells that nobody reads for a while from what is not taken. The datagrams that arrive there
    // are of the past when the input is taken again, and are dropped then.
    void note_idle();

    // Prepares for a change: closes what nobody has taken and none of these channels wants, and
    // from now on opens files by their names, because others may be there now.
    void prepare_for(const std::vector<ChannelOptions>& wanted);

private:
    struct Entry {
        OpenInput input;
        bool is_taken = false;
        bool is_idle = false;
    };
    Entry* find(const Url& url, const std::string& interface, bool is_taken);
    zxcommon::Descriptor descriptor_of(Entry& entry) const;
    std::list<Entry> entries_;
    bool opens_files_ = false;
};

}  // namespace relay
