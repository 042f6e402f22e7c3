/// Files that programs write when they are done.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace kit {

/// Makes the folder of a file that is to lie in `out`, the programs' own, which nobody else makes.
/// \throws std::invalid_argument that names the folder, where it cannot be made.
void MakeOwnFolder(const std::string& file);

/// What was worked out cannot be written: the message names where.
class OutputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
    const char* what() const noexcept override;
};

/// A file that is open before a program begins, so that nothing is worked out for one that cannot
/// be written, and written once, at its end. A device, a pipe, or what a link leads to is written
/// through; nothing but a file that this has made, and that nothing came of, is ever removed. For
/// one thread at a time. A process that is forked may write it instead, once.
///
/// The name "-" is that of standard output: whatever else the program prints from then on goes to
/// standard error. Two files at once cannot have it.
class OutputFile {
  public:
    /// What of a file's may be lost.
    enum class Replaces { AllButRecordings, Anything };

    /// Opens the file, and makes it where it is missing. What it holds stays. A pipe waits for its
    /// reader.
    /// \throws std::invalid_argument that names the file, where it cannot be written.
    explicit OutputFile(const std::string& name, Replaces replaces = Replaces::AllButRecordings);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& Name() const { return mName; }

    /// Replaces what the file holds, and closes it: for one call.
    /// \throws OutputError where that fails. Where there is no room for
    /// the content, a file keeps what it held, if its file system can tell beforehand.
    void Write(std::string_view content);

  private:
    bool Open();
    bool TakeStandardOutput();
    int WriteAll(std::string_view content);

    const std::string mName;
    int mFile = -1;
    bool mIsRegular = false;
    bool mIsStandardOutput = false;
    bool mIsNew = false; ///< Made by this, and nothing came of it so far.
};

} // namespace kit
