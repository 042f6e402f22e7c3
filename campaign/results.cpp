/// Lines of JSON, written and read.
#include "campaign/results.h"

#include "kit/output_file.h"
#include "standin/located_json.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace campaign {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;
using standin::InputError;

std::string Line(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::string HeaderOf(const Results& results) {
    return Line({{"campaign", 1},
                 {"library", results.library},
                 {"set", results.set},
                 {"shard", std::to_string(results.shard) + "/" + std::to_string(results.shards)},
                 {"cells", results.cells}});
}

std::string LineOf(const Result& result) {
    return Line({{"scenario", result.scenario},
                 {"faults", result.faults},
                 {"class", NameOf(result.its)},
                 {"text", result.text},
                 {"command", result.command}});
}

Class ClassOf(const std::string& name) {
    for (uint32_t i = 0; i < static_cast<uint32_t>(Class::Count); ++i) {
        if (name == NameOf(Class{static_cast<int>(i)})) {
            return Class{static_cast<int>(i)};
        }
    }
    throw std::out_of_range(name);
}

Result ReadResult(const json& line) {
    return {.scenario = line.at("scenario"),
            .faults = line.at("faults"),
            .its = ClassOf(line.at("class")),
            .text = line.at("text"),
            .command = line.at("command")};
}

Results ReadHeader(const json& line) {
    if (line.at("campaign") != 1) {
        throw std::out_of_range("campaign");
    }
    Results results{
        .library = line.at("library"), .set = line.at("set"), .cells = line.at("cells")};
    char slash = 0;
    std::istringstream(line.at("shard").get<std::string>()) >> results.shard >> slash >>
        results.shards;
    return results;
}

/// The names as a message lists some of them.
std::string Some(const std::vector<std::string>& names) {
    constexpr size_t kMost = 5;
    std::string text;
    for (size_t i = 0; i < std::min(names.size(), kMost); ++i) {
        text += "\n  " + names[i];
    }
    return names.size() > kMost ? text + "\n  and " + std::to_string(names.size() - kMost) + " more"
                                : text;
}

[[noreturn]] void FailAt(const std::string& file, const std::string& problem) {
    throw InputError(file + ": " + problem);
}

/// Why two files are not of one campaign, empty where they are.
std::string ProblemOf(const Results& one, const Results& other) {
    if (one.library != other.library) {
        return "is of another build of the library, " + one.library + " and not " + other.library;
    }
    return one.set != other.set || one.shards != other.shards
               ? "is of another set of cells: other scenarios, options or shards"
               : "";
}

/// Whether all shards are there, and each has all of its cells.
void CheckComplete(const std::vector<Results>& all, const std::vector<std::string>& files) {
    const uint32_t shards = all.front().shards;
    std::vector<std::string> missing;
    for (uint32_t shard = 1; shard <= shards; ++shard) {
        const auto isIt = [shard](const Results& its) { return its.shard == shard; };
        if (std::none_of(all.begin(), all.end(), isIt)) {
            throw InputError("no file has shard " + std::to_string(shard) + "/" +
                             std::to_string(shards));
        }
    }
    for (size_t i = 0; i < all.size(); ++i) {
        for (const std::string& cell : all[i].cells) {
            if (!all[i].ended.contains(cell)) {
                missing.push_back(cell);
            }
        }
        if (!missing.empty()) {
            throw InputError(files[i] +
                             ": these cells are missing, so go on with it:" + Some(missing));
        }
    }
}

/// Whether no cell is in two files.
void CheckOnce(const std::vector<Results>& all, const std::vector<std::string>& files) {
    std::map<std::string, size_t> seen;
    for (size_t i = 0; i < all.size(); ++i) {
        for (const auto& [name, result] : all[i].ended) {
            const auto [at, isNew] = seen.emplace(name, i);
            if (isNew) {
                continue;
            }
            const Result& other = all[at->second].ended.at(name);
            throw InputError(files[i] + ": this cell is in " + files[at->second] + ", too" +
                             (other == result ? ": "
                                              : std::string(", where it is '") + NameOf(other.its) +
                                                    "' and here '" + NameOf(result.its) + "': ") +
                             name);
        }
    }
}

} // namespace

std::string Results::Text() const {
    std::string text = HeaderOf(*this);
    for (const std::string& cell : cells) {
        if (const auto found = ended.find(cell); found != ended.end()) {
            text += LineOf(found->second);
        }
    }
    return text;
}

