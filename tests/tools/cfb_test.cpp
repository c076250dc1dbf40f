// mivo4 cfb as a user runs it: documents written by gsf, listed and read
// through the module, compared with olefile; damaged documents and wrong
// arguments give one line on standard error and a non-zero exit.
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <map>

#include "oracles.h"
#include "toolfixture.h"

using toolstest::ScratchDir;

namespace {

struct Ran {
    int code = -1;
    std::vector<uint8_t> out;
    std::string err;
};

Ran runCfb(const std::vector<std::string> &args, const ScratchDir &dir) {
    std::string command = "MIVO4_MODULE=" + toolstest::shellQuote(MIVO4_MODULE_PATH) + " " +
                          toolstest::shellQuote(MIVO4_CLI_PATH) + " cfb";
    for (const std::string &a : args) command += " " + toolstest::shellQuote(a);
    command += " >" + toolstest::shellQuote(dir / ".out") + " 2>" + toolstest::shellQuote(dir / ".err");
    Ran r;
    int status = std::system(command.c_str());
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = toolstest::readBytes(dir / ".out");
    auto e = toolstest::readBytes(dir / ".err");
    r.err.assign(e.begin(), e.end());
    return r;
}

std::vector<uint8_t> pattern(size_t n, uint32_t seed) {
    std::vector<uint8_t> out(n);
    uint32_t x = seed * 2654435761u + 1;
    for (auto &b : out) {
        x = x * 1664525u + 1013904223u;
        b = static_cast<uint8_t>(x >> 24);
    }
    return out;
}

void writeBytes(const std::string &path, const std::vector<uint8_t> &bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
}

// Runs a shell command whose output the command line itself redirects.
int runShell(const std::string &command) {
    int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool oraclesPresent() {
    return toolstest::runQuiet("command -v gsf") == 0 && toolstest::runQuiet("/usr/bin/python3 -c 'import olefile'") == 0;
}

class CfbCommand : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(oraclesPresent()) << "gsf (libgsf-bin) and olefile (python3-olefile) are installed by scripts/setup.sh";
        files = {{"Pictures/Page1", pattern(70000, 1)},
                 {"Pictures/Page2", pattern(63, 2)},
                 {"Pictures/Thumbs/One", pattern(4096, 3)},
                 {"notes", pattern(1, 4)},
                 {"empty", {}}};
        for (const auto &[path, bytes] : files) writeBytes(dir / ("tree/" + path), bytes);
        document = dir / "doc.ole";
        ASSERT_EQ(toolstest::runQuiet("cd " + toolstest::shellQuote(dir / "tree") + " && gsf createole " +
                                      toolstest::shellQuote(document) + " Pictures notes empty"),
                  0);
    }
    // olefile's view: "stream SIZE PATH" and "storage PATH" lines, sorted.
    std::string olefileListing() {
        std::string script = dir / "list.py";
        std::ofstream(script) << "import olefile, sys\n"
                                 "ole = olefile.OleFileIO(sys.argv[1])\n"
                                 "lines = []\n"
                                 "for e in ole.listdir(streams=True, storages=True):\n"
                                 "    p = '/'.join(e)\n"
                                 "    if ole.get_type(p) == olefile.STGTY_STORAGE:\n"
                                 "        lines.append('storage %s/' % p)\n"
                                 "    else:\n"
                                 "        lines.append('stream %d %s' % (ole.get_size(p), p))\n"
                                 "print('\\n'.join(sorted(lines)))\n";
        std::string out = dir / "olefile.txt";
        EXPECT_EQ(runShell("/usr/bin/python3 " + toolstest::shellQuote(script) + " " +
                                      toolstest::shellQuote(document) + " >" + toolstest::shellQuote(out)),
                  0);
        auto bytes = toolstest::readBytes(out);
        return std::string(bytes.begin(), bytes.end());
    }
    std::vector<uint8_t> olefileStream(const std::string &path) {
        std::string out = dir / "olefile.bin";
        EXPECT_EQ(runShell("/usr/bin/python3 -c 'import olefile, sys; "
                                      "sys.stdout.buffer.write(olefile.OleFileIO(sys.argv[1]).openstream(sys.argv[2]).read())' " +
                                      toolstest::shellQuote(document) + " " + toolstest::shellQuote(path) + " >" +
                                      toolstest::shellQuote(out)),
                  0);
        return toolstest::readBytes(out);
    }
    ScratchDir dir;
    std::string document;
    std::map<std::string, std::vector<uint8_t>> files;
};

TEST_F(CfbCommand, ListShowsTheStoragesAndStreamsOlefileFinds) {
    Ran r = runCfb({"list", document}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    // Reduce "stream SIZE PATH" / "storage - PATH/" columns to olefile's form.
    std::vector<std::string> lines;
    std::string text(r.out.begin(), r.out.end());
    std::istringstream in(text);
    std::string kind, size, path;
    while (in >> kind >> size >> path) lines.push_back(kind == "storage" ? "storage " + path : kind + " " + size + " " + path);
    std::sort(lines.begin(), lines.end());
    std::string ours;
    for (size_t i = 0; i < lines.size(); ++i) ours += (i ? "\n" : "") + lines[i];
    EXPECT_EQ(ours + "\n", olefileListing());
}

TEST_F(CfbCommand, CatWritesEachStreamAsOlefileReadsIt) {
    for (const auto &[path, bytes] : files) {
        Ran r = runCfb({"cat", document, path}, dir);
        ASSERT_EQ(r.code, 0) << path << ": " << r.err;
        EXPECT_EQ(r.out, olefileStream(path)) << path;
        EXPECT_EQ(r.out, bytes) << path;
    }
}

TEST_F(CfbCommand, MissingStreamIsAOneLineErrorWithExitCodeOne) {
    Ran r = runCfb({"cat", document, "Pictures/Page9"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.out.empty());
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_NE(r.err.find("no such stream"), std::string::npos) << r.err;
    r = runCfb({"cat", document, "Pictures"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("storage"), std::string::npos) << r.err;
}

TEST_F(CfbCommand, DamagedOrForeignFilesAreOneLineErrors) {
    std::vector<uint8_t> bytes = toolstest::readBytes(document);
    bytes[76] = 0xF0, bytes[77] = 0xFF, bytes[78] = 0xFF, bytes[79] = 0x7F;  // first FAT sector far past the end
    writeBytes(dir / "damaged.ole", bytes);
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {"list", dir / "damaged.ole"},
             {"cat", dir / "damaged.ole", "notes"},
             {"list", dir / "missing.ole"},
             {"cat", dir / "tree/notes", "notes"}}) {
        Ran r = runCfb(args, dir);
        EXPECT_EQ(r.code, 1) << args[1];
        EXPECT_TRUE(r.out.empty()) << args[1];
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
}

TEST_F(CfbCommand, WrongArgumentsAreAUsageError) {
    for (const std::vector<std::string> &args :
         std::vector<std::vector<std::string>>{{}, {"list"}, {"cat", document}, {"show", document}}) {
        Ran r = runCfb(args, dir);
        EXPECT_EQ(r.code, 2);
        EXPECT_NE(r.err.find("usage"), std::string::npos);
    }
}

}  // namespace
