// Helpers of the compound-document tests: reading a stream whole, and the two
// independent tools: gsf, which writes documents, and olefile, which reads them.
#pragma once

#include <mivo4/docfile.h>

#include <map>
#include <sstream>

#include "zep_xxxx/cfbwriter.h"
#include "zep_xxxx/zeptest.h"

namespace cfbtest {

using zeptest::Bytes;

// Reads a whole stream through zepRead in pieces of `chunk` bytes.
inline Bytes ReadAll(HZEPIO h, int32_t chunk = 4096) {
    Bytes out;
    Bytes buffer(static_cast<size_t>(chunk));
    for (;;) {
        int32_t got = zepRead(h, buffer.data(), chunk);
        if (got <= 0) break;
        out.insert(out.end(), buffer.begin(), buffer.begin() + got);
    }
    return out;
}

inline int Run(const std::string &command) {
    int rc = std::system(command.c_str());
    return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

inline std::string Quote(const std::string &s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// Debian's python3 with its olefile package (a python of another
// installation earlier in PATH would not see it).
inline const char *kPython = "/usr/bin/python3";

inline bool ToolsPresent() {
    return Run("command -v gsf >/dev/null 2>&1") == 0 &&
           Run(std::string(kPython) + " -c 'import olefile' >/dev/null 2>&1") == 0;
}

// Writes the files under `tree` (a directory) and makes a document of its
// top-level entries with gsf: directories become storages, files streams.
inline bool GsfCreate(const std::string &tree, const std::string &document) {
    return Run("cd " + Quote(tree) + " && gsf createole " + Quote(document) + " $(ls -A) >/dev/null 2>&1") == 0;
}

// What olefile finds in a document: every stream's path ("a/b") and bytes,
// every storage's path. Read through files that a python script writes.
struct OleView {
    std::map<std::string, Bytes> streams;
    std::vector<std::string> storages;
    bool ok = false;
};

inline OleView OlefileRead(const std::string &document, const std::string &scratch) {
    OleView view;
    std::filesystem::create_directories(scratch);
    std::string script = scratch + "/dump.py";
    {
        std::ofstream py(script);
        py << "import olefile, sys, os\n"
              "ole = olefile.OleFileIO(sys.argv[1])\n"
              "out = sys.argv[2]\n"
              "with open(os.path.join(out, 'list.txt'), 'w', encoding='utf-8') as listing:\n"
              "    for n, e in enumerate(ole.listdir(streams=True, storages=True)):\n"
              "        path = '/'.join(e)\n"
              "        if ole.get_type(path) == olefile.STGTY_STORAGE:\n"
              "            listing.write('storage\\t%s\\n' % path)\n"
              "            continue\n"
              "        with open(os.path.join(out, 's%d' % n), 'wb') as f:\n"
              "            f.write(ole.openstream(path).read())\n"
              "        listing.write('stream\\ts%d\\t%s\\n' % (n, path))\n";
    }
    if (Run(std::string(kPython) + " " + Quote(script) + " " + Quote(document) + " " + Quote(scratch)) != 0) return view;
    std::ifstream listing(scratch + "/list.txt");
    std::string line;
    while (std::getline(listing, line)) {
        std::istringstream in(line);
        std::string kind, a, b;
        std::getline(in, kind, '\t');
        std::getline(in, a, '\t');
        if (kind == "storage") {
            view.storages.push_back(a);
        } else {
            std::getline(in, b);
            view.streams[b] = zeptest::ReadFile(scratch + "/" + a);
        }
    }
    view.ok = true;
    return view;
}

}  // namespace cfbtest
