// Many pictures at once: -o DIR with worker processes, a list from a file,
// shards of one list for many machines, and the GNU parallel recipe of the
// README run with two stand-in hosts.
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>

#include "clirun.h"
#include "hostile.h"
#include "toolfixture.h"

using namespace toolstest;

namespace {

// Three small pictures and the bytes a single export gives each.
struct Pictures {
    std::vector<std::string> names{"one.ppm", "two.ppm", "three.ppm"};
    std::map<std::string, std::vector<uint8_t>> single;  // output name -> bytes
};

Pictures makePictures(const ScratchDir &dir) {
    Pictures p;
    uint32_t seed = 1;
    for (const std::string &n : p.names) {
        writeNoisePpm(dir / n, 120 + seed * 10, 90, seed);
        ++seed;
        const std::string out = n.substr(0, n.find('.')) + ".cal";
        Outcome r = runMivo4({"export", dir / n, dir / ("single-" + out)}, dir);
        EXPECT_EQ(r.code, 0) << r.err;
        p.single[out] = readBytes(dir / ("single-" + out));
    }
    return p;
}

void writeList(const std::string &path, const std::vector<std::string> &lines) {
    std::ofstream f(path);
    for (const auto &l : lines) f << l << "\n";
}

}  // namespace

TEST(HostBatch, EveryPictureGoesToDirNameCalWithTheBytesOfItsOwnExport) {
    ScratchDir dir;
    Pictures p = makePictures(dir);
    std::filesystem::create_directory(dir / "out");
    Outcome r = runMivo4({"export", "-o", dir / "out", "-j", "2", dir / "one.ppm", dir / "two.ppm", dir / "three.ppm"}, dir);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "3 pictures: 3 done, 0 failed")) << r.err;
    for (const auto &[name, bytes] : p.single) EXPECT_EQ(readBytes(dir / ("out/" + name)), bytes) << name;
}

TEST(HostBatch, OneFailureInTheMiddleDoesNotStopTheOthers) {
    ScratchDir dir;
    Pictures p = makePictures(dir);
    writeBytes(dir / "broken.ppm", "P6\n100 100\n255\n", {1, 2, 3});
    std::filesystem::create_directory(dir / "out");
    Outcome r = runMivo4({"export", "-o", dir / "out", "-j", "1", dir / "one.ppm", dir / "broken.ppm", dir / "three.ppm"}, dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "3 pictures: 2 done, 1 failed")) << r.err;
    EXPECT_EQ(readBytes(dir / "out/one.cal"), p.single["one.cal"]);
    EXPECT_EQ(readBytes(dir / "out/three.cal"), p.single["three.cal"]);
    EXPECT_FALSE(std::filesystem::exists(dir / "out/broken.cal"));
}

TEST(HostBatch, ShardsOfOneListShareItWithoutOverlapOrGaps) {
    ScratchDir dir;
    Pictures p = makePictures(dir);
    std::vector<std::string> list;
    for (const auto &n : p.names) list.push_back(dir / n);
    writeList(dir / "list.txt", list);
    std::set<std::string> seen;
    for (int shard = 0; shard < 2; ++shard) {
        const std::string out = dir / ("out" + std::to_string(shard));
        std::filesystem::create_directory(out);
        Outcome r = runMivo4({"export", "-o", out, "--files-from", dir / "list.txt", "--shard",
                              std::to_string(shard) + "/2"}, dir);
        ASSERT_EQ(r.code, 0) << r.err;
        for (const auto &e : std::filesystem::directory_iterator(out)) {
            EXPECT_TRUE(seen.insert(e.path().filename().string()).second) << "written by two shards";
        }
    }
    EXPECT_EQ(seen, (std::set<std::string>{"one.cal", "two.cal", "three.cal"}));
}

TEST(HostBatch, BatchOptionsAreCheckedBeforeAnythingRuns) {
    ScratchDir dir;
    Pictures p = makePictures(dir);
    std::filesystem::create_directory(dir / "out");
    EXPECT_EQ(runMivo4({"export", "-j", "2", dir / "one.ppm", dir / "x.cal"}, dir).code, 2) << "-j without -o";
    EXPECT_EQ(runMivo4({"export", "-o", dir / "out", "--shard", "2/2", dir / "one.ppm"}, dir).code, 2);
    EXPECT_EQ(runMivo4({"export", "-o", dir / "missing", dir / "one.ppm"}, dir).code, 2) << "no such directory";
    std::filesystem::create_directory(dir / "sub");
    std::filesystem::copy_file(dir / "one.ppm", dir / "sub/one.ppm");
    Outcome r = runMivo4({"export", "-o", dir / "out", dir / "one.ppm", dir / "sub/one.ppm"}, dir);
    EXPECT_EQ(r.code, 2);
    EXPECT_TRUE(contains(r.err, "would both be written")) << r.err;
    EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
}

TEST(HostBatch, TheGnuParallelRecipeSharesOneListBetweenTwoHosts) {
    // The README's recipe, with a stand-in for ssh that runs each host's
    // command here and notes the host.
    ScratchDir dir;
    Pictures p = makePictures(dir);
    std::vector<std::string> list;
    for (const auto &n : p.names) list.push_back(dir / n);
    writeList(dir / "list.txt", list);
    std::filesystem::create_directory(dir / "out");
    const std::string fakessh = std::string(MIVO4_TEST_SOURCE_DIR) + "/fakessh";
    const std::string command = "cd " + dir.path().string() + " && FAKESSH_LOG=" + (dir / "hosts.log") + " MIVO4_MODULE=" +
                                MIVO4_MODULE_PATH + " parallel --will-cite --ssh " + fakessh +
                                " -S 1/hostA,1/hostB " + cliPath() + " export -o " + (dir / "out") +
                                " --files-from " + (dir / "list.txt") + " --shard {}/2 ::: 0 1 > /dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    for (const auto &[name, bytes] : p.single) EXPECT_EQ(readBytes(dir / ("out/" + name)), bytes) << name;
    std::ifstream log(dir / "hosts.log");
    std::set<std::string> hosts;
    for (std::string h; std::getline(log, h);) hosts.insert(h);
    EXPECT_EQ(hosts, (std::set<std::string>{"hostA", "hostB"}));
}
