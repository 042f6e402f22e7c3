/// The results of a campaign in a file: a line of JSON that says of which cells, then one for each
/// that has ended. There are no times in it, so that what is the same is so byte for byte.
#pragma once

#include "campaign/cell_run.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace campaign {

/// What came of a cell.
struct Result {
    std::string scenario;
    std::vector<std::string> faults;
    Class its = Class::AsDocumented;
    std::string text;
    std::string command; ///< That repeats it.

    std::string Name() const { return NameOf(scenario, faults); }
    bool operator==(const Result&) const = default;
};

/// What a file holds, or is to hold.
struct Results {
    std::string library; ///< The adapter's build id.
    std::string set;     ///< Tells sets of cells apart, of all shards.
    uint32_t shard = 1;
    uint32_t shards = 1;
    std::vector<std::string> cells; ///< The names of this shard's, in order.
    std::map<std::string, Result> ended;

    /// All lines, in the order of the cells.
    std::string Text() const;
};

/// Reads a file. What a killed writer has left of a last line is left out.
/// \param whole becomes the number of bytes of the whole lines.
/// \throws standin::InputError where it cannot be read, or is something else.
Results ReadResults(const std::string& file, size_t* whole = nullptr);

/// Puts the shards of a campaign together.
/// \throws standin::InputError that names what does not fit: other libraries or cells; what is
/// missing, there twice, or contradicts.
Results Merge(const std::vector<std::string>& files);

/// A file that grows by a line for each cell that ends.
class ResultFile {
  public:
    /// Opens the file, for this process and its children alone. What it holds of the same campaign
    /// is kept; then `Ended` has it.
    /// \param wanted the campaign, of which nothing has ended.
    /// \param isAnew whatever the file holds is dropped.
    /// \throws standin::InputError where it cannot be written, is in use, or is of another
    /// campaign.
    ResultFile(const std::string& name, const Results& wanted, bool isAnew);
    ~ResultFile();
    ResultFile(const ResultFile&) = delete;
    ResultFile& operator=(const ResultFile&) = delete;

    const std::map<std::string, Result>& Ended() const { return mEnded; }

    /// Adds a line at once. Several processes may.
    /// \throws kit::OutputError where it finds no room.
    void Add(const Result& result) const;

    /// Once all have ended: brings the lines into their order, as a merge has them.
    /// \throws kit::OutputError where that fails; nothing is lost then.
    Results Finish() const;

  private:
    void Append(const std::string& line) const;
    bool OpenAndLock();

    const std::string mName;
    int mFile = -1;
    std::map<std::string, Result> mEnded;
};

} // namespace campaign
