// Files the tool writes and files it refuses to read, run as a user (or an attacker) would.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive_objects.h"
#include "cli_run.h"

namespace {

namespace fs = std::filesystem;

// Starts the tool in dir with the arguments, without waiting for it; its standard error goes to
// sErrorFile when one is named. The alarm ends a run that blocks, so a regression fails the test
// instead of hanging it.
pid_t Start(const TempDir& dir, const std::vector<std::string>& arguments, const std::string& sErrorFile = "") {
  const pid_t pid = fork();
  if (pid == 0) {
    std::vector<char*> argv{const_cast<char*>(KOFD_CLI_PATH)};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    alarm(20);
    const int fdError = sErrorFile.empty() ? 2 : open(sErrorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fdError >= 0 && dup2(fdError, 2) >= 0 && chdir(dir.Path("").c_str()) == 0) execv(KOFD_CLI_PATH, argv.data());
    _exit(127);
  }
  return pid;
}

int ExitStatus(pid_t pid) {
  int status = 0;
  return waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<std::string> Entries(const TempDir& dir) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir.Path(""))) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

TEST(CliOutput, ReplacesThroughLinksAndNeverFollowsAPlantedOne) {
  TempDir dir;
  const std::string sObject = dir.Write("a.o", AsString(ObjectWith({{"alpha", 1}})));
  const std::string sVictim = dir.Write("victim", "keep me");
  const auto Apply = [&](const std::string& sOut) {
    return Kofd(dir, "reloc " + Quoted(sObject) + " --apply word -o " + Quoted(dir.Path(sOut)));
  };

  // A link planted at the name a temporary once had is neither written through nor moved.
  fs::create_symlink(sVictim, dir.Path("out.o.kofd-tmp"));
  ASSERT_EQ(Apply("out.o").status, 0);
  EXPECT_EQ(TempDir::Read(sVictim), "keep me");
  EXPECT_FALSE(fs::is_symlink(dir.Path("out.o")));
  EXPECT_EQ(TempDir::Read(dir.Path("out.o")), TempDir::Read(sObject));

  // The file a link names is replaced; the link stays a link.
  fs::create_symlink("victim", dir.Path("link.o"));
  ASSERT_EQ(Apply("link.o").status, 0);
  EXPECT_TRUE(fs::is_symlink(dir.Path("link.o")));
  EXPECT_EQ(TempDir::Read(sVictim), TempDir::Read(sObject));

  // Nothing is created where a dangling link points.
  fs::create_symlink("nowhere", dir.Path("lib.a"));
  const Outcome create = Kofd(dir, "ar lib.a create a.o", "cd " + Quoted(dir.Path("")) + " && ");
  EXPECT_EQ(create.status, 1);
  EXPECT_EQ(create.err, "kofd: lib.a: already exists\n");
  const Outcome dangling = Apply("lib.a");
  EXPECT_EQ(dangling.status, 1);
  EXPECT_NE(dangling.err.find("a symbolic link to a file that does not exist"), std::string::npos) << dangling.err;
  EXPECT_FALSE(fs::exists(dir.Path("nowhere")));
  EXPECT_EQ(Entries(dir), (std::vector<std::string>{"a.o", "lib.a", "link.o", "out.o", "out.o.kofd-tmp", "stderr",
                                                    "stdout", "victim"}));
}

TEST(CliOutput, ChangesKeepTheModeAndConcurrentChangesAllTakeEffect) {
  TempDir dir;
  constexpr int kWriters = 6;
  std::vector<std::string> objects;
  for (int i = 0; i < kWriters; ++i) {
    objects.push_back("m" + std::to_string(i) + ".o");
    dir.Write(objects.back(), AsString(ObjectWith({{"f" + std::to_string(i), 1}})));
  }
  ASSERT_EQ(ExitStatus(Start(dir, {"ar", "lib.a", "create"})), 0);
  ASSERT_EQ(chmod(dir.Path("lib.a").c_str(), 0600), 0);

  std::vector<pid_t> writers;
  for (const std::string& sObject : objects) writers.push_back(Start(dir, {"ar", "lib.a", "add", sObject}));
  // Two runs writing one output both succeed, whichever renames last.
  writers.push_back(Start(dir, {"reloc", "m0.o", "--apply", "byte", "-o", "out.o"}));
  writers.push_back(Start(dir, {"reloc", "m0.o", "--apply", "byte", "-o", "out.o"}));
  for (pid_t pid : writers) EXPECT_EQ(ExitStatus(pid), 0);

  const Outcome listed = Kofd(dir, "ar lib.a list", "cd " + Quoted(dir.Path("")) + " && ");
  for (const std::string& sObject : objects) EXPECT_NE(listed.out.find("\t" + sObject + "\n"), std::string::npos) << sObject;
  struct stat st;
  ASSERT_EQ(stat(dir.Path("lib.a").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0600u);
  EXPECT_EQ(TempDir::Read(dir.Path("out.o")), TempDir::Read(dir.Path("m0.o")));
}

TEST(CliInput, RefusesWhatIsNoOrdinaryFileAndFilesPast4GiB) {
  TempDir dir;
  ASSERT_EQ(mkfifo(dir.Path("fifo").c_str(), 0600), 0);
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"info", "fifo"}, {"dump", "fifo"}, {"browse", "fifo"}, {"ar", "fifo", "list"}}) {
    EXPECT_EQ(ExitStatus(Start(dir, arguments, dir.Path("stderr"))), 1) << arguments[0];
    const std::string sError = TempDir::Read(dir.Path("stderr"));
    EXPECT_NE(sError.find("not an ordinary file"), std::string::npos) << arguments[0] << ": " << sError;
  }
  // Sparse files of an object, an archive and neither, one byte past what 32 bits address.
  for (const std::string& sStart : {std::string("\x7F" "ELF\x01\x01\x01", 7), std::string("!<arch>\n"), std::string("raw")}) {
    const std::string sBig = dir.Write("big", sStart);
    fs::resize_file(sBig, 0x100000000ull);
    for (const char* pszCommand : {"info", "dump --raw", "dump"}) {
      const Outcome big = Kofd(dir, std::string(pszCommand) + " " + Quoted(sBig));
      EXPECT_EQ(big.status, 1) << pszCommand;
      EXPECT_NE(big.err.find("larger than 4 GiB"), std::string::npos) << pszCommand << ": " << big.err;
    }
  }
}