Results ReadResults(const std::string& file, size_t* whole) {
    std::ifstream in(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    if (!in.good() && text.empty()) {
        throw InputError(file + ": no results can be read here");
    }
    std::optional<Results> results;
    size_t number = 0;
    size_t begin = 0;
    for (size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        ++number;
        try {
            const json line = json::parse(text.substr(begin, end - begin));
            if (!results.has_value()) {
                results = ReadHeader(line);
                continue;
            }
            Result result = ReadResult(line);
            const std::string name = result.Name();
            results->ended.insert_or_assign(name, std::move(result));
        } catch (const std::exception&) { // Of the JSON, or of what it lacks.
            throw InputError(file + ":" + std::to_string(number) +
                             ": this is no line of a campaign's results");
        }
    }
    if (!results.has_value()) {
        throw InputError(file + ": this file has no results of a campaign");
    }
    if (whole != nullptr) {
        *whole = begin;
    }
    return *results;
}

Results Merge(const std::vector<std::string>& files) {
    std::vector<Results> all;
    for (const std::string& file : files) {
        all.push_back(ReadResults(file));
        if (const std::string problem = ProblemOf(all.back(), all.front()); !problem.empty()) {
            FailAt(file, problem);
        }
    }
    CheckOnce(all, files);
    CheckComplete(all, files);
    Results merged{.library = all.front().library, .set = all.front().set};
    size_t longest = 0;
    std::sort(all.begin(), all.end(),
              [](const Results& one, const Results& other) { return one.shard < other.shard; });
    for (Results& shard : all) {
        longest = std::max(longest, shard.cells.size());
        merged.ended.merge(shard.ended);
    }
    for (size_t i = 0; i < longest; ++i) { // They were dealt out in turn.
        for (const Results& shard : all) {
            if (i < shard.cells.size()) {
                merged.cells.push_back(shard.cells[i]);
            }
        }
    }
    return merged;
}

// --- A file that grows --------------------------------------------------------------------------

ResultFile::ResultFile(const std::string& name, const Results& wanted, bool isAnew) : mName(name) {
    kit::MakeOwnFolder(name);
    while (!OpenAndLock()) {
    }
    size_t whole = 0;
    if (!isAnew && std::filesystem::file_size(name) > 0) {
        const Results had = ReadResults(name, &whole);
        std::string problem = ProblemOf(had, wanted);
        if (problem.empty() && had.shard != wanted.shard) {
            problem = "is of another shard";
        }
        if (!problem.empty()) {
            throw InputError(name + ": " + problem + "; --anew drops what it holds");
        }
        mEnded = had.ended;
    }
    if (ftruncate(mFile, static_cast<off_t>(whole)) != 0) {
        throw InputError(name + ": no results can be written here: " + strerror(errno));
    }
    if (whole == 0) {
        Append(HeaderOf(wanted));
    }
}

ResultFile::~ResultFile() { close(mFile); }

/// \returns false where another campaign, which has just ended, put its sorted file in this one's
/// place.
bool ResultFile::OpenAndLock() {
    constexpr std::chrono::milliseconds kPause{50};
    if (mFile >= 0) {
        close(mFile);
    }
    mFile = open(mName.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    struct stat its {};
    if (mFile < 0 || fstat(mFile, &its) != 0 || !S_ISREG(its.st_mode)) {
        throw InputError(mName + ": no results can be written here: " +
                         (mFile < 0 ? strerror(errno) : "it is no file"));
    }
    // Processes of a campaign that was killed are about to end.
    for (int left = 60; flock(mFile, LOCK_EX | LOCK_NB) != 0; --left) {
        if (left == 0) {
            throw InputError(mName + ": another campaign writes its results here");
        }
        std::this_thread::sleep_for(kPause);
    }
    struct stat named {};
    return stat(mName.c_str(), &named) == 0 && named.st_ino == its.st_ino &&
           named.st_dev == its.st_dev;
}

void ResultFile::Add(const Result& result) const { Append(LineOf(result)); }

void ResultFile::Append(const std::string& line) const {
    // In one piece, so that those of several processes do not mix.
    const ssize_t written = write(mFile, line.data(), line.size());
    if (written != static_cast<ssize_t>(line.size())) {
        throw kit::OutputError(mName + ": it could not be written: " +
                               (written < 0 ? strerror(errno) : "there is no room"));
    }
}

Results ResultFile::Finish() const {
    Results results = ReadResults(mName);
    const std::string other = mName + ".sorted";
    std::ofstream(other, std::ios::binary) << results.Text();
    std::error_code error;
    if (std::filesystem::file_size(other, error) != results.Text().size()) {
        throw kit::OutputError(other + ": it could not be written");
    }
    std::filesystem::rename(other, mName);
    return results;
}

} // namespace campaign
