// Opening a stream inside a compound document, and listing a document's
// storages and streams.
#include <new>

#include "zep_xxxx/cfbdoc.h"

using namespace mivo4::zep;
using namespace mivo4::zep::cfb;

namespace {

// Everything the stream routines will follow is checked before the handle is
// handed out; a document that fails any check gives no handle.
HZEPIO OpenStream(const char *file, const char *streamPath, int32_t &result) {
    if (file == nullptr || streamPath == nullptr) {
        result = DOC_E_ARGUMENT;
        return 0;
    }
    Document doc;
    if ((result = doc.Load(file)) != DOC_OK) return 0;
    int64_t found = doc.Find(streamPath);
    if (found < 0) {
        result = static_cast<int32_t>(found);
        return 0;
    }
    const DOCDIRENTRY entry = doc.entries[static_cast<size_t>(found)];
    if (entry.EntryFlags != kTypeStream) {
        result = DOC_E_NOTSTREAM;
        return 0;
    }
    // Positions inside a stream are 32-bit signed.
    if (entry.StreamSize > INT32_MAX) {
        result = DOC_E_TOOLARGE;
        return 0;
    }
    if ((result = doc.LoadMini()) != DOC_OK) return 0;
    bool covered = entry.StreamSize >= kMiniCutoff ? doc.ChainCovers(entry.StartSect, entry.StreamSize)
                                                   : doc.MiniChainCovers(entry.StartSect, entry.StreamSize);
    if (!covered) {
        result = entry.StreamSize >= kMiniCutoff ? DOC_E_CHAIN : DOC_E_MINI;
        return 0;
    }
    ZEPIODATA *s = LockStream(doc.h);
    s->DocHdr = doc.header;
    s->hFAT = doc.fat.release();
    s->hMiniFAT = doc.miniFat.release();
    s->MiniStart = doc.entries[0].StartSect;
    s->MiniLength = doc.entries[0].StreamSize;
    s->Start = entry.StartSect;
    s->Length = entry.StreamSize;
    s->DirIndex = static_cast<uint32_t>(found);
    s->isStream = 1;
    s->isRoot = 0;
    s->docOffset = 0;
    s->isDocFile = 1;
    result = DOC_OK;
    return doc.ReleaseStream();
}

int32_t ListEntries(const char *file, DOCLISTPROC proc, void *user) {
    if (file == nullptr || proc == nullptr) return DOC_E_ARGUMENT;
    Document doc;
    if (int32_t r = doc.Load(file); r != DOC_OK) return r;
    // Depth first, a storage before what it holds; the tree walk has already
    // made sure that every entry is met once.
    struct Level {
        uint32_t storage;
        size_t next;
        std::string prefix;
    };
    std::vector<Level> levels{{0, 0, ""}};
    while (!levels.empty()) {
        Level &level = levels.back();
        const std::vector<uint32_t> &children = doc.nodes[level.storage].children;
        if (level.next >= children.size()) {
            levels.pop_back();
            continue;
        }
        uint32_t index = children[level.next++];
        const DOCDIRENTRY &e = doc.entries[index];
        std::string path = level.prefix + ToUtf8(e.szName, NameLength(e));
        bool storage = e.EntryFlags == kTypeStorage;
        if (proc(path.c_str(), storage ? DOC_ENTRY_STORAGE : DOC_ENTRY_STREAM, storage ? 0 : e.StreamSize, user) != 0) {
            break;
        }
        if (storage) levels.push_back({index, 0, path + "/"});
    }
    return DOC_OK;
}

}  // namespace

HZEPIO docOpenStream(const char *file, const char *streamPath, int32_t *resultOut) {
    int32_t result = DOC_E_NOMEM;
    HZEPIO h = 0;
    try {
        h = OpenStream(file, streamPath, result);
    } catch (const std::bad_alloc &) {
        h = 0;
        result = DOC_E_NOMEM;
    }
    if (resultOut != nullptr) *resultOut = result;
    return h;
}

int32_t docListEntries(const char *file, DOCLISTPROC proc, void *user) {
    try {
        return ListEntries(file, proc, user);
    } catch (const std::bad_alloc &) {
        return DOC_E_NOMEM;
    }
}
