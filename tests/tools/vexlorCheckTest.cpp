// vexlor-check on real files, one case per kind of message, with real plug-ins for --load.
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "CCommand.h"
#include "COtherUser.h"
#include "CTempDir.h"
#include "testPaths.h"

namespace {

using ::testing::HasSubstr;

const std::string FILE_TARGET = VEXLOR_TEST_TARGET_FILE;

struct CCase {
    std::string content;
    std::string option;  // one, or none
    int status;
    std::string expected;  // part of the output
    std::string name = "vexlor.cfg";
    mode_t mode = 0600;
};

TEST(VexlorCheckTest, ReportsEachKindOfFinding)
{
    CTempDir dir;
    const std::string out = dir.file("out.tsv");
    // What lets other users in: a world-writable library, file and directory.
    const std::string library = dir.file("libcopy.so");
    std::filesystem::copy_file(FILE_TARGET, library);
    chmod(library.c_str(), 0666);
    mkdir(dir.file("open").c_str(), 0700);
    chmod(dir.file("open").c_str(), 0777);
    // The line, the kind of finding and what it names; the wording around them is free.
    const std::vector<CCase> cases = {
        {"component = net , 0001 1111\n", "", 0,
         "  line 1: component net = 0x0000001f  EMERG ALERT CRIT ERR WARN\n  0 error(s), 0 warning(s)\n"},
        {"target = " + FILE_TARGET + ", key1=a=b, key2, key3==third,=key4=fourth\n", "", 0,
         "  line 1: target " + FILE_TARGET + "\n    application-name = <the program's application name>" +
             "\n    key3 = third\n    key4 = fourth\n"},
        {"#comment\n\nnovalue\n", "--strict", 1, "line 3: warning: ignored: key \"novalue\""},
        {"Component = net,1\n", "", 0, "line 1: warning: ignored: unknown key \"Component\""},
        {"component = net, 1, 1\n", "", 0, "line 1: warning: ignored: a component"},
        {"component = net, 1x1\n", "", 0, "line 1: warning: bit string \"1x1\""},
        {"component = net, 1" + std::string(32, '0') + "\n", "", 0,
         "  line 1: component net = 0x00000000  none\n  line 1: warning: bit string of 33 levels"},
        {"component = a, 1\ncomponent = a, 11\n", "", 0, "line 2: warning: component a is also set on line 1"},
        {"target = " + FILE_TARGET + ", path=a\ntarget = " + FILE_TARGET + ", path=b\n", "", 0,
         "line 2: warning: library \"" + FILE_TARGET + "\" is loaded once, by line 1"},
        {"target = libvexlor-file.so\n", "", 0, "  line 1: warning: relative library path"},
        {"target = /nonexistent/libx.so\n", "", 0, "line 1: warning: the library does not exist"},
        {"a=1\n" + std::string(256, 'k') + "=v\n", "", 2, "line 2: error: max. key length"},
        {"component = a, 1\nk=v", "", 2, "  line 2: error: non-terminated entry"},
        {"#" + std::string(1100, 'c') + "\n", "", 0, "line 1: warning: a comment longer"},
        {"target = " + FILE_TARGET + ", path=" + out + "\n", "--load", 0, "  line 1: creates the target \"file\"\n"},
        {"target = " VEXLOR_TEST_TARGET_SYSLOG ", facility=kernel\n", "--load", 2,
         "  line 1: error: the target refuses to be created:\n    syslog target \"syslog\": facility=kernel"},
        {"target = " + testpaths::noFactory() + "\n", "--load", 2,
         "  line 1: error: \"" + testpaths::noFactory() + "\" is no log target"},
        {"target = /nonexistent/libx.so\n", "--load", 2, "  line 1: error: cannot load \"/nonexistent/libx.so\""},
        {"target = " + testpaths::recorder() + ", name=x\ntarget = " + testpaths::recorderTwin() + ", name=x\n",
         "--load", 0, "  line 2: warning: a target named \"x\" is already loaded"},
        {"target = " + library + "\n", "--strict", 1, "  line 1: warning: \"" + library + "\" is world-writable"},
        {"", "", 0, "warning: \"" + dir.file("vexlor.cfg") + "\" is world-writable", "vexlor.cfg", 0666},
        {"", "", 0, "  warning: it lies in the world-writable directory \"" + dir.file("open") + "\"",
         "open/vexlor.cfg"},
        {"", "--strict", 1, "  warning: a per-application file that names no target", "vexlor-player.cfg"},
    };
    for (const CCase& each : cases) {
        SCOPED_TRACE(each.expected);
        std::vector<std::string> argv{VEXLOR_TEST_VEXLOR_CHECK};
        each.option.empty() ? void() : argv.push_back(each.option);
        argv.push_back(dir.write(each.name, each.content));
        chmod(argv.back().c_str(), each.mode);
        const CCommandResult result = runCommand(argv);
        EXPECT_EQ(each.status, result.status) << result.out << result.err;
        EXPECT_THAT(result.out, HasSubstr(each.expected));
        EXPECT_THAT(result.out, HasSubstr("Edit in place so that running programs read the file again"));
    }
    const CCommandResult missing = runCommand({VEXLOR_TEST_VEXLOR_CHECK, dir.file("missing.cfg")});
    EXPECT_EQ(2, missing.status);
    EXPECT_THAT(missing.out, HasSubstr("  error: cannot be read: No such file or directory\n"));
    EXPECT_EQ(2, runCommand({VEXLOR_TEST_VEXLOR_CHECK}).status);
}

// The other user (nobody) owns a directory next to root's files; the old repro's steps follow.
using CInstallTest = COtherUserTest;

TEST_F(CInstallTest, WritesOnlyTheBytesItCheckedInPlaceAndNowhereAnotherUserControls)
{
    const std::string file = m_dir.write("vexlor.cfg", "component = a, 1\n");
    struct stat before { };
    stat(file.c_str(), &before);
    const std::string good = m_dir.write("good.cfg", "component = a, 11\n");
    CCommandResult result = runCommand({VEXLOR_TEST_VEXLOR_CHECK, "--install", good, file});
    EXPECT_EQ(0, result.status) << result.out;
    EXPECT_THAT(result.out, HasSubstr("in place: running programs read it again"));
    result = runCommand({VEXLOR_TEST_VEXLOR_CHECK, "--install", m_dir.write("broken.cfg", "component = b, 1"), file});
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("vexlor-check: \"" + file + "\" left unchanged\n", result.err);

    // A destination that the other user controls: a link of theirs, a file in their directory.
    const std::string victim = m_dir.write("victim", "root's own\n");
    const std::string theirs = m_theirs + "/vexlor.cfg";
    ASSERT_TRUE(asOtherUser([&] { (void)!symlink(victim.c_str(), theirs.c_str()); }));
    result = runCommand({VEXLOR_TEST_VEXLOR_CHECK, "--install", good, theirs});
    EXPECT_EQ(2, result.status);
    EXPECT_THAT(result.err, HasSubstr("\"" + theirs + "\" is a symbolic link"));
    EXPECT_EQ("root's own\n", readFile(victim));
    // A plain file there: the directory is theirs, so is what the name points to next.
    unlink(theirs.c_str());
    writeFile(theirs, "component = a, 1\n");
    result = runCommand({VEXLOR_TEST_VEXLOR_CHECK, "--install", good, theirs});
    EXPECT_EQ(2, result.status);
    EXPECT_THAT(result.err, HasSubstr("its directory \"" + m_theirs + "\" belongs to uid 65534"));
    EXPECT_EQ(0, runCommand({VEXLOR_TEST_VEXLOR_CHECK, "--force", "--install", good, theirs}).status);
    EXPECT_EQ("component = a, 11\n", readFile(theirs));

    // The other user swaps a good file and a refused one (no final line feed) under the name.
    const std::string fresh = m_theirs + "/new.cfg";
    const COtherUser swapper(NOBODY, [&](auto ready) {
        for (unsigned int n = 0;; ++n) {
            writeFile(m_theirs + "/next", n % 2 == 0 ? "component = a, 11\n" : "component = b, 1");
            rename((m_theirs + "/next").c_str(), fresh.c_str());
            n == 1 ? ready() : void();
        }
    });
    // 100 rounds, fewer where a round is slow (sanitizers, an emulator): the test's time is bounded.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (int round = 0; round < 100 && std::chrono::steady_clock::now() < end; ++round) {
        runCommand({VEXLOR_TEST_VEXLOR_CHECK, "--install", fresh, file});
        EXPECT_EQ("component = a, 11\n", readFile(file));
    }
    struct stat after { };
    stat(file.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);  // a rename would end the programs' watch
    // A sticky directory open to all (as /tmp) keeps an existing file of ours ours.
    chmod(m_dir.path().c_str(), 01777);
    EXPECT_EQ(0, runCommand({VEXLOR_TEST_VEXLOR_CHECK, "--install", good, victim}).status);
}

}  // namespace
