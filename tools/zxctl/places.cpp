#include "places.hpp"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <tuple>

#include "common/failure.hpp"
#include "common/number.hpp"
#include "connection.hpp"
#include "terminal/text.hpp"

namespace ctl {
namespace {

using terminal::clean;

constexpr std::string_view kSuffix = ".sock";

// From "PROGRAM.PROCESS.sock", or "PROGRAM.sock".
void read_name(Place& place) {
    place.name = std::filesystem::path(place.path).stem();
    const std::size_t dot = place.name.rfind('.');
    const auto process = dot == std::string::npos
                             ? std::nullopt
                             : tools::parse_number(std::string_view(place.name).substr(dot + 1));
    if (process && *process <= INT32_MAX) {
        place.process = static_cast<pid_t>(*process);
        place.name.resize(dot);
    }
}

void try_to_connect(Place& place) {
    try {
        const Connection connection(place.path);
        place.process = place.process != 0 ? place.process : connection.process();
    } catch (const Connection::Refused& refused) {
        place.is_stale = refused.code == ECONNREFUSED;
        place.trouble = refused.what();
    }
}

std::string directories_text(const Options& options) {
    std::string text;
    for (const std::string& directory : options.directories) {
        text += (text.empty() ? "" : " or ") + clean(directory);
    }
    return text;
}

}  // namespace

std::vector<Place> find_places(const Options& options) {
    std::vector<Place> places;
    for (const std::string& directory : options.directories) {
        std::error_code error;
        std::filesystem::directory_iterator files(directory, error);
        if (error && options.is_directory_named) {
            throw tools::Failure(clean(directory) + ": " + error.message());
        }
        for (; !error && files != end(files); files.increment(error)) {
            std::error_code unknown;
            if (files->path().extension() == kSuffix &&
                files->symlink_status(unknown).type() == std::filesystem::file_type::socket) {
                Place& place = places.emplace_back();
                place.path = files->path();
                read_name(place);
                try_to_connect(place);
            }
        }
    }
    std::ranges::sort(places, {}, [](const Place& place) {
        return std::tie(place.name, place.process, place.path);
    });
    return places;
}

Place place_of(const Options& options) {
    const std::string& wanted = options.program;
    if (wanted.find('/') != std::string::npos) {
        Place place;
        place.path = wanted;
        read_name(place);
        return place;
    }
    const auto process = tools::parse_number(wanted);
    std::vector<Place> found;
    std::ranges::copy_if(find_places(options), std::back_inserter(found), [&](const Place& place) {
        return !place.is_stale &&
               (place.name == wanted || (process && place.process != 0 &&
                                         static_cast<std::uint64_t>(place.process) == *process));
    });
    if (found.size() == 1) {
        return found.front();
    }
    if (found.empty()) {
        throw tools::Failure("no program '" + clean(wanted) + "' serves in " +
                             directories_text(options) + " ('zxctl list' shows those that do)");
    }
    std::string choice;
    for (const Place& place : found) {
        choice += (choice.empty() ? "" : ", ") +
                  (place.process != 0 ? std::to_string(place.process) : clean(place.path));
    }
    throw tools::Failure("several programs are called '" + clean(wanted) +
                         "': name one of the processes " + choice);
}

}  // namespace ctl
