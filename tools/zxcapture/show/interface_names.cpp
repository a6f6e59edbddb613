#include "show/interface_names.hpp"

#include <net/if.h>

#include <algorithm>

namespace capture {

std::string_view InterfaceNames::find(std::uint32_t index) {
    const auto known = names_.find(index);
    if (known != names_.end()) {
        return known->second;
    }
    char name[IF_NAMESIZE];
    const auto is_printable = [](char character) { return character > ' ' && character <= '~'; };
    if (if_indextoname(index, name) == nullptr ||
        !std::ranges::all_of(std::string_view(name), is_printable)) {
        return {};
    }
    return names_[index] = name;
}

}  // namespace capture
