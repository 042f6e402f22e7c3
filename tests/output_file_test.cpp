/// Files that are opened early and written late, whatever stands under their names.
#include "kit/output_file.h"

#include "contract/recording.h"
#include "tests/support/device.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

/// Which of the next calls fails, which a file system of this machine never does; 0 for none.
int g_failingClose = 0;
int g_failingTruncate = 0;

/// Does the call, which ends with an error all the same if it is to fail now.
template <class... Words> int Call(int& failing, long number, Words... words) {
    const auto result = static_cast<int>(syscall(number, words...));
    if (failing != 0 && --failing == 0) {
        errno = EIO;
        return -1;
    }
    return result;
}

} // namespace

// This program stands in front of the C library.
extern "C" __attribute__((visibility("default"))) int close(int file) {
    return Call(g_failingClose, SYS_close, file);
}
extern "C" __attribute__((visibility("default"))) int ftruncate(int file, off_t size) noexcept {
    return Call(g_failingTruncate, SYS_ftruncate, file, size);
}

namespace {

using kit::OutputFile;
using test::Folder;
using test::Thrown;

std::string ContentOf(const std::string& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(OutputFile, KeepsWhatWasThereUntilItIsWritten) {
    const Folder folder;
    const std::string file = folder.Write("a", "what was there");
    {
        const OutputFile dropped(file);
        const OutputFile made(folder / "new");
        EXPECT_TRUE(std::filesystem::exists(made.Name()));
    }
    EXPECT_EQ(ContentOf(file), "what was there");
    EXPECT_FALSE(std::filesystem::exists(folder / "new")) << "nothing came of it";

    OutputFile written(file);
    EXPECT_EQ(ContentOf(file), "what was there");
    written.Write("less");
    EXPECT_EQ(ContentOf(file), "less");
    OutputFile(folder / "new").Write("");
    EXPECT_TRUE(std::filesystem::exists(folder / "new"));
}

TEST(OutputFile, NamesWhatCannotBeWrittenBeforeAnythingIsDone) {
    const Folder folder;
    const OutputFile open(folder.Write("open", ""));
    contract::FileHeader about{
        .version = contract::kVersion, .blockBytes = contract::kBlockBytes, .process = 1};
    std::memcpy(about.magic, contract::kMagic, sizeof about.magic);
    folder.Write("a.rec", contract::Serialize(about, {}));
    folder.Write("text", "");
    const std::pair<const char*, const char*> cases[] = {
        {"", "it cannot be written: Is a directory"},
        {"no/such", "it cannot be written: No such file or directory"},
        {"text/below", "it cannot be written: Not a directory"},
        {"open", "it is being written already"},
        {"a.rec", "this is a recording, and would be lost"},
    };
    for (const auto& [name, problem] : cases) {
        const std::string file = folder / name;
        EXPECT_EQ(Thrown([&] { OutputFile{file}; }), file + ": " + problem);
    }
    EXPECT_EQ(Thrown([&] { OutputFile(folder / "a.rec", OutputFile::Replaces::Anything); }), "");

    ASSERT_EQ(chmod((folder / "text").c_str(), 0), 0);
    const uid_t own = geteuid();
    EXPECT_TRUE(own != 0 || seteuid(65534) == 0) << "root may do anything";
    const std::string problem = Thrown([&] { OutputFile(folder / "text"); });
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path("/proc/self"); // Where nobody makes a folder.
    const std::string noFolder = Thrown([] { OutputFile("out/a"); });
    std::filesystem::current_path(before);
    EXPECT_EQ(seteuid(own), 0);
    EXPECT_EQ(problem, folder / "text" + ": it cannot be written: Permission denied");
    EXPECT_EQ(noFolder, "out: this folder cannot be made: No such file or directory");
}

TEST(OutputFile, WritesThroughALinkAndLeavesIt) {
    const Folder folder;
    folder.Write("there", "what was there");
    for (const char* target : {"there", "not there"}) {
        const std::string link = folder / (std::string("to ") + target);
        std::filesystem::create_symlink(target, link);
        OutputFile(link).Write("new");
        EXPECT_TRUE(std::filesystem::is_symlink(link));
        EXPECT_EQ(ContentOf(folder / target), "new");
    }
}

TEST(OutputFile, OfADeviceThatIsFullIsAnErrorAndTheDeviceStays) {
    const Folder folder;
    const std::string full = folder / "full";
    std::filesystem::create_symlink("/dev/full", full);
    {
        OutputFile file(full);
        EXPECT_EQ(Thrown([&] { file.Write("text"); }),
                  full + ": it could not be written: No space left on device");
    }
    EXPECT_TRUE(std::filesystem::is_symlink(full));
    EXPECT_TRUE(std::filesystem::is_character_file(full));
}

TEST(OutputFile, OfAPipeReachesItsReaderAndOutlivesIt) {
    const Folder folder;
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::string got;
    std::thread reader([&] { got = ContentOf(pipe); });
    OutputFile(pipe).Write(std::string(100'000, 'x'));
    reader.join();
    EXPECT_EQ(got, std::string(100'000, 'x'));

    std::thread leaver([&] { const std::ifstream in(pipe); });
    OutputFile late(pipe);
    leaver.join();
    EXPECT_EQ(Thrown([&] { late.Write("x"); }), pipe + ": it could not be written: Broken pipe");
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

TEST(OutputFile, KeepsWhatWasThereWhereThereIsNoRoomForMore) {
    const Folder folder;
    const std::string file = folder.Write("a", "what was there");
    rlimit limit{};
    const int isRead = getrlimit(RLIMIT_FSIZE, &limit);
    ASSERT_EQ(isRead, 0);
    const rlimit small{4096, limit.rlim_max};
    (void)std::signal(SIGXFSZ, SIG_IGN);
    const int isSet = setrlimit(RLIMIT_FSIZE, &small);
    ASSERT_EQ(isSet, 0);
    std::string problem;
    for (const std::string& name : {file, folder / "new"}) {
        OutputFile output(name);
        problem += Thrown([&] { output.Write(std::string(5000, 'x')); });
    }
    const int isSetBack = setrlimit(RLIMIT_FSIZE, &limit);
    ASSERT_EQ(isSetBack, 0);
    EXPECT_EQ(problem, file + ": it could not be written: File too large" + folder / "new" +
                           ": it could not be written: File too large");
    EXPECT_EQ(ContentOf(file), "what was there");
    EXPECT_FALSE(std::filesystem::exists(folder / "new"));
}

TEST(OutputFile, ThatItsDiskFailsAtTheVeryEndIsAnError) {
    const Folder folder;
    for (int* const failing : {&g_failingClose, &g_failingTruncate}) {
        const std::string file = folder.Write("a", "what was there");
        OutputFile output(file);
        *failing = 1;
        EXPECT_EQ(Thrown([&] { output.Write("less"); }),
                  file + ": it could not be written: Input/output error");
        EXPECT_EQ(*failing, 0);
    }
}

TEST(OutputFile, MayHaveTheDescriptorOfAnInputThatIsClosed) {
    const Folder folder;
    ASSERT_EQ(close(STDIN_FILENO), 0);
    { // Is dropped, and leaves the number.
        const OutputFile dropped(folder / "dropped");
        EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
    }
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    OutputFile(folder / "a").Write("text");
    EXPECT_EQ(ContentOf(folder / "a"), "text");
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
}

TEST(OutputFile, RemovesNothingThatOthersPutThere) {
    const Folder folder;
    {
        const OutputFile replaced(folder / "replaced");
        const OutputFile filled(folder / "filled");
        std::filesystem::rename(folder.Write("empty", ""), replaced.Name());
        folder.Write("filled", "text");
    }
    EXPECT_TRUE(std::filesystem::exists(folder / "replaced"));
    EXPECT_EQ(ContentOf(folder / "filled"), "text");
}

TEST(OutputFile, HasStandardOutputForItselfUntilItEnds) {
    const Folder folder;
    std::string problem;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    (void)fputs("before ", stdout);
    {
        OutputFile first("-");
        problem = Thrown([] { OutputFile("-"); });
        (void)fputs("others", stdout);
        (void)fflush(stdout);
        first.Write("written");
    }
    EXPECT_EQ(Thrown([] { OutputFile("-"); }), "") << "it is free again";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "others");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "before written");
    EXPECT_EQ(problem, "standard output: it is being written already");
}

} // namespace
